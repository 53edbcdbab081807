"""The scan run on real trees: a start without arguments (and the urgent
switches) walks the selected volume, and its list, top-level list, statistics
and large-file list are compared with the tree on disk; leftovers of a stopped
run, the stop file, the lock, the depth limit, the progress lines and the
alert levels. Every run uses virtual time, so the 3-second pauses cost nothing."""

import os
import re
import sys

from filelists import VIRTUAL, list_dir, list_name, list_path, put, read_list, scan, scan_machine, tree_blocks, vguid
from harness import check, check_eq, write

GUID_D = vguid("D")
LIST_NAME = list_name("D")
BIG = 524288000
# The depth test makes a chain of 1001 folders; removing it recurses once per level.
sys.setrecursionlimit(max(sys.getrecursionlimit(), 6000))


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


def text(m, name):
    with open(os.path.join(list_dir(m), name), encoding="utf-8") as f:
        return f.read()


def files_of(blocks):
    return [f[3] for b in blocks for f in b[2]]


def check_list_matches_tree(m, d):
    """The list holds the tree's blocks exactly, in the walk's order natively;
    Wine enumerates in an order of its own, so there the blocks are compared
    by name and the order only needs to be depth first."""
    _, blocks = read_list(m)
    want = tree_blocks(d, "D")
    if m.platform == "native":
        check_eq(blocks, want, "blocks of the list")
        return blocks
    by_name = lambda bs: sorted((b[0], b[1], sorted(b[2], key=lambda f: f[3])) for b in bs)  # noqa: E731
    check_eq(by_name(blocks), by_name(want), "blocks of the list")
    dirs = [b[0] for b in blocks]
    for i, dir_ in enumerate(dirs[1:], 1):
        parent = dir_.rsplit("\\", 1)[0]
        parent = parent + "\\" if parent == "D:" else parent
        check(parent in dirs[:i] and all(a.startswith(parent.rstrip("\\") + "\\")
                                         for a in dirs[dirs.index(parent) + 1:i]), f"{dir_} breaks depth-first order")
    return blocks


def test_no_argument_scan_writes_the_list_topdirs_stats_and_big_files(m):
    d, = scan_machine(m)
    sample_tree(d, symlinks=m.platform == "native")
    r = scan(m)
    check_eq(r.stdout, "", "stdout")
    check_list_matches_tree(m, d)
    names = set(os.listdir(list_dir(m)))
    check(not any(n.endswith((".future", ".future_aside", ".tmp")) for n in names), f"leftovers: {names}")
    check("qzfilelist_hour_lock.lck" not in names, "the lock was not released")

    # topdirs.xml: root "0", top-level "1", second-level "2", nothing skipped, next_to_index 0.
    topdirs = text(m, "topdirs.xml")
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
    stats = text(m, "filestats.xml")
    check(stats.startswith('<?xml version="1.0" encoding="UTF-8"?>\n<filestats>\n'
                           '<progress good_for_installer="true" totally_final="true" />\n<info datetime="'),
          f"filestats.xml begins {stats[:200]!r}")
    attrs = dict(re.findall(r'(\w+)="(-?\d+)"', stats.split("<info ")[1]))
    selected_txt = 3 + (1 if m.platform == "native" else 0)  # root, notes, here (+ link.txt)
    # docs: txt and doc; pictures: txt and jpg; other: the two .iso files; noext counts nowhere.
    want = {"docsnum": selected_txt + 1, "pictnum": selected_txt + 1, "musicnum": 1, "musictotbytes": 3000,
            "othernum": 2, "everythingnum": selected_txt + 6}
    check_eq({k: int(attrs[k]) for k in want}, want, "statistics")

    # bigfilelist.dat: 500 MiB exactly is listed, one byte less is not.
    check_eq(text(m, "bigfilelist.dat"), f"t\t{BIG}\tD:\\data\\big.iso\n", "bigfilelist.dat")

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
        check(m.log_index(pattern) is not None, f"no log line matches {pattern!r}")


