"""The scan run under stress: many starts at once, hostile trees, a volume
that goes away mid-run. Every list must stay well formed and name each file
of its tree once, and every problem is logged once."""

import os
import shutil
import threading
import time

from filelists import MARKER, check_list, leftover_futures, list_path, listed, put, scan, scan_machine
from harness import check, check_eq


def make_files(root, count, dirs=1, prefix="t"):
    for d in range(dirs):
        sub = os.path.join(root, prefix, f"d{d:04d}")
        os.makedirs(sub, exist_ok=True)
        for i in range(count):
            with open(os.path.join(sub, f"f{i}.txt"), "w") as f:
                f.write("x" * (i % 7))


def test_twenty_starts_at_once_exactly_one_scans(m):
    d, = scan_machine(m)
    # Enough folders for the winner's gentle pace (3 s every 101 folders) to
    # outlast the others' three-second wait for the lock.
    make_files(d, 1, dirs=400 if m.platform == "native" else 1000)
    scan(m)  # writes topdirs.xml, so the next runs are normal ones
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
    check(len(lost) == 19 or (m.platform == "wine" and len(lost) == 18), f"runs that found the lock held: {len(lost)}")
    check_list(m, d)
    check_eq(leftover_futures(m), [], "future files left")


def test_hostile_tree_gives_a_well_formed_list_and_one_line_per_problem(m):
    d, = scan_machine(m)
    make_files(d, 3, dirs=3)
    # Below the second level, where only the walk lists a folder.
    odd = os.path.join(d, "h", "x", "odd")
    os.makedirs(odd)
    hostile = [b"cr\rname.txt", b"lf\nname.txt", b"both\r\n.txt"]
    if m.platform == "native":
        hostile += [b"bad\xffname.txt", b"back\\slash.txt"]  # not UTF-8, or a backslash: no Windows name
    for name in hostile:
        with open(os.path.join(os.fsencode(odd), name), "wb") as f:
            f.write(b"x")
    put(os.path.join(odd, "dir\nwith lf", "inner.txt"))
    # Other programs' backup stores are skipped; a folder merely ending ".swstor" is walked.
    for sub in ("Backups.backupdb", "My.swstor", "WD SmartWare.swstor"):
        put(os.path.join(odd, sub, "in.txt"))
    # Paths far over 260 characters.
    long_dir = os.path.join(d, "long", *(["a_rather_long_folder_name_" + "x" * 30] * 8))
    put(os.path.join(long_dir, "deep_file.txt"))
    # A loop of symbolic links: a folder that contains itself.
    loops = os.path.join(d, "loops")
    os.makedirs(os.path.join(loops, "other"))
    os.symlink(".", os.path.join(loops, "self"))
    os.symlink(os.path.join(loops, "other"), os.path.join(loops, "back"))
    os.symlink(loops, os.path.join(loops, "other", "up"))
    # A folder that cannot be read (no effect when the tests run as root).
    locked = os.path.join(d, "locked")
    put(os.path.join(locked, "secret.txt"))
    os.chmod(locked, 0)
    try:
        scan(m, timeout=600)
    finally:
        os.chmod(locked, 0o755)
    blocks = check_list(m, d, ignore=(MARKER, "\r", "\n", "\udcff", "back\\slash", "\\locked\\", "\\loops\\",
                                      "backupdb\\", "WD SmartWare"))
    files = listed(blocks)
    check("D:\\h\\x\\odd\\My.swstor\\in.txt" in files, "My.swstor is walked")
    check(not any("\r" in p or "\n" in p or "backupdb" in p or "SmartWare" in p for p in files), "skipped names")
    check(any(p.endswith("\\deep_file.txt") and len(p) > 260 for p in files), "the long path is listed")
    if m.platform == "native":
        (odd_block,) = [b for b in blocks if b[0] == "D:\\h\\x\\odd"]
        check_eq(odd_block[1:], (3, []), "names with CR or LF: counted in '# Files:', without a line")
    msgs = m.log_messages()
    shown = [n.replace(b"\r", b"__\\r__").replace(b"\n", b"__\\n__").decode() for n in hostile[:3]]
    for want in [f"WARNING: skipping filename with embedded <CR> or <LF>: D:\\h\\x\\odd\\{n}"
                 for n in shown + ["dir__\\n__with lf"]] + [
            "WARNING: skipping dirname with TimeMachine in it: D:\\h\\x\\odd\\Backups.backupdb",
            "WARNING: skipping dirname with WesternDigitalBackup in it: D:\\h\\x\\odd\\WD SmartWare.swstor"]:
        check_eq(msgs.count(want), 1, want)
    if m.platform == "native":
        check_eq(sum("ConvertQzUtf16StringToUtf8_B failed, dirSearch=" in x and "\\odd" in x for x in msgs), 2,
                 "lines for the names Windows cannot hold")
    # The loops end: by not following links natively, by the depth limit at worst.
    check(all(p.count("\\self\\") <= 1000 for p in files), "a loop was followed without end")


def test_folder_of_200000_files(m):
    d, = scan_machine(m)
    os.makedirs(os.path.join(d, "big"))
    for i in range(200000):
        open(os.path.join(d, "big", f"e{i:06d}"), "w").close()
    scan(m, timeout=1200)
    check_list(m, d)


def test_files_vanishing_during_the_walk(m):
    d, = scan_machine(m)
    make_files(d, 5, dirs=300)
    churn = os.path.join(d, "churn")
    os.makedirs(churn)
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
            scan(m, timeout=600)
    finally:
        stop.set()
        t.join()
    check_list(m, d, ignore=(MARKER, "\\churn\\"))


def test_volume_unplugged_mid_run_keeps_its_previous_list(m):
    d, e = scan_machine(m, "DE")
    make_files(d, 1, dirs=150)  # a normal run pauses 3 s after 101 folders of D:
    make_files(e, 2, dirs=5)
    scan(m)
    with open(list_path(m, "E"), "rb") as f:
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
    with open(list_path(m, "E"), "rb") as f:
        check(f.read() == previous_e, "E: kept its previous list")
    check_list(m, d)
    check_eq(leftover_futures(m), [], "future files left")
