#!/usr/bin/env python3
"""Kills urgent scans at random moments and checks that no reader ever sees
a broken list.

    torture.py --exe PATH --platform native|wine [--kills 200] [--stops 20] [--files 20000] [--seed 1]

A sample machine gets two selected volumes, D: and E:, each a generated tree.
Then, --kills times: start an urgent scan, kill -9 it after a random delay
(up to a little more than a whole scan takes), and check

  - each volume's list is byte for byte the previous complete list, or a new
    complete one: header first, every block well formed, every file of the
    tree once with its mtime and size;
  - the next scan (the dead run's lock aged past its three hours first, as
    time would) succeeds, and leaves no ".future" file.

Then --stops times: start a normal scan, create the stop file after a random
delay, and check that the next scan's lists name no folder twice and still
match the trees. Prints the counts and ends with "N passed, M failed".
"""

import argparse
import os
import random
import signal
import statistics
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "e2e"))
sys.dont_write_bytecode = True

import harness  # noqa: E402
from filelists import (MARKER, VIRTUAL, age_locks, compare_with_tree, leftover_futures, list_dir,  # noqa: E402
                       list_path, listed, parse_list, scan_machine, tree_files)

GEN = os.path.join(HERE, "..", "..", "..", "shared", "bench", "gen_tree.py")


def read(path):
    try:
        with open(path, "rb") as f:
            return f.read()
    except FileNotFoundError:
        return None


class Torture:
    def __init__(self, m, trees):
        self.m, self.trees = m, trees
        self.expected = {l: tree_files(d, l, (MARKER,)) for l, d in trees.items()}
        self.failures = []
        self.counts = {"kills": 0, "kept previous": 0, "new list": 0, "no list yet": 0, "next run ok": 0,
                       "stops": 0, "stopped in time": 0, "next list clean": 0}

    def fail(self, what):
        self.failures.append(what)
        print("FAIL", what, flush=True)

    def check_complete(self, letter, data, what):
        """A complete list of the volume's tree; returns its problems."""
        _, blocks, problems = parse_list(data)
        files = {p: v for p, v in listed(blocks).items() if MARKER not in p}
        try:
            compare_with_tree(files, self.expected[letter], what)
        except AssertionError as e:
            problems.append(str(e))
        return problems

    def lists(self):
        return {letter: read(list_path(self.m, letter)) for letter in self.trees}

    def full_run(self, what, args=(), env=VIRTUAL):
        r = self.m.run(*args, env=env, timeout=600)
        if r.rc != 0:
            self.fail(f"{what}: exit code {r.rc}: {r.stderr[-300:]!r}")
            return False
        left = leftover_futures(self.m)
        if left:
            self.fail(f"{what}: future files left: {left}")
            return False
        for letter, data in self.lists().items():
            problems = self.check_complete(letter, data or b"", f"{what} {letter}:")
            if problems:
                self.fail(f"{what} {letter}: {problems[:3]}")
                return False
        return True

    def kill_once(self, i, delay):
        before = self.lists()
        p = self.m.start("-urgent_refresh_all")
        time.sleep(delay)
        try:
            os.kill(p.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        self.m.wait(p, timeout=120)
        self.counts["kills"] += 1
        for letter, data in self.lists().items():
            if data is None:
                self.counts["no list yet"] += before[letter] is None
                if before[letter] is not None:
                    self.fail(f"kill {i} ({delay:.3f}s): {letter}: the list vanished")
            elif data == before[letter]:
                self.counts["kept previous"] += 1
            else:
                problems = self.check_complete(letter, data, f"kill {i} {letter}:")
                if problems:
                    self.fail(f"kill {i} ({delay:.3f}s): {letter}: a broken list is in place: {problems[:3]}")
                else:
                    self.counts["new list"] += 1
        age_locks(self.m)
        if self.full_run(f"run after kill {i}"):
            self.counts["next run ok"] += 1

    def stop_once(self, i, delay):
        stop = os.path.join(list_dir(self.m), "qzfilelist_stop_run.txt")
        p = self.m.start(env=VIRTUAL)  # a normal run: it appends only when it resumes a checkpoint
        time.sleep(delay)
        with open(stop, "w") as f:
            f.write("stop")
        r = self.m.wait(p, timeout=300)
        self.counts["stops"] += 1
        if r.rc != 0:
            self.fail(f"stop {i}: exit code {r.rc}")
        if os.path.exists(stop):
            os.remove(stop)  # the run had ended before it saw the file
        else:
            self.counts["stopped in time"] += 1
        if self.full_run(f"run after stop {i}"):
            self.counts["next list clean"] += 1


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--exe", required=True)
    ap.add_argument("--platform", required=True, choices=("native", "wine"))
    ap.add_argument("--kills", type=int)
    ap.add_argument("--stops", type=int)
    ap.add_argument("--files", type=int, default=20000)
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--gen", default=GEN)
    a = ap.parse_args()
    kills = a.kills if a.kills is not None else (200 if a.platform == "native" else 20)
    stops = a.stops if a.stops is not None else (20 if a.platform == "native" else 5)
    rnd = random.Random(a.seed)

    tmp = tempfile.mkdtemp(prefix="qz-torture-")
    wine = harness.WinePrefix(tmp) if a.platform == "wine" else None
    try:
        m = harness.Machine(a.platform, os.path.abspath(a.exe), os.path.join(tmp, "machine"), wine)
        trees = {}
        for letter, seed in (("D", a.seed), ("E", a.seed + 1)):
            trees[letter] = m.map_drive(letter)
            subprocess.run([sys.executable, a.gen, trees[letter], "--files", str(a.files // 2), "--seed", str(seed)],
                           check=True, stdout=subprocess.DEVNULL)
        scan_machine(m, "".join(trees))
        t = Torture(m, trees)
        # Reference scans: every list complete, and how long an urgent scan takes.
        durations = []
        for n in range(3):
            t0 = time.monotonic()
            ok = t.full_run(f"reference scan {n}", args=("-urgent_refresh_all",), env=None)
            durations.append(time.monotonic() - t0)
            if not ok:
                raise SystemExit("the reference scan failed: " + "; ".join(t.failures[-1:]))
        # The tree's own state from now on includes the marker folders the runs wrote.
        whole = statistics.median(durations)
        print(f"urgent scan of {a.files} files on two volumes: {whole:.2f}s", flush=True)
        for i in range(kills):
            t.kill_once(i, rnd.uniform(0.0, whole * 1.1))
        for i in range(stops):
            t.stop_once(i, rnd.uniform(0.0, whole * 1.5))
        print("counts: " + ", ".join(f"{k}={v}" for k, v in t.counts.items()))
        checks = 2 * kills + 2 * stops
        print(f"{checks - len(t.failures)} passed, {len(t.failures)} failed")
        return 1 if t.failures else 0
    finally:
        if wine:
            wine.close()
        import shutil
        shutil.rmtree(tmp, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
