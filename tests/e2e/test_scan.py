"""The scan run on real trees: a start without arguments (and the urgent
switches) walks the selected volume, and its list, top-level list, statistics
and large-file list are compared with the tree on disk; leftovers of a stopped
run, the stop file, the lock, the depth limit, anomalous names and the exit
codes. Every run uses virtual time, so the 3-second pauses cost nothing."""

import os
import re
import sys

from harness import check, check_eq, write

HGUID = "0123456789abcdef01234567"
GUID_D = "v0010123456789ab0123456789ab"
LIST_NAME = f"{GUID_D}_c____filelist.dat"
VT = {"QZ_TEST_VIRTUAL_TIME": "1"}
HEADER_RE = re.compile(r"^# GmtMillisThisListWasStarted: ([0-9a-f]{16}), GmtDateTime: (\d{14})$")
LINE_RE = re.compile(r"^([fs])\t([0-9a-f]{16})\t(\d+)\t(.*)$", re.S)
# Top-level and second-level directories the list never makes entries of.
SKIPPED = ("windows", "program files", "$recycle.bin", "system volume information", "msocache")
BIG = 524288000
# The depth test makes a chain of 1001 folders; removing it recurses once per level.
sys.setrecursionlimit(max(sys.getrecursionlimit(), 6000))


def machine(m, settings_extra=""):
    """Install, data directory and a D: drive selected for backup; returns D:'s host directory."""
    m.write_install_xml(hguid=HGUID)
    m.make_datadir()
    d = m.map_drive("D")
    write(os.path.join(d, ".qzvol", "qzvol_id.xml"),
          '<?xml version="1.0" encoding="UTF-8" ?>\n<contents>\n<readme txt="x" />\n'
          f'<qzvolume vguid="{GUID_D}" associated_hguid="{HGUID}" />\n</contents>\n')
    m.write_qzinfo('<?xml version="1.0" encoding="UTF-8" ?>\n<contents>\n'
                   f'<settings excludefiletypes="bak" max_filesize_mb="4000" {settings_extra}/>\n'
                   f'<qzvolume qzVolumeGuid="{GUID_D}" mountPointPath="D:\\" />\n'
                   '<filesetdef filesetname="docs" extensions="txt,doc" />\n'
                   '<filesetdef filesetname="pictures" extensions="jpg,txt" />\n'
                   '<filesetdef filesetname="music" extensions="mp3" />\n</contents>\n')
    return d


def put(path, size=1, mtime_ms=1_600_000_000_123):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as f:
        f.truncate(size)
    os.utime(path, ns=(mtime_ms * 1_000_000, mtime_ms * 1_000_000))


def sample_tree(d, symlinks):
    put(os.path.join(d, "root.txt"), 6)
    put(os.path.join(d, "Users", "bob", "notes.txt"), 12, 1_500_000_000_001)
    put(os.path.join(d, "Users", "bob", "song.mp3"), 3000)
    put(os.path.join(d, "Users", "bob", "old.bak"), 5)
    put(os.path.join(d, "Users", "bob", "Pictures", "2024", "a.jpg"), 777)
    put(os.path.join(d, "Users", "bob", "Pictures", "2024", "noext"), 9)
    os.makedirs(os.path.join(d, "Users", "bob", "empty"))
    put(os.path.join(d, "Users", "carol", "deep", "er", "x.doc"), 40)
    put(os.path.join(d, "data", "only", "subdirs", "here.txt"), 2)
    put(os.path.join(d, "data", "big.iso"), BIG)
    put(os.path.join(d, "data", "almost.iso"), BIG - 1)
    put(os.path.join(d, "Windows", "System32", "k.dll"), 10)
    put(os.path.join(d, "Program Files", "App", "a.exe"), 10)
    put(os.path.join(d, "$Recycle.Bin", "S-1", "gone.txt"), 10)
    if symlinks:
        os.symlink("notes.txt", os.path.join(d, "Users", "bob", "link.txt"))
        os.symlink(os.path.join(d, "data"), os.path.join(d, "Users", "bob", "loop"))


def win(path_parts):
    return "D:\\" + "\\".join(path_parts)


