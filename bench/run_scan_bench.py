#!/usr/bin/env python3
"""The scan benchmark (native build): on generated trees shaped like a Windows
system volume, times in the same run

  - the program's urgent scan (qzfilelist -urgent_refresh_all) on a sample
    machine whose one selected volume, D:, is the tree;
  - bench_walk, the baseline: readdir + fstatat writing the same list lines;
  - the same walker writing a new file and renaming it over the old one, as
    the program keeps its previous list whole until the new one is complete
    (shown for comparison; the targets use the plain baseline);
  - find ROOT -type f -printf '%T@\\t%s\\t%p\\n' > file;

and reports wall-time medians, their ratios, peak resident memory
(/usr/bin/time) and how the program's time scales from the smallest tree to
the largest. It also checks that the program's list holds the same file
lines as the baseline's.

    bench/run_scan_bench.py [--work DIR] [--sizes 100000,1000000] [--rounds 5] [--no-build]

Trees are made once with gen_tree.py (--files N --seed 1) under the work
directory and reused. Exits 1 when a target is missed: on the largest tree
program <= 1.1 x baseline and program < find; on every tree peak RSS < 100
MiB; time(largest) / time(smallest) <= 11 x the size ratio / 10 (11 for
100,000 -> 1,000,000).
"""

import argparse
import glob
import os
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

REPO = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
HGUID = "h0123456789abcdef0123456"


def sh(cmd, **kw):
    return subprocess.run(cmd, check=True, **kw)


def build():
    sh(["cmake", "--preset", "native"], cwd=REPO, stdout=subprocess.DEVNULL)
    sh(["cmake", "--build", "--preset", "native", "--target", "qzfilelist", "bench_walk"], cwd=REPO,
       stdout=subprocess.DEVNULL)


def make_tree(gen, work, files):
    tree = os.path.join(work, f"tree_{files}")
    done = tree + ".ok"
    if not os.path.exists(done):
        shutil.rmtree(tree, ignore_errors=True)
        print(f"generating {files} files under {tree} ...", flush=True)
        sh([sys.executable, gen, tree, "--files", str(files), "--seed", "1"], stdout=subprocess.DEVNULL)
        open(done, "w").close()
    return tree


class Machine:
    """C: holds the client's install and data directories; D: is the tree."""

    def __init__(self, exe, work, tree, files):
        self.exe = exe
        self.root = os.path.join(work, f"machine_{files}")
        shutil.rmtree(self.root, ignore_errors=True)
        c = os.path.join(self.root, "c")
        os.makedirs(os.path.join(c, "Program Files", "Korvatine"))
        self.datadir = os.path.join(c, "ProgramData", "Korvatine", "qzdata")
        os.makedirs(os.path.join(self.datadir, "qzfilelists"))
        with open(os.path.join(c, "Program Files", "Korvatine", "qzinstall.xml"), "w") as f:
            f.write('<?xml version="1.0" encoding="UTF-8" ?>\n<contents>\n'
                    f'<qzinstall datadir="C:\\ProgramData\\Korvatine\\qzdata\\" hguid="{HGUID}" />\n'
                    '</contents>\n')
        self.env = dict(os.environ, QZ_DRIVES=f"C={c};D={tree}")
        out = subprocess.run([exe, "-assignvolumeguid", "D:\\"], env=self.env, capture_output=True, text=True).stdout
        m = re.search(r"vGuid: (v[0-9a-z]{27})", out)
        if not m:
            raise SystemExit(f"could not give D: an identity: {out!r}")
        self.vguid = m.group(1)
        with open(os.path.join(self.datadir, "qzinfo.xml"), "w") as f:
            f.write('<?xml version="1.0" encoding="UTF-8" ?>\n<contents>\n'
                    '<qzinfo excludefiletypes="tmp,bak" max_filesize_mb="4000" numdays_warn_if_no_backup="7" />\n'
                    '<hard_drives_to_backup>\n'
                    f'<qzvolume qzVolumeGuid="{self.vguid}" mountPointPath="D:\\" />\n'
                    '</hard_drives_to_backup>\n</contents>\n')

    def list_path(self):
        found = glob.glob(os.path.join(self.datadir, "qzfilelists", f"{self.vguid}_*_filelist.dat"))
        return found[0] if found else None


def measure(cmd, env=None, stdout_path=None):
    """Wall seconds and peak resident KiB of one run; raises when it fails."""
    with tempfile.NamedTemporaryFile("r", suffix=".time") as tf:
        out = open(stdout_path, "wb") if stdout_path else subprocess.DEVNULL
        try:
            t0 = time.perf_counter()
            r = subprocess.run(["/usr/bin/time", "-f", "%M", "-o", tf.name, *cmd], env=env, stdout=out,
                               stderr=subprocess.PIPE)
            wall = time.perf_counter() - t0
        finally:
            if stdout_path:
                out.close()
        if r.returncode != 0:
            raise RuntimeError(f"{cmd[0]} exited {r.returncode}: {r.stderr[-400:]!r}")
        return wall, int(tf.read().strip().splitlines()[-1])


