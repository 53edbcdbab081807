"""The scan run under stress: many starts at once, hostile trees, a volume
that goes away mid-run. Every list must stay well formed and name each file
of its tree once, and every problem is logged once."""

import os
import shutil
import sys
import threading
import time

from filelists import (compare_with_tree, leftover_futures, list_path, parse_list, scan_available,
                       setup_scan_machine, tree_files)
from harness import Skip, check, check_eq

VIRTUAL = {"QZ_TEST_VIRTUAL_TIME": "1"}
# Making and removing a tree 1200 levels deep recurses that far in Python.
sys.setrecursionlimit(max(sys.getrecursionlimit(), 10000))
MARKER = b"\\.qzvol\\"  # the run writes its wake-up files there while it walks


def make_files(root, count, dirs=1, prefix="t"):
    for d in range(dirs):
        sub = os.path.join(root, prefix, f"d{d:04d}")
        os.makedirs(sub, exist_ok=True)
        for i in range(count):
            with open(os.path.join(sub, f"f{i}.txt"), "w") as f:
                f.write("x" * (i % 7))


def first_scan(m, **kw):
    r = m.run(env=VIRTUAL, **kw)
    if not scan_available(r):
        raise Skip("the scan run is not in this build")
    check_eq(r.rc, 0, f"exit code of the first scan: {r.stderr[-300:]!r}")
    return r


def check_list(m, vguid, host_root, letter, ignore=(MARKER,)):
    with open(list_path(m, vguid), "rb") as f:
        files, dirs, problems = parse_list(f.read())
    check(not problems, f"{letter}: list not well formed: {problems[:5]}")
    compare_with_tree({p: v for p, v in files.items() if not any(s in p for s in ignore)},
                      tree_files(host_root, letter, ignore), f"{letter}: list")
    return files, dirs


def test_twenty_starts_at_once_exactly_one_scans(m):
    d = m.map_drive("D")
    # Enough folders for the winner's gentle pace (3 s every 101 folders) to
    # outlast the others' three-second wait for the lock.
    make_files(d, 1, dirs=400 if m.platform == "native" else 1000)
    guids = setup_scan_machine(m, ["D"])
    first_scan(m)  # writes topdirs.xml, so the next runs are normal ones
    before = len(m.log_messages())
    procs = [m.start() for _ in range(20)]
    results = [m.wait(p, timeout=600) for p in procs]
    check_eq([r.rc for r in results], [0] * 20, "exit codes")
    msgs = m.log_messages()[before:]
    got = [x for x in msgs if " got three hour lock, starting scan...." in x]
    lost = [x for x in msgs if " could not grab three hour lock, so some OTHER qzfilelist is already running, "
            "exiting quietly" in x]
    # Windows appends each line at the end in one step (append-only access);
    # Wine, under this much load, now and then lets one process's line land
    # where another's went, so one quiet line may be missing there.
    check_eq(len(got), 1, "runs that scanned")
    if m.platform == "wine":
        check(18 <= len(lost) <= 19, f"runs that found the lock held: {len(lost)}")
    else:
        check_eq(len(lost), 19, "runs that found the lock held")
    check_list(m, guids["D"], d, "D")
    check_eq(leftover_futures(m), [], "future files left")


def test_hostile_tree_gives_well_formed_lists(m):
    d = m.map_drive("D")
    make_files(d, 3, dirs=3)
    # Below the second level, where only the walk lists a folder.
    odd = os.path.join(d, "h", "x", "odd")
    os.makedirs(odd)
    hostile = [b"cr\rname.txt", b"lf\nname.txt", b"both\r\n.txt"]
    if m.platform == "native":
        hostile.append(b"bad\xffname.txt")  # not UTF-8: no Windows name can hold it
    for name in hostile:
        with open(os.path.join(os.fsencode(odd), name), "wb") as f:
            f.write(b"x")
    os.makedirs(os.path.join(os.fsencode(odd), b"dir\nwith lf"))
    with open(os.path.join(os.fsencode(odd), b"dir\nwith lf", b"inner.txt"), "wb") as f:
        f.write(b"y")
    # Paths far over 260 characters.
    long_dir = os.path.join(d, "long", *(["a_rather_long_folder_name_" + "x" * 30] * 8))
    os.makedirs(long_dir)
    with open(os.path.join(long_dir, "deep_file.txt"), "w") as f:
        f.write("z")
    # A loop of symbolic links: a folder that contains itself.
    loops = os.path.join(d, "loops")
    os.makedirs(loops)
    os.symlink(".", os.path.join(loops, "self"))
    os.symlink(os.path.join(loops, "other"), os.path.join(loops, "back"))
    os.makedirs(os.path.join(loops, "other"))
    os.symlink(loops, os.path.join(loops, "other", "up"))
    # A folder that cannot be read (no effect when the tests run as root).
    locked = os.path.join(d, "locked")
    os.makedirs(locked)
    with open(os.path.join(locked, "secret.txt"), "w") as f:
        f.write("s")
    os.chmod(locked, 0)
    try:
        guids = setup_scan_machine(m, ["D"])
        r = first_scan(m, timeout=600)
    finally:
        os.chmod(locked, 0o755)
    with open(list_path(m, guids["D"]), "rb") as f:
        files, dirs, problems = parse_list(f.read())
    check(not problems, f"list not well formed: {problems[:5]}")
    check(not any(b"\r" in p or b"\n" in p for p in files), "a CR or LF reached a file line")
    ignore = (MARKER, b"\r", b"\n", b"\xff", b"\\locked\\", b"\\loops\\")
    compare_with_tree({p: v for p, v in files.items() if not any(s in p for s in ignore)},
                      tree_files(d, "D", ignore), "D: list")
    check(any(p.endswith(b"\\deep_file.txt") and len(p) > 260 for p in files), "the long path is listed")
    msgs = m.log_messages()
    for name in (b"cr\rname.txt", b"lf\nname.txt", b"both\r\n.txt", b"dir\nwith lf"):
        shown = name.replace(b"\r", b"__\\r__").replace(b"\n", b"__\\n__").decode()
        hits = [x for x in msgs if x.startswith("WARNING: skipping filename with embedded <CR> or <LF>: ")
                and x.endswith("\\h\\x\\odd\\" + shown)]
        check_eq(len(hits), 1, f"warnings for {name!r}")
    if m.platform == "native":
        check_eq(sum("ConvertQzUtf16StringToUtf8_B failed, dirSearch=" in x and "\\odd" in x for x in msgs), 1,
                 "lines for the name that is not UTF-8")
    # The loops end: by not following links natively, by the depth limit at worst.
    check(all(p.count(b"\\self\\") <= 1000 for p in files), "a loop was followed without end")
    check_eq(r.rc, 0, "exit code")
    check_eq(leftover_futures(m), [], "future files left")