def expected_blocks(d, ordered):
    """The blocks the walk must write, depth first; each (dir, [(type, mtime, size, path)])."""
    blocks = []

    def entries(host):
        it = list(os.scandir(host))
        return it if ordered else sorted(it, key=lambda e: e.name)

    def walk(host, parts, depth):
        files, dirs = [], []
        for e in entries(host):
            if e.is_dir(follow_symlinks=False):
                if depth + 1 <= 2 and e.name.lower() in SKIPPED:
                    continue
                dirs.append(e)
            elif e.is_symlink() and e.is_dir():
                continue  # a link to a folder is never entered nor listed
            else:
                st = e.stat(follow_symlinks=False)
                link = e.is_symlink()
                files.append(("s" if link else "f", st.st_mtime_ns // 1_000_000, 0 if link else st.st_size,
                              win(parts + [e.name])))
        nfiles = sum(1 for e in entries(host) if not e.is_dir(follow_symlinks=False) and not (
            e.is_symlink() and e.is_dir()))
        blocks.append(("D:\\" + "\\".join(parts), nfiles, files))
        for e in dirs:
            walk(e.path, parts + [e.name], depth + 1)

    walk(d, [], 0)
    return blocks


def parse_list(text):
    """(header millis, [(dir, count, [(type, mtime, size, path)])]); checks the form as it goes."""
    check(text.endswith("\n"), "the list does not end with a line feed")
    lines = text[:-1].split("\n")
    h = HEADER_RE.match(lines[0])
    check(h is not None, f"bad header {lines[0]!r}")
    blocks = []
    i = 1
    while i < len(lines):
        check_eq(lines[i], "#", f"line {i + 1}")
        check(lines[i + 1].startswith("# Dir: "), f"line {i + 2} is not a Dir line: {lines[i + 1]!r}")
        check(re.fullmatch(r"# Files: \d+", lines[i + 2]) is not None, f"line {i + 3}: {lines[i + 2]!r}")
        dir_, count = lines[i + 1][7:], int(lines[i + 2][9:])
        i += 3
        files = []
        while i < len(lines) and lines[i] != "#":
            mt = LINE_RE.match(lines[i])
            check(mt is not None, f"bad file line {lines[i]!r}")
            files.append((mt.group(1), int(mt.group(2), 16), int(mt.group(3)), mt.group(4)))
            i += 1
        blocks.append((dir_, count, files))
    return int(h.group(1), 16), blocks


def lists_dir(m):
    return os.path.join(m.datadir(), "qzfilelists")


def read_list(m, name=LIST_NAME):
    with open(os.path.join(lists_dir(m), name), encoding="utf-8", newline="") as f:
        return f.read()


def scan(m, *args):
    r = m.run(*args, env=VT)
    check_eq(r.rc, 0, f"exit code of a scan {list(args)}")
    return r


def check_list_matches_tree(m, d):
    _, blocks = parse_list(read_list(m))
    want = expected_blocks(d, ordered=m.platform == "native")
    if m.platform != "native":
        blocks = [(b[0], b[1], sorted(b[2], key=lambda f: f[3])) for b in blocks]
        want = [(b[0], b[1], sorted(b[2], key=lambda f: f[3])) for b in want]
        # The listing order of Wine's enumeration is its own: compare depth-first structure and contents.
        check_eq(sorted(blocks), sorted(want), "blocks of the list")
        seen = []
        for dir_, _, _ in blocks:
            parent = dir_.rsplit("\\", 1)[0] if dir_ != "D:\\" else None
            if parent == "D:":
                parent = "D:\\"
            if parent is not None:
                check(parent in seen, f"{dir_} comes before its parent")
                # Depth first: everything after the parent's block up to here lies below the parent.
                after = seen[seen.index(parent) + 1:]
                check(all(a.startswith(parent.rstrip("\\") + "\\") for a in after), f"{dir_} breaks depth-first order")
            seen.append(dir_)
    else:
        check_eq(blocks, want, "blocks of the list")
    paths = [f[3] for b in blocks for f in b[2]]
    check_eq(len(paths), len(set(paths)), "every file listed once")
    return blocks


