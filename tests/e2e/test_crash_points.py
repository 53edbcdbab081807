"""Crash points: each run that replaces shared files is ended at every durable
step of its file writing in turn (QZ_TEST_CRASH_AT_STEP=N: a write cut after
half its bytes, a flush or a move that does not happen, exit code 86). After
each ending every file a reader may open is its old complete text or a
complete new one, and the next run (once the dead run's lock is stale) leaves
the same files as a run that was never interrupted, without leftovers."""

import os
import re
import shutil
import subprocess

from harness import check, write
from filelists import VIRTUAL, age_locks, list_name, put, scan_machine, vguid
from test_scan import sample_tree

CRASH = 86
# Names a reader never opens: temporaries, growing files, set-aside copies, the
# lock, the logs and the drive ping's wake files.
WORK_NAME = re.compile(r"\.(tmp|qztmp|future|future_aside|aside\d*\.xml|lck|lock)$|\.lck_?\d+|qzlogs|ping_qzfilelist|wake_\d+")
# A wake file is written and deleted at once; one a crash leaves behind is never
# read. A dead run's registry lock stays until the registry is next written,
# which breaks it as stale.
NOT_LEFTOVER = re.compile(r"qzlogs|ping_qzfilelist|wake_\d+|qzvolumes\.xml\.lock$")


# Files whose writer takes more than one durable step by design, so that an
# ending between the steps leaves a complete file of an in-between version:
# the merge log names a block before the editable rules hold it (a block
# named there is never merged again), and a new volume identity enters the
# registry before its marker is written (an ending between leaves an identity
# no volume carries). Of these only completeness is checked.
IN_BETWEEN = {
    "qzexcluderules_editable.xml": lambda d: d.endswith(b"</qzexclusions>\n"),
    "qzexcluderules_editable_mergelog.txt": lambda d: True,  # read line by line; a cut line is ignored
    "qzvolumes.xml": lambda d: d.endswith(b"</contents>\n"),
}


def files(m):
    """Every file a reader may open, host path -> bytes."""
    out = {}
    for root in m.owned_roots():
        for dirpath, _, names in os.walk(root):
            for n in names:
                p = os.path.join(dirpath, n)
                # The program writes no file this large; the tree's large files are left out.
                if not WORK_NAME.search(p) and os.path.getsize(p) < 1 << 20:
                    with open(p, "rb") as f:
                        out[p] = f.read()
    return out


def leftovers(m):
    return sorted(p for root in m.owned_roots() for dirpath, _, names in os.walk(root) for p in
                  (os.path.join(dirpath, n) for n in names) if WORK_NAME.search(p) and not NOT_LEFTOVER.search(p))


def norm(data):
    # Times, sizes and counts differ from one run to the next; the shape does
    # not. A wake file the ping left behind is listed like any file.
    # New volume identities are partly random.
    data = re.sub(rb"[^\n]*wake_\d+\.txt\n", b"", data)
    return re.sub(rb"[0-9a-f]{16}|\d+", b"#", re.sub(rb"\bv[0-9a-z]{27}\b", b"VGUID", data))


def save(m, where, back=False):
    """Copies the machine's folders to `where`, or back from there."""
    for i, root in enumerate(m.owned_roots()):
        src, dst = (os.path.join(where, str(i)), root) if back else (root, os.path.join(where, str(i)))
        shutil.rmtree(dst, ignore_errors=True)
        # cp keeps the large files sparse; a plain copy would write 500 MB each time.
        subprocess.run(["cp", "-a", "--sparse=always", src, dst], check=True)