def file_lines(path, skip_marker=True):
    """The file lines of a list (comment lines left out), as a multiset."""
    lines = {}
    with open(path, "rb") as f:
        for line in f:
            if line.startswith(b"#") or (skip_marker and b"\\.qzvol\\" in line):
                continue
            lines[line] = lines.get(line, 0) + 1
    return lines


def bench_size(exe, walk, work, tree, files, rounds):
    m = Machine(exe, work, tree, files)
    base_out = os.path.join(work, f"baseline_{files}.dat")
    find_out = os.path.join(work, f"find_{files}.txt")
    tools = {
        "program": ([exe, "-urgent_refresh_all"], m.env, None),
        "baseline": ([walk, tree, "D", base_out], None, None),
        # For comparison only: the baseline keeping its previous file whole
        # until the new one is complete, as the program must.
        "replacing": ([walk, tree, "D", base_out + ".r", "--replace"], None, None),
        "find": (["find", tree, "-type", "f", "-printf", "%T@\t%s\t%p\n"], None, find_out),
    }
    # One untimed run of each warms the cache (and gives the program its lists).
    for name, (cmd, env, out) in tools.items():
        measure(cmd, env, out)
    if not m.list_path():
        raise SystemExit("the program wrote no list for D: (is the scan run in this build?)")
    walls = {name: [] for name in tools}
    rss = {name: 0 for name in tools}
    order = list(tools)
    for r in range(rounds):
        for name in order[r % len(order):] + order[:r % len(order)]:  # rotate so no tool always runs first
            cmd, env, out = tools[name]
            wall, kib = measure(cmd, env, out)
            walls[name].append(wall)
            rss[name] = max(rss[name], kib)
    prog, base = file_lines(m.list_path()), file_lines(base_out)
    only_prog = sum(n - base.get(k, 0) for k, n in prog.items() if n > base.get(k, 0))
    only_base = sum(n - prog.get(k, 0) for k, n in base.items() if n > prog.get(k, 0))
    return {name: statistics.median(v) for name, v in walls.items()}, rss, (sum(prog.values()), only_prog, only_base)


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--work", default="/tmp/qzscanbench")
    ap.add_argument("--sizes", default="100000,1000000")
    ap.add_argument("--rounds", type=int, default=5)
    ap.add_argument("--gen", default=os.environ.get("QZ_GEN_TREE",
                                                    os.path.join(REPO, "..", "shared", "bench", "gen_tree.py")))
    ap.add_argument("--no-build", action="store_true")
    a = ap.parse_args()
    if not os.path.exists("/usr/bin/time"):
        raise SystemExit("/usr/bin/time is needed (Debian package: time)")
    if not a.no_build:
        build()
    exe = os.path.join(REPO, "build", "native", "qzfilelist")
    walk = os.path.join(REPO, "build", "native", "bench", "bench_walk")
    os.makedirs(a.work, exist_ok=True)
    sizes = [int(s) for s in a.sizes.split(",")]

    results = {}
    for files in sizes:
        tree = make_tree(a.gen, a.work, files)
        med, rss, same = bench_size(exe, walk, a.work, tree, files, a.rounds)
        results[files] = (med, rss)
        print(f"\n== {files} files, median of {a.rounds} rounds (warm cache)")
        for name in ("program", "baseline", "replacing", "find"):
            print(f"  {name:9s} {med[name]:8.3f} s   peak RSS {rss[name] / 1024:7.1f} MiB")
        print(f"  program / baseline = {med['program'] / med['baseline']:.3f}   "
              f"program / find = {med['program'] / med['find']:.3f}   "
              f"program / replacing baseline = {med['program'] / med['replacing']:.3f}")
        print(f"  list check: {same[0]} file lines, {same[1]} only in the program's list, "
              f"{same[2]} only in the baseline's")

    ok = True

    def target(cond, text):
        nonlocal ok
        ok = ok and cond
        print(f"  {'PASS' if cond else 'FAIL'} {text}")

    print("\n== targets")
    # The speed targets are set for the largest tree (a million files); the
    # smaller trees' ratios are shown above for comparison.
    largest = max(results)
    med, rss = results[largest]
    target(med["program"] <= 1.1 * med["baseline"], f"{largest}: program within 1.1x of the baseline "
           f"({med['program'] / med['baseline']:.3f})")
    target(med["program"] < med["find"], f"{largest}: program below find ({med['program']:.3f} s < "
           f"{med['find']:.3f} s)")
    for files, (med, rss) in results.items():
        target(rss["program"] < 100 * 1024, f"{files}: program peak RSS below 100 MiB ({rss['program'] / 1024:.1f})")
    if len(sizes) >= 2:
        small, large = min(sizes), max(sizes)
        ratio = results[large][0]["program"] / results[small][0]["program"]
        limit = 1.1 * large / small
        target(ratio <= limit, f"scaling {small} -> {large}: time ratio {ratio:.2f} (at most {limit:.1f}; "
               f"baseline {results[large][0]['baseline'] / results[small][0]['baseline']:.2f})")
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