def test_no_argument_scan_writes_the_list_topdirs_stats_and_big_files(m):
    d = machine(m)
    sample_tree(d, symlinks=m.platform == "native")
    r = scan(m)
    check_eq(r.stdout, "", "stdout")
    check_list_matches_tree(m, d)
    names = set(os.listdir(lists_dir(m)))
    check(not any(n.endswith((".future", ".future_aside", ".tmp")) for n in names), f"leftovers: {names}")
    check("qzfilelist_hour_lock.lck" not in names, "the lock was not released")

    # topdirs.xml: root "0", top-level "1", second-level "2", nothing skipped, next_to_index 0.
    with open(os.path.join(lists_dir(m), "topdirs.xml"), encoding="utf-8") as f:
        topdirs = f.read()
    paths = re.findall(r'<dir num="(\d+)" vguid="' + GUID_D + r'" secs_to_scan="\d+" path="([^"]*)" />', topdirs)
    got = [p for _, p in paths]
    check_eq([int(n) for n, _ in paths], list(range(len(paths))), "dir numbers")
    for want in ("0D:\\", "1D:\\Users", "2D:\\Users\\bob", "2D:\\Users\\carol", "1D:\\data", "2D:\\data\\only"):
        check(want in got, f"{want} is not a top-level entry: {got}")
    check(not any("Windows" in p or "Program Files" in p or "Recycle" in p for p in got), f"skipped dirs: {got}")
    check(re.search(r'<stats numtopdirs="%d" num_times_mount_points_verified="\d+" millis_to_produce="\d+" '
                    r'next_to_index="0" gmt_millis="[0-9a-f]{16}" gmt_datetime="\d{14}" />' % len(got), topdirs),
          "stats line of topdirs.xml")

    # Statistics: .bak excluded by the settings, .qzvol by the mandatory rules; txt counts as docs and pictures.
    with open(os.path.join(lists_dir(m), "filestats.xml"), encoding="utf-8") as f:
        stats = f.read()
    check(stats.startswith('<?xml version="1.0" encoding="UTF-8"?>\n<filestats>\n'
                           '<progress good_for_installer="true" totally_final="true" />\n<info datetime="'),
          f"filestats.xml begins {stats[:200]!r}")
    attrs = dict(re.findall(r'(\w+)="(-?\d+)"', stats.split("<info ")[1]))
    selected_txt = 3 + (1 if m.platform == "native" else 0)  # root, notes, here (+ link.txt)
    check_eq(int(attrs["docsnum"]), selected_txt + 1, "docsnum (txt and doc)")
    check_eq(int(attrs["pictnum"]), selected_txt + 1, "pictnum (txt and jpg)")
    check_eq(int(attrs["musicnum"]), 1, "musicnum")
    check_eq(int(attrs["musictotbytes"]), 3000, "musictotbytes")
    check_eq(int(attrs["othernum"]), 2, "othernum (the two .iso files; noext counts nowhere)")
    check_eq(int(attrs["everythingnum"]), selected_txt + 1 + 1 + 1 + 2 + 1, "everythingnum")

    # bigfilelist.dat: 500 MiB exactly is listed, one byte less is not.
    with open(os.path.join(lists_dir(m), "bigfilelist.dat"), encoding="utf-8") as f:
        check_eq(f.read(), f"t\t{BIG}\tD:\\data\\big.iso\n", "bigfilelist.dat")

    msgs = m.log_messages()
    pid = r"\d+"
    for pattern in (rf"qzfilelist version=9\.1\.0\.833 processId={pid} got three hour lock, starting scan\.\.\.\.$",
                    rf"qzfilelist processId={pid} URGENTLY topdirs\.xml\.future did not exist, starting fresh scan$",
                    rf"qzfilelist processId={pid}, entering main disk analysis, startAtDir=0, length={len(got)}, "
                    r"URGENTLY_RUNNING_FAST$",
                    rf"PeriodicLog, processId={pid}, i=0, firstCharFlag=0, numMBytesStackUsedUp=\d+, "
                    r"about_to_scanDir=D:\\, futureFilename=.*\\qzfilelists\\" + LIST_NAME + r"\.future, "
                    r"currentVolumePath=D:\\, previousVolumePath=will_not_match$",
                    r"Swapped in AtomicMove per-Vol filelist: .*" + LIST_NAME + r", numBytes=\d+ \(0 MB\)$",
                    rf"qzfilelist processId={pid} exiting out of main, numSeconds=\d+$"):
        check(any(re.match(pattern, msg) for msg in msgs), f"no log line matches {pattern!r}")