def crash_every_step(m, args, must_hit, in_between=()):
    """Runs `args` ended at step 1, 2, ... from the same start until a run
    completes; checks what a reader sees after each ending and after the repair."""
    start = os.path.join(m.root, "crash_start")
    os.makedirs(start, exist_ok=True)
    save(m, start)
    old_state = files(m)
    reference = m.run(*args, env=VIRTUAL)
    check(reference.rc != CRASH, f"uninterrupted run: {reference}")
    new_state = {p: norm(d) for p, d in files(m).items()}
    new_leftovers = leftovers(m)
    hit = []
    for step in range(1, 400):
        save(m, start, back=True)
        r = m.run(*args, env=dict(VIRTUAL, QZ_TEST_CRASH_AT_STEP=str(step)))
        if r.rc != CRASH:
            check(step > 1, f"the run never reached a durable step: {r}")
            break
        point = re.search(r"crash point \d+: (\w+) (.*)", r.stderr)
        check(point, f"step {step}: no crash point line in {r.stderr!r}")
        hit.append(point.group(2).strip())
        where = f"after ending at step {step} ({point.group(1)} {point.group(2).strip()})"
        for p, data in files(m).items():
            if os.path.basename(p) in in_between:
                check(IN_BETWEEN[os.path.basename(p)](data), f"{where}: {p} is incomplete: {data[-300:]!r}")
                continue
            check(data == old_state.get(p) or norm(data) == new_state.get(p),
                  f"{where}: {p} is neither its old nor a complete new text: {data[:300]!r}")
        for p in old_state:
            check(os.path.exists(p) or p not in new_state, f"{where}: {p} disappeared")
        age_locks(m)
        m.run(*args, env=VIRTUAL)
        repaired = {p: norm(d) for p, d in files(m).items()}
        for p in sorted(set(repaired) | set(new_state)):
            if os.path.basename(p) in in_between:
                check(p in repaired and IN_BETWEEN[os.path.basename(p)](repaired[p]), f"{where}: {p} left incomplete")
                continue
            check(repaired.get(p) == new_state.get(p),
                  f"{where}, the next run left {p} as {repaired.get(p, b'(missing)')[:300]!r}, "
                  f"an uninterrupted run as {new_state.get(p, b'(missing)')[:300]!r}")
        # An in-between file's temporary is written again only when the file next changes.
        left = [p for p in leftovers(m) if os.path.basename(p)[:-len(".tmp")] not in in_between]
        check(left == new_leftovers, f"{where}, the next run left {left}")
    else:
        check(False, "the run did not end within 400 steps")
    for name in must_hit:
        check(any(h.endswith(name) for h in hit), f"no step wrote {name}: {hit}")
    save(m, start, back=True)


def test_crash_points_of_a_first_scan(m):
    # The first scan writes the rule files, the merge log, the registry, the
    # top-level list, the statistics, the large-file list and the volume's list.
    d, = scan_machine(m)
    put(os.path.join(d, "a", "b", "c.txt"), 3)
    put(os.path.join(d, "big.iso"), 524288000)
    crash_every_step(m, [], ["qzexcluderules_mandatory.xml", "qzexcluderules_editable.xml",
                             "qzexcluderules_editable_mergelog.txt", "qzvolumes.xml", "topdirs.xml",
                             "filestats.xml", "bigfilelist.dat", list_name("D")],
                     in_between=["qzexcluderules_editable.xml", "qzexcluderules_editable_mergelog.txt"])


def test_crash_points_of_a_scan_that_replaces_the_lists(m):
    d, = scan_machine(m)
    sample_tree(d, symlinks=False)
    check(m.run(env=VIRTUAL).rc == 0, "first scan")
    age_locks(m)
    put(os.path.join(d, "Users", "bob", "new.doc"), 5)
    crash_every_step(m, [], ["topdirs.xml", "filestats.xml", "bigfilelist.dat", list_name("D")])


def test_crash_points_of_alert_levels_markers_and_volume_lists(m):
    scan_machine(m)
    m.map_drive("E")
    write(os.path.join(m.datadir(), "qzlogs", "qzreports_lastfilestransmitted",
                       f"qzstat_pervol_{vguid('D')}_latest_file.xml"), '<x gmt_millis="1" />\n')
    check(m.run("-update_qzvolumes_xml").rc == 0, "registry")
    check(m.run("-update_qzdefcon_xml").rc == 0, "first alert file")
    # A named output file: the default name holds the time, a new file each run.
    out = m.datadir_win + "qzflags/volumes_for_the_installer.txt"
    check(m.run("-listvolumestofile", out).rc == 0, "first volume list")
    crash_every_step(m, ["-update_qzdefcon_xml"], ["qzdefcon.xml"])
    crash_every_step(m, ["-listvolumestofile", out], ["volumes_for_the_installer.txt"])
    crash_every_step(m, ["-assignvolumeguid", "E:\\"], ["qzvol_id.xml", "qzvolumes.xml"], in_between=["qzvolumes.xml"])
