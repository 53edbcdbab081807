"""Attached volumes and their marker folders, run on real drive trees: which
drives are listed and how they are typed, what -volumeinfo and its relatives
print, the system volume's marker cloned into the data directory,
the drive ping, and the settings file being loaded at start-up."""

import os
import shutil
import time

from harness import check, check_eq, check_match, marker_xml, read, write

MINE = "0123456789abcdef01234567"
OTHER = "fedcba9876543210fedcba98"
GUID_D = "v0010123456789ab0123456789ab"
GUID_E = "v0020123456789ab0123456789ab"
GUID_C = "v0030123456789ab0123456789ab"
README_TXT = "WARNING: deleting this file will stop Korvatine from backing up this drive volume"


def volumeinfo_re(guid, hguid, vtype, system="false"):
    n = r"(\d+)"
    return (rf"^    VolumeGUID: {guid}\n    AssocHguid: {hguid}\n    VolumeType: {vtype}\n"
            rf"    numBytesTot_OnVolume: {n}\n    numBytesFreeOnVolume: {n}\n    numBytesUsedOnVolume: {n}\n"
            rf"    isWritable: true\n    isSystemVolume: {system}\n    isCaseSensitive: (true|false)\n"
            rf"    isCasePreserving: true\n    isCurrentlyConnected: true\n    qzVol_defconLevel: none\n"
            rf"    qzVol_lastSeenInDays: none\n    qzVol_lastFileListedInDays: none\n"
            rf"    qzVol_lastFilePushedInDays: none\n    UUID: (\S+)\n$")


def test_only_fixed_drives_are_listed_and_empty_ones_typed_em(m):
    m.make_datadir()
    write(os.path.join(m.map_drive("D"), "docs", "a.txt"), "a")
    m.map_empty_drive("E")
    f = m.map_drive("F", "removable")
    write(os.path.join(f, "photo.jpg"), "x")
    m.mark(f, GUID_E, MINE)
    m.mark(m.map_drive("G"), GUID_D, MINE)
    h = m.map_drive("H")
    write(os.path.join(h, "AUTORUN.INF"), "[autorun]\n")
    os.makedirs(os.path.join(h, "Recycled"))
    os.makedirs(os.path.join(m.map_drive("I"), "RECYCLED.OLD"))
    m.map_drive("J")  # nothing at all: on Windows the root search finds no entry
    r = m.run("-queryattachedvolumes")
    check_eq(r.rc, 0, "exit code")
    check_eq(r.stdout, "The following hard drives are attached:\n" + "".join(
        f"  Drive {i} has qzVolGuid={GUID_D if letter == 'G' else 'none'}, mountPoint={letter}:\\\n"
        for i, letter in enumerate("CDEGHIJ")) + "\nALL DONE\n", "-queryattachedvolumes")

    r = m.run("-listvolumesdetail")
    blocks = r.stdout.split("=======================================================\n")
    check_eq(blocks[0], "", "text before the first block")
    types = {}
    for block in blocks[1:]:
        mm = check_match(r"^Mount Point Path: (\S+)\nNum Bytes Free:   (\d+)\nNum Bytes Used:   (\d+)\n"
                         r"Num Bytes Total:  (\d+)d\nUUID: (\S+)\nWritable:         true\n"
                         r"Case Sensitive:   (true|false)\nCase Preserving:  true\nQz VolumeType:    (gm|em)\n"
                         r"Qz Volume GUID:   (\S+)\nQz Assoc HGUID:   (\S+)\n$", block, "-listvolumesdetail block")
        check_eq(int(mm.group(2)) + int(mm.group(3)), int(mm.group(4)), "free + used")
        types[mm.group(1)] = (mm.group(7), mm.group(8), mm.group(9))
    check_eq(types, {"C:\\": ("gm", "none", "none"), "D:\\": ("gm", "none", "none"),
                     "E:\\": ("em", "none", "none"), "G:\\": ("em", GUID_D, MINE), "H:\\": ("em", "none", "none"),
                     "I:\\": ("gm", "none", "none"), "J:\\": ("em", "none", "none")}, "volumes listed")


def test_volumeinfo_reads_the_marker_as_it_is(m):
    m.make_datadir()
    m.write_install_xml(hguid=MINE)
    d = m.map_drive("D")
    write(os.path.join(d, "a.txt"), "a")
    marker = m.mark(d, GUID_D, OTHER)  # another machine's volume: shown, never changed
    for arg in ("D:\\", "D:", "d:\\"):
        r = m.run("-volumeinfo", arg)
        head, rest = r.stdout.split("\n", 1)
        check_eq(head, f"VolumeInfo for: {arg}", "first line")
        mm = check_match(volumeinfo_re(GUID_D, OTHER, "gm"), rest, f"-volumeinfo {arg}")
        check_eq(int(mm.group(2)) + int(mm.group(3)), int(mm.group(1)), "free + used")
    check_eq(read(marker), marker_xml(GUID_D, OTHER), "marker after reading")

    r = m.run("-volumeinfo", "Q:\\")
    check_eq(r.stdout, "VolumeInfo for: Q:\\\nVolume does not exist or is not attached right now.\n", "unknown drive")
    check(m.logged("ERROR: QzFile::GetInfoAboutAttachedVolume,GetDiskFreeSpaceEx returned errNum="),
          "no log line for the missing drive")