def test_the_three_ways_to_start_a_scan(m):
    d = machine(m)
    put(os.path.join(d, "a", "b", "c.txt"), 3)
    # Without "topdirs.xml" (no run finished yet) even a plain start runs urgently.
    cases = [([], " URGENTLY topdirs.xml.future did not exist"),
             (["-first_install_time_urgent"], " URGENTLY and AT_FIRST_INSTALL_TIME topdirs.xml.future did not exist"),
             ([], " topdirs.xml.future did not exist")]
    for args, fresh in cases:
        before = len(m.log_messages())
        r = scan(m, *args)
        check_eq((r.stdout, r.stderr), ("", ""), f"output of {args}")
        new = m.log_messages()[before:]
        check(any(re.match(r"qzfilelist processId=\d+" + re.escape(fresh) + ", starting fresh scan$", x) for x in new),
              f"fresh-scan line of {args}")
        check_list_matches_tree(m, d)
    # Only the first-install run records how long its walk took.
    with open(os.path.join(lists_dir(m), "firstfilescantime.xml"), encoding="utf-8") as f:
        check(re.fullmatch(r'<\?xml version="1.0" encoding="UTF-8"\?>\n<firsttimestats>\n'
                           r'<stat install_fscan_numsecs="\d+" />\n</firsttimestats>\n', f.read()) is not None,
              "firstfilescantime.xml")


def test_second_normal_run_replaces_lists_and_ignores_a_stopped_runs_leftovers(m):
    d = machine(m)
    sample_tree(d, symlinks=False)
    scan(m, "-urgent_refresh_all")
    first_header, _ = parse_list(read_list(m))
    put(os.path.join(d, "Users", "bob", "new.txt"), 4)
    os.remove(os.path.join(d, "data", "big.iso"))
    # What a stopped run leaves: a checkpoint, half a per-volume list, half a large-file list.
    ld = lists_dir(m)
    write(os.path.join(ld, "topdirs.xml.future"), "<?xml half")
    write(os.path.join(ld, LIST_NAME + ".future"),
          "# GmtMillisThisListWasStarted: 0000000000000001, GmtDateTime: 19700101000000\n"
          "#\n# Dir: D:\\Users\n# Files: 0\n#\n# Dir: D:\\stale\n# Files: 1\nf\t0000000000000001\t1\tD:\\stale\\x\n")
    write(os.path.join(ld, "bigfilelist.dat.future"), f"t\t{BIG}\tD:\\stale\\huge\n")
    r = scan(m)
    blocks = check_list_matches_tree(m, d)
    dirs = [b[0] for b in blocks]
    check_eq(len(dirs), len(set(dirs)), "every folder once")
    header, _ = parse_list(read_list(m))
    check(header > first_header or header == first_header, "the new list carries its own start time")
    with open(os.path.join(ld, "bigfilelist.dat"), encoding="utf-8") as f:
        check_eq(f.read(), "", "bigfilelist.dat after the big file went")
    check(not any(n.endswith((".future", ".future_aside")) for n in os.listdir(ld)), "future files left")
    msgs = m.log_messages()
    check(any(re.match(r"qzfilelist processId=\d+ topdirs\.xml\.future did not exist, starting fresh scan$", x)
              for x in msgs), "a normal run's fresh-scan line")
    check(not any("URGENTLY_RUNNING_FAST" in x for x in msgs[-40:]), "the second run was not urgent")


def test_stop_file_lock_and_refusals(m):
    d = machine(m)
    sample_tree(d, symlinks=False)
    ld = lists_dir(m)
    os.makedirs(ld, exist_ok=True)
    # A stop request: logged, the stop file and the lock file deleted, exit 0, no list.
    write(os.path.join(ld, "qzfilelist_stop_run.txt"), "stop")
    write(os.path.join(ld, "qzfilelist_hour_lock.lck"), "")
    scan(m)
    check(not os.path.exists(os.path.join(ld, "qzfilelist_stop_run.txt")), "stop file left")
    check(not os.path.exists(os.path.join(ld, "qzfilelist_hour_lock.lck")), "lock file left")
    check(not os.path.exists(os.path.join(ld, LIST_NAME)), "a list was written")
    check(any(re.match(r"qzfilelist processId=\d+ - STOP RUNNING file is in place, deleting file and exiting!$", x)
              for x in m.log_messages()), "stop line")

    # A live lock: the run exits 0 quietly.
    write(os.path.join(ld, "qzfilelist_hour_lock.lck"), "")
    scan(m, "-urgent_refresh_all")
    check(any(re.match(r"qzfilelist processId=\d+ could not grab three hour lock, so some OTHER qzfilelist is "
                       r"already running, exiting quietly$", x) for x in m.log_messages()), "lock line")
    check(not os.path.exists(os.path.join(ld, LIST_NAME)), "a list was written under another's lock")
    os.remove(os.path.join(ld, "qzfilelist_hour_lock.lck"))

    # The self-destruct flag: exit 1.
    write(os.path.join(m.datadir(), "qzupdates", "qzflag_selfdestructflag.txt"), "please nuke_and_pave now")
    r = m.run(env=VT)
    check_eq(r.rc, 1, "exit code with the self-destruct flag")
    check_eq(m.log_messages()[-1], "QZFILELIST - Self Destruct Flag Set so not running", "last log line")
    os.remove(os.path.join(m.datadir(), "qzupdates", "qzflag_selfdestructflag.txt"))

    # No settings file: exit 0 without a list.
    os.remove(os.path.join(m.datadir(), "qzinfo.xml"))
    scan(m)
    check(any(x.startswith("ERROR: qzinfo.xml did not exist, exiting! -> ") for x in m.log_messages()),
          "missing settings line")
    check(not os.path.exists(os.path.join(ld, LIST_NAME)), "a list was written without settings")