def test_every_way_to_start_builds_the_lists_afresh(m):
    d, = scan_machine(m)
    sample_tree(d, symlinks=False)
    ld = list_dir(m)
    header = 0
    # Without "topdirs.xml" (no run finished yet) even a plain start runs urgently.
    for args, fresh in [([], " URGENTLY"), (["-first_install_time_urgent"], " URGENTLY and AT_FIRST_INSTALL_TIME"),
                        (["-urgent_refresh_all"], " URGENTLY"), ([], "")]:
        if not fresh:
            # A normal run after a stopped one: a new file, the big file gone, and what the
            # stopped run left: a checkpoint, half a per-volume list, half a large-file list.
            put(os.path.join(d, "Users", "bob", "new.txt"), 4)
            os.remove(os.path.join(d, "data", "big.iso"))
            write(os.path.join(ld, "topdirs.xml.future"), "<?xml half")
            write(os.path.join(ld, LIST_NAME + ".future"),
                  "# GmtMillisThisListWasStarted: 0000000000000001, GmtDateTime: 19700101000000\n#\n# Dir: D:\\Users\n"
                  "# Files: 0\n#\n# Dir: D:\\stale\n# Files: 1\nf\t0000000000000001\t1\tD:\\stale\\x\n")
            write(os.path.join(ld, "bigfilelist.dat.future"), f"t\t{BIG}\tD:\\stale\\huge\n")
        before = len(m.log_messages())
        r = scan(m, *args)
        check_eq((r.stdout, r.stderr), ("", ""), f"output of {args}")
        new = m.log_messages()[before:]
        check(any(re.match(rf"qzfilelist processId=\d+{fresh} topdirs\.xml\.future did not exist, starting fresh scan$",
                           x) for x in new), f"fresh-scan line of {args}")
        check_eq(any("URGENTLY_RUNNING_FAST" in x for x in new), bool(fresh), f"urgency of {args}")
        check_list_matches_tree(m, d)
        previous, header = header, read_list(m)[0]
        check(header >= previous, "the list carries its own start time")
    check_eq(text(m, "bigfilelist.dat"), "", "bigfilelist.dat after the big file went")
    # Only the first-install run records how long its walk took.
    check(re.fullmatch(r'<\?xml version="1.0" encoding="UTF-8"\?>\n<firsttimestats>\n'
                       r'<stat install_fscan_numsecs="\d+" />\n</firsttimestats>\n', text(m, "firstfilescantime.xml")),
          "firstfilescantime.xml")


def test_stop_file_lock_and_refusals(m):
    d, = scan_machine(m)
    sample_tree(d, symlinks=False)
    ld = list_dir(m)
    os.makedirs(ld, exist_ok=True)
    # A stop request: logged, the stop file and the lock file deleted, exit 0, no list.
    write(os.path.join(ld, "qzfilelist_stop_run.txt"), "stop")
    write(os.path.join(ld, "qzfilelist_hour_lock.lck"), "")
    scan(m)
    check(not os.path.exists(os.path.join(ld, "qzfilelist_stop_run.txt")), "stop file left")
    check(not os.path.exists(os.path.join(ld, "qzfilelist_hour_lock.lck")), "lock file left")
    check(not os.path.exists(os.path.join(ld, LIST_NAME)), "a list was written")
    check(m.log_index(r"qzfilelist processId=\d+ - STOP RUNNING file is in place, deleting file and exiting!$")
          is not None, "stop line")

    # A live lock: the run exits 0 quietly.
    write(os.path.join(ld, "qzfilelist_hour_lock.lck"), "")
    scan(m, "-urgent_refresh_all")
    check(m.log_index(r"qzfilelist processId=\d+ could not grab three hour lock, so some OTHER qzfilelist is "
                      r"already running, exiting quietly$") is not None, "lock line")
    check(not os.path.exists(os.path.join(ld, LIST_NAME)), "a list was written under another's lock")
    os.remove(os.path.join(ld, "qzfilelist_hour_lock.lck"))

    # The self-destruct flag: exit 1.
    write(os.path.join(m.datadir(), "qzupdates", "qzflag_selfdestructflag.txt"), "please nuke_and_pave now")
    r = m.run(env=VIRTUAL)
    check_eq(r.rc, 1, "exit code with the self-destruct flag")
    check_eq(m.log_messages()[-1], "QZFILELIST - Self Destruct Flag Set so not running", "last log line")
    os.remove(os.path.join(m.datadir(), "qzupdates", "qzflag_selfdestructflag.txt"))

    # No settings file: exit 0 without a list.
    os.remove(os.path.join(m.datadir(), "qzinfo.xml"))
    scan(m)
    check(m.logged("ERROR: qzinfo.xml did not exist, exiting! -> "), "missing settings line")
    check(not os.path.exists(os.path.join(ld, LIST_NAME)), "a list was written without settings")