def test_getvolumeinfofromfilename_says_whether_selected(m):
    m.make_datadir()
    m.write_install_xml(hguid=MINE)
    d = m.map_drive("D")
    write(os.path.join(d, "docs", "a.txt"), "a")
    m.mark(d, GUID_D, MINE)
    for selection, answer in [([(GUID_D, "D:\\")], "Yes"), ([(GUID_D, "E:\\")], "No"), ([(GUID_E, "D:\\")], "No")]:
        m.select_volumes(*selection)
        r = m.run("-getvolumeinfofromfilename", "D:\\docs\\a.txt")
        check_match(r"^VolumeInfo for file: D:\\docs\\a\.txt\nVolume Mount Point: D:\\\n"
                    rf"    VolumeGUID: {GUID_D}\n    AssocHguid: {MINE}\n    VolumeType: gm\n"
                    r"    numBytesTot_OnVolume: \d+\n    numBytesFreeOnVolume: \d+\n    numBytesUsedOnVolume: \d+\n"
                    r"    isWritable: true\n    isCaseSensitive: (true|false)\n    isCasePreserving: true\n"
                    rf"    UUID: \S+\n    VolSelectedForBackup: {answer}\n$", r.stdout, f"selection {selection}")
    for path in ("Q:\\x.txt", "\\\\server\\share\\x.txt", "x"):
        r = m.run("-getvolumeinfofromfilename", path)
        check_eq(r.stdout, f"VolumeInfo for file: {path}\n"
                           "The filename is on a volume we have never heard of and is not attached.\n", path)


def test_clone_writes_the_system_marker_into_the_data_dir_and_keeps_its_time(m):
    m.make_datadir()
    m.write_install_xml(hguid=MINE)
    m.select_volumes((GUID_D, "D:\\"), (GUID_C, "C:\\"))
    r = m.run("-clone_qzvol_to_datadir")
    check_eq(r.stdout, "qzfilelist - entering -clone_qzvol_to_datadir\nqzfilelist - leaving -clone_qzvol_to_datadir\n",
             "-clone_qzvol_to_datadir")
    folder = os.path.join(m.datadir(), "qzvol_system_volume")
    check_eq(read(os.path.join(folder, "qzvol_id.xml")), marker_xml(GUID_C, MINE, README_TXT + "."), "cloned marker")
    readme = read(os.path.join(folder, "README.txt"))
    check("Korvatine will stop backing up the System Drive Volume (C:\\) and also remove " in readme, repr(readme))
    for line in ("qzfilelist - entering -clone_qzvol_to_datadir", "qzfilelist - leaving -clone_qzvol_to_datadir",
                 "SUCCESS: QzFile::CloneQzVolFolderOfSystemVolumeIntoDataDir_IfNeeded"):
        check(m.logged(line), f"log line {line!r} missing")
    r = m.run("-volumeinfo", "C:\\")
    check_match(volumeinfo_re(GUID_C, MINE, "gm", system="true"), r.stdout.split("\n", 1)[1], "-volumeinfo C:\\")

    # A marker already on C:, written for another machine a day before this
    # install, is copied with its time; reading it then repairs the copy's owner.
    shutil.rmtree(folder)
    source = m.mark(m.c(), GUID_C, OTHER)
    old = time.time() - 86400
    os.utime(source, (old, old))
    m.run("-clone_qzvol_to_datadir")
    copy = os.path.join(folder, "qzvol_id.xml")
    check_eq(read(copy), read(source), "cloned marker")
    check(abs(os.stat(copy).st_mtime - old) < 0.01, "the clone's modification time is not its original's")
    r = m.run("-volumeinfo", "C:\\")
    check(f"    VolumeGUID: {GUID_C}\n    AssocHguid: {MINE}\n" in r.stdout, f"-volumeinfo: {r.stdout!r}")
    check(m.logged(f"which doesn't match assocHguid={OTHER}, so attempting repair."), "no repair line")
    check(f'associated_hguid="{MINE}"' in read(copy), "marker not repaired")


def test_drive_ping_wakes_selected_drives_and_reports_them(m):
    m.make_datadir()
    m.write_install_xml(hguid=MINE)
    d = m.map_drive("D")
    m.mark(d, GUID_D, MINE)
    e = m.map_drive("E")
    write(os.path.join(e, "a.txt"), "a")
    m.select_volumes((GUID_D, "D:\\"), (GUID_E, "E:\\"), (GUID_C, "Y:\\"))
    r = m.run("-pingdrives_thatare_selectedforbackup")
    check_eq(r.rc, 0, "exit code")
    check_eq(r.stdout, "", "the switch prints nothing; its reports are logged")
    messages = m.log_messages()
    before = [x for x in messages if "before doing anything" in x]
    after = [x for x in messages if "after pinging the drives" in x]
    check_eq(len(before) + len(after), 2, "report lines")
    check_match(r"^PingDrivesThatAreSelectedForBackup: \(processId=\d+\) -   before doing anything,  "
                r"todayDateTimeStr=\d{4}-\d\d-\d\d \d\d:\d\d:\d\d,     driveReport=\[D:.*___abstr=selected=3,", before[0],
                "before line")
    check(after[0].endswith(f",     driveReport=[D:\\ {GUID_D} attached qzvol_id_xml_ok][E:\\ {GUID_E} attached "
                            f"no_qzvol_id_xml_file_present][Y:\\ {GUID_C} not_attached not_attached]"
                            "___abstr=selected=3,attached=2,markerOk=1"), f"after line: {after[0]!r}")
    check(", signConnect=false," in after[0], f"after line: {after[0]!r}")
    folder = os.path.join(d, ".qzvol")
    check_eq(sorted(n for n in os.listdir(folder) if n.startswith(("wake_", "ping_"))), ["ping_qzfilelist.log"],
             "files left in the marker folder")
    check_match(r"^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d processId=\d+ random=\d+ woke\n$",
                read(os.path.join(folder, "ping_qzfilelist.log")), "ping log")
    check(not os.path.exists(os.path.join(e, ".qzvol")), "a drive without marker was written to")