def test_huge_folder_and_deep_tree(m):
    d = m.map_drive("D")
    big = os.path.join(d, "big")
    os.makedirs(big)
    for i in range(200000):
        open(os.path.join(big, f"e{i:06d}"), "w").close()
    deep = d
    for _ in range(1200):
        deep = os.path.join(deep, "d")
    os.makedirs(deep)
    with open(os.path.join(deep, "bottom.txt"), "w") as f:
        f.write("b")
    guids = setup_scan_machine(m, ["D"])
    first_scan(m, timeout=1200)
    with open(list_path(m, guids["D"]), "rb") as f:
        files, dirs, problems = parse_list(f.read())
    check(not problems, f"list not well formed: {problems[:5]}")
    check_eq(sum(1 for p in files if p.startswith(b"D:\\big\\")), 200000, "files of the big folder")
    depths = [p.count(b"\\d") for p in dirs if p.startswith(b"D:\\d")]
    check(depths and max(depths) >= 999, f"the walk reached depth {max(depths or [0])}")
    check(not any(p.endswith(b"bottom.txt") for p in files), "the file below depth 1000 is not listed")
    limit = [x for x in m.log_messages() if x.startswith("ERROR: RecursivelyAddFilenamesToList recursion limit hit")]
    check_eq(len(limit), 1, "recursion limit lines")
    check_eq(leftover_futures(m), [], "future files left")


def test_files_vanishing_during_the_walk(m):
    d = m.map_drive("D")
    make_files(d, 5, dirs=300)
    churn = os.path.join(d, "churn")
    os.makedirs(churn)
    guids = setup_scan_machine(m, ["D"])
    stop = threading.Event()

    def flap():  # folders and files appear and vanish while the run walks
        n = 0
        while not stop.is_set():
            sub = os.path.join(churn, f"c{n % 20}")
            try:
                os.makedirs(sub, exist_ok=True)
                for i in range(5):
                    open(os.path.join(sub, f"x{i}"), "w").close()
                shutil.rmtree(sub, ignore_errors=True)
            except OSError:
                pass
            n += 1
    t = threading.Thread(target=flap)
    t.start()
    try:
        for _ in range(3):
            first_scan(m, timeout=600)
    finally:
        stop.set()
        t.join()
    check_list(m, guids["D"], d, "D", ignore=(MARKER, b"\\churn\\"))
    check_eq(leftover_futures(m), [], "future files left")


def test_volume_unplugged_mid_run_keeps_its_previous_list(m):
    d = m.map_drive("D")
    e = m.map_drive("E")
    make_files(d, 1, dirs=150)  # a normal run pauses 3 s after 101 folders of D:
    make_files(e, 2, dirs=5)
    guids = setup_scan_machine(m, ["D", "E"])
    first_scan(m)
    with open(list_path(m, guids["E"]), "rb") as f:
        previous_e = f.read()
    p = m.start()  # a normal run, in real time
    deadline = time.time() + 60
    while time.time() < deadline and not any(" entering main disk analysis" in x for x in m.log_messages()[-50:]):
        time.sleep(0.05)
    time.sleep(0.5)
    if m.platform == "native":
        os.rename(e, e + "_unplugged")
    else:
        os.unlink(os.path.join(m.wine.dosdevices, "e:"))
    r = m.wait(p, timeout=300)
    if m.platform == "native":
        os.rename(e + "_unplugged", e)
    check_eq(r.rc, 0, "exit code")
    with open(list_path(m, guids["E"]), "rb") as f:
        check(f.read() == previous_e, "E: kept its previous list")
    check_list(m, guids["D"], d, "D")
    check_eq(leftover_futures(m), [], "future files left")