def test_end_of_life_file_stops_the_run_before_the_walk(m):
    scan_machine(m)
    path = os.path.join(m.datadir(), "qzupdates", "clientversion.xml")
    stop = (r"\S+\.cpp:\d+ \[int __cdecl main\(int,char \*\[\]\)\] ERROR:\tQZFILELIST - client version has "
            r"reached End-Of-Life, exiting$")
    unsure = "WARNING: QZFILELIST - could not tell whether the client version has reached End-Of-Life, so running: "
    # This build is 9.1.0.833: a file naming it or a later version ends its life. A revision
    # before 4 (0 and unreadable ones count as 1) never does; a negative one counts as large.
    for revision, version, ends in [("4", "9.1.0.833", True), ("4", "9.1.0.832", False), ("5", "9.1.0.833x", True),
                                    ("+4", " 9. 1.0.900", True), ("3", "99.0.0.0", False), ("0", "99.0.0.0", False),
                                    ("-1", "99.0.0.0", True), ("x7", "99.0.0.0", False)]:
        write(path, f'<contents>\n<revision num="{revision}" />\n<endoflife version="{version}" />\n</contents>\n')
        before = len(m.log_messages())
        scan(m)
        new = m.log_messages()[before:]
        check_eq(any(re.match(stop, x) for x in new), ends, f"end of life for revision {revision}, {version!r}")
        check_eq(any("entering main disk analysis" in x for x in new), not ends, f"walk for {revision}, {version!r}")
    # The function is named in the Windows compiler's spelling on every build.
    for line in [" [int __cdecl QzClientVersionManager::detect_revision(void)] WARNING:\t"
                 "revision from clientversion.xml is invalid: x7, using legacy compatibility mode (rev1)",
                 " [bool __cdecl QzClientVersionManager::IsEndOfLife(void)] WARNING:\tQzClientVersionManager::"
                 "IsEndOfLife - invalid clientversion revision (rev 1)"]:
        check(any(line in x for x in new), f"no log line holding {line!r}")
    # A current-format file without its answer, and no file: the run goes on and says why.
    for body, why in [('<revision num="4" />\n', "get_tag_xml - invalid format, <endoflife> tag not found"),
                      ('<revision num="4" />\n<endoflife when="now" />\n',
                       "get_attr_xml - invalid format, version attribute not found"),
                      (None, "ReadFile - ")]:
        if body is None:
            os.remove(path)
        else:
            write(path, f"<contents>\n{body}</contents>\n")
        scan(m)
        check(m.log_index(re.escape(unsure + "QzClientVersionManager::" + why)) is not None, f"no line for {why!r}")
    check(m.logged("\\qzupdates\\clientversion.xml not found"), "the missing file is named")


def test_depth_limit_walks_1000_levels_and_skips_level_1001(m):
    d, = scan_machine(m)
    parts = ["d"] * 1001
    deepest = d
    for _ in parts:  # os.makedirs recurses once per level
        deepest = os.path.join(deepest, "d")
        os.mkdir(deepest)
    put(os.path.join(d, *parts[:1000], "at1000.txt"), 1)
    put(os.path.join(deepest, "at1001.txt"), 1)
    scan(m, "-urgent_refresh_all")
    _, blocks = read_list(m)
    chain = "D:\\" + "\\".join(parts)
    listed = files_of(blocks)
    check(chain[:-2] + "\\at1000.txt" in listed, "the file at depth 1000 is not listed")
    check(not any(p.endswith("at1001.txt") for p in listed), "the file at depth 1001 is listed")
    check_eq(sum(1 for b in blocks if b[0].startswith("D:\\d")), 1000, "blocks of the chain")
    want = "ERROR: RecursivelyAddFilenamesToList recursion limit hit for: " + chain
    check_eq([x for x in m.log_messages() if "recursion limit" in x], [want], "recursion limit line")


def test_progress_lines_thin_out_with_the_index(m):
    d, = scan_machine(m)
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
    d, e = scan_machine(m, "DE")
    guid_e = vguid("E")
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

    def index(pattern):
        i = m.log_index(pattern)
        check(i is not None, f"no log line matches {pattern!r}")
        return i

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
    check(os.path.exists(list_path(m, "E")), "E:'s list")