def test_depth_limit_walks_1000_levels_and_skips_level_1001(m):
    d = machine(m)
    parts = ["d"] * 1001
    deepest = d
    for _ in parts:  # os.makedirs recurses once per level
        deepest = os.path.join(deepest, "d")
        os.mkdir(deepest)
    put(os.path.join(d, *parts[:1000], "at1000.txt"), 1)
    put(os.path.join(deepest, "at1001.txt"), 1)
    scan(m, "-urgent_refresh_all")
    text = read_list(m)
    _, blocks = parse_list(text)
    listed = [f[3] for b in blocks for f in b[2]]
    check(win(parts[:1000] + ["at1000.txt"]) in listed, "the file at depth 1000 is not listed")
    check(not any(p.endswith("at1001.txt") for p in listed), "the file at depth 1001 is listed")
    check_eq(sum(1 for b in blocks if b[0].startswith("D:\\d")), 1000, "blocks of the chain")
    want = "ERROR: RecursivelyAddFilenamesToList recursion limit hit for: " + win(parts)
    check_eq([x for x in m.log_messages() if "recursion limit" in x], [want], "recursion limit line")


def test_anomalous_names_are_logged_and_left_out(m):
    d = machine(m)
    put(os.path.join(d, "data", "plain.txt"), 1)
    os.makedirs(os.path.join(d, "data", "sub", "Backups.backupdb", "inside"))
    put(os.path.join(d, "data", "sub", "Backups.backupdb", "tm.txt"), 1)
    os.makedirs(os.path.join(d, "data", "sub", "My.swstor"))
    put(os.path.join(d, "data", "sub", "My.swstor", "kept.txt"), 1)
    os.makedirs(os.path.join(d, "data", "sub", "WD SmartWare.swstor"))
    put(os.path.join(d, "data", "sub", "WD SmartWare.swstor", "wd.txt"), 1)
    crlf = m.platform == "native"
    if crlf:
        put(os.path.join(d, "data", "sub", "bad\r\nname.txt"), 1)
    scan(m, "-urgent_refresh_all")
    _, blocks = parse_list(read_list(m))
    listed = [f[3] for b in blocks for f in b[2]]
    check("D:\\data\\sub\\My.swstor\\kept.txt" in listed, "My.swstor is walked")
    check(not any("tm.txt" in p or "wd.txt" in p or "name.txt" in p for p in listed), f"listed: {listed}")
    msgs = m.log_messages()
    for want in ("WARNING: skipping dirname with TimeMachine in it: D:\\data\\sub\\Backups.backupdb",
                 "WARNING: skipping dirname with WesternDigitalBackup in it: D:\\data\\sub\\WD SmartWare.swstor"):
        check_eq(msgs.count(want), 1, want)
    if crlf:
        want = "WARNING: skipping filename with embedded <CR> or <LF>: D:\\data\\sub\\bad__\\r____\\n__name.txt"
        check_eq(msgs.count(want), 1, "CR/LF line")
        sub = [b for b in blocks if b[0] == "D:\\data\\sub"][0]
        check_eq(sub[1], 1, "the dropped file still counts in # Files:")
        check_eq(sub[2], [], "no line for the dropped file")


def test_progress_lines_thin_out_with_the_index(m):
    d = machine(m)
    for k in range(650):
        os.makedirs(os.path.join(d, "t", f"s{k:03d}"))
    scan(m, "-urgent_refresh_all")
    before = len(m.log_messages())
    scan(m)  # a normal run: it pauses (in virtual time) after every 101 directories
    new = m.log_messages()[before:]
    about = [int(mt.group(1)) for x in new for mt in [re.match(r"PeriodicLog, processId=\d+, i=(\d+), firstCharFlag=", x)]
             if mt]
    want = list(range(10)) + list(range(10, 100, 10)) + list(range(100, 500, 50)) + [500, 600]
    check_eq(about, want, "indexes with a progress line")
    after = [int(mt.group(1)) for x in new for mt in [re.match(r"PeriodicLog, processId=\d+, i=(\d+), numMBytes", x)] if mt]
    check_eq(after, want, "indexes with a second progress line")
    check(not any("URGENTLY" in x for x in new), "the second run was urgent")


def test_elevated_drive_list_is_swapped_in_before_the_other_volumes(m):
    d = machine(m)
    e = m.map_drive("E")
    guid_e = "v0020123456789ab0123456789ab"
    write(os.path.join(e, ".qzvol", "qzvol_id.xml"),
          '<?xml version="1.0" encoding="UTF-8" ?>\n<contents>\n<readme txt="x" />\n'
          f'<qzvolume vguid="{guid_e}" associated_hguid="{HGUID}" />\n</contents>\n')
    with open(os.path.join(m.datadir(), "qzinfo.xml"), encoding="utf-8") as f:
        text = f.read()
    m.write_qzinfo(text.replace("</contents>", f'<qzvolume qzVolumeGuid="{guid_e}" mountPointPath="E:\\" />\n'
                                                "</contents>"))
    put(os.path.join(d, "a", "b", "x.txt"))
    put(os.path.join(e, "c", "d", "y.txt"))
    # D: has not been listed for 20 days: alert level 2. Without the transmitter's
    # per-volume files the run cannot recompute the levels and keeps this file.
    write(os.path.join(m.datadir(), "qzreports", "qzdefcon.xml"),
          '<?xml version="1.0" encoding="UTF-8" ?>\n<contents>\n'
          '<volume_defcon_summary most_critial_volume_defcon="2" />\n'
          f'<qzvolume qzVolumeGuid="{GUID_D}" mountPointPathHex="443a5c" vol_defcon_level="2" '
          'vol_last_seen_in_days="0" vol_last_filelisted_in_days="20" vol_last_file_pushed_in_days="1" />\n'
          f'<qzvolume qzVolumeGuid="{guid_e}" mountPointPathHex="453a5c" vol_defcon_level="5" '
          'vol_last_seen_in_days="0" vol_last_filelisted_in_days="1" vol_last_file_pushed_in_days="1" />\n'
          '</contents>\n')
    scan(m)
    msgs = m.log_messages()

    def index(pattern):
        hits = [i for i, x in enumerate(msgs) if re.match(pattern, x)]
        check(hits, f"no log line matches {pattern!r}")
        return hits[0]

    # The alert levels are one message: a header line, then a line per volume.
    index(r"All_Volume_Defcon_Level=2, listing 2 volumes below:\n {19}defcon_volume_index=0, qzVol_defconLevel=2, "
          r"qzVol_lastFileListedInDays=20, qzVol_lastSeenInDays=0, qzVol_lastFilePushedInDays=1, "
          r"mountPointPath=D:\\\n {19}defcon_volume_index=1, .*qzVol_lastFileListedInDays=1 , ")
    index(r"Defcon_very_interesting_drive_to_qzfilelist_attached processId=\d+, with defcon=2, mountPoint=D:\\, "
          r"qzVol_lastFileListedInDays=20, qzVol_lastSeenInDays=0, qzVol_lastFilePushedInDays=1, "
          r"and we are going to URGENTLY_RUN_FAST this run!$")
    early = index(r"OPTIMIZATION_for_DEFCON processId=\d+ - qzfilelist swapping in \.future filelist of "
                  rf"qzVol_lastFileListedInDays=20, fromMount = D:\\a\\b, with vGuid={GUID_D}$")
    swapped = index(r"DEFCON_Swapped in AtomicMove per-Vol filelist: .*" + LIST_NAME)
    first_e = index(r"PeriodicLog, processId=\d+, i=\d+, firstCharFlag=0, .*about_to_scanDir=E:\\,")
    check(early < swapped < first_e, "D:'s list is not swapped in before E: is walked")
    check_list_matches_tree(m, d)
    check(os.path.exists(os.path.join(lists_dir(m), f"{guid_e}_c____filelist.dat")), "E:'s list")
