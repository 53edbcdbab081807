"""The volume registry, the alert levels and their switches: -assignvolumeguid,
-update_qzvolumes_xml, -update_qzdefcon_xml, -listvolumes, -listvolumestofile,
run on real drive trees; the files they leave are compared whole. A volume
that changes its drive letter is followed in the registry and the selection."""

import datetime
import os
import shutil
import time

from harness import check, check_eq, check_match, read, write

HGUID = "0123456789abcdef01234567"
OTHER_HGUID = "fedcba9876543210fedcba98"
GUID = r"v[0-9a-f]{3}[0-9a-z]{24}"
DAY = 86400000
HOUR = 3600000
XML_HEAD = '<?xml version="1.0" encoding="UTF-8" ?>\n<contents>\n'
DEFCON_NOT_ACTIONABLE = "Defcon is NOT actionable - either not elevated, or or drive is not attached.\n"


def now_ms():
    return int(time.time() * 1000)


def hexof(text):
    return text.encode("utf-8").hex()


def machine(m, fixed=("D", "E"), empty=(), datadir=None):
    """This machine's identity, a data directory, fixed drives with a file each and empty ones."""
    m.write_install_xml(datadir=datadir, hguid=HGUID)
    m.make_datadir()
    for letter in fixed:
        write(os.path.join(m.map_drive(letter), "file.txt"), "content")
    for letter in empty:
        m.map_empty_drive(letter)


def data(m, *parts):
    return os.path.join(m.datadir(), *parts)


def assign(m, mount):
    r = m.run("-assignvolumeguid", mount)
    check_eq(r.rc, 0, f"exit code of -assignvolumeguid {mount}")
    return check_match(rf"TRUE: Successfully assigned vGuid: ({GUID})\n$", r.stdout, "verdict").group(1)


def registry(m):
    """(last short id, {guid: entry}) of qzvolumes.xml, checking its form line by line."""
    text = read(data(m, "qzvolumes.xml"))
    check(text.startswith(XML_HEAD) and text.endswith("</contents>\n"), f"registry frame: {text!r}")
    lines = text[len(XML_HEAD):-len("</contents>\n")].split("\n")[:-1]
    meta = check_match(r'<qzvol_metadata lastAssignedQzVolShortId="(\d+)" gmtMillisThisFileWasWritten="(\d+)" '
                       r'gmtDateTimeFileWasWritten="(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)"( first_qzinfo_staging="true")? />$',
                       lines[0], "metadata")
    written = datetime.datetime.fromtimestamp(int(meta.group(2)) / 1000, datetime.timezone.utc)
    check_eq(meta.group(3), written.strftime("%Y-%m-%d %H:%M:%S"), "gmtDateTimeFileWasWritten")
    entries = {}
    for line in lines[1:]:
        e = check_match(rf'<qzvolume qzVolumeGuid="({GUID})" mountPointPathHex="([0-9a-f]*)" '
                        r'typeOfVolumeTwoCharCode="(..)" lastTimeVolumeWasSeenAttachedGmtMillis="(-?\d+)" '
                        r'numBytesFreeOnVolume="(-?\d+)" numBytesUsedOnVolume="(-?\d+)" '
                        r'numBytesTotalOnVolume="(-?\d+)" />$', line, "registry entry")
        entries[e.group(1)] = {"mount": bytes.fromhex(e.group(2)).decode("utf-8"), "type": e.group(3),
                               "seen": int(e.group(4)), "free": int(e.group(5)), "used": int(e.group(6)),
                               "total": int(e.group(7))}
    return int(meta.group(1)), entries


def registry_entry(guid, mount, seen, type_code="gm", plain=False):
    where = f'mountPointPath="{mount}"' if plain else f'mountPointPathHex="{hexof(mount)}"'
    return (f'<qzvolume qzVolumeGuid="{guid}" {where} typeOfVolumeTwoCharCode="{type_code}" '
            f'lastTimeVolumeWasSeenAttachedGmtMillis="{seen}" numBytesFreeOnVolume="1" '
            f'numBytesUsedOnVolume="2" numBytesTotalOnVolume="3" />\n')


def write_registry(m, last, entries, extra=""):
    write(data(m, "qzvolumes.xml"),
          XML_HEAD + f'<qzvol_metadata lastAssignedQzVolShortId="{last}"{extra} />\n' + "".join(entries) + "</contents>\n")


def pushed(m, guid, when):
    write(data(m, "qzlogs", "qzreports_lastfilestransmitted", f"qzstat_pervol_{guid}_latest_file.xml"),
          XML_HEAD + f'<qzstat gmt_millis="{when:016x}" />\n</contents>\n')


def file_list(m, guid, started):
    """The volume's list (drive-root tag), its header as the list writer writes it."""
    stamp = datetime.datetime.fromtimestamp(started / 1000, datetime.timezone.utc).strftime("%Y%m%d%H%M%S")
    write(data(m, "qzfilelists", f"{guid}_c____filelist.dat"),
          f"# GmtMillisThisListWasStarted: {started:016x}, GmtDateTime: {stamp}\n#\n# Dir: X:\\\n# Files: 0\n")


def defcon_record(guid, mount, level, seen, listed, sent):
    return (f'<qzvolume qzVolumeGuid="{guid}" mountPointPathHex="{hexof(mount)}" vol_defcon_level="{level}" '
            f'vol_last_seen_in_days="{seen}" vol_last_filelisted_in_days="{listed}" '
            f'vol_last_file_pushed_in_days="{sent}" />\n')


def defcon_text(most, records):
    return XML_HEAD + f'<volume_defcon_summary most_critial_volume_defcon="{most}" />\n' + "".join(records) + \
        "</contents>\n"


def update_defcon(m, env=None):
    r = m.run("-update_qzdefcon_xml", env=env)
    check_eq(r.rc, 0, "exit code of -update_qzdefcon_xml")
    path = m.datadir_win + "qzreports\\qzdefcon.xml"
    check(r.stdout.startswith(f"Done updating file: {path}\n"), f"-update_qzdefcon_xml said {r.stdout!r}")
    return r.stdout[len(f"Done updating file: {path}\n"):]


# ---- identities ----

def test_assign_volume_guid_verdicts_marker_and_registry(m):
    machine(m, fixed=("D",), empty=("E",))
    m.map_drive("G", "removable")
    d = assign(m, "D:\\")
    check(d.startswith("v001"), f"first GUID of a fresh machine: {d}")
    check(m.logged("qzvolumes.xml file did not exist, so freshly creating for mount: D:\\"), "no fresh-creation line")
    check_eq(m.run("-assignvolumeguid", "D:\\").stdout, f"TRUE: Already had existing vGuid: {d}\n")
    r = m.run("-assignvolumeguid_hex", hexof("E:\\"))
    e = check_match(rf"TRUE: Successfully assigned vGuid: (v002[0-9a-z]{{24}})\n$", r.stdout, "hex verdict").group(1)
    check_eq(e[4:16], d[4:16], "machine part of two GUIDs of one machine")
    check(e[16:] != d[16:], "two GUIDs share a time part")
    for args, verdict in [(["-assignvolumeguid"], "Must have additional arg for: -assignvolumeguid"),
                          (["-assignvolumeguid_hex"], "Must have additional arg for: -assignvolumeguid_hex"),
                          (["-assignvolumeguid", "F:\\"], "Could not find attached volume: F:\\"),
                          (["-assignvolumeguid", "G:\\"], "could not find volume in currently attached volList: G:\\"),
                          (["-assignvolumeguid_hex", "zz"], "Unknown situation for arg: zz")]:
        check_eq(m.run(*args).stdout, f"FALSE: {verdict}\n", f"verdict for {args}")

    marker = read(m.host_path("D:\\.qzvol\\qzvol_id.xml"))
    check(f'vguid="{d}" associated_hguid="{HGUID}"' in marker, f"marker on D: {marker!r}")
    last, entries = registry(m)
    check_eq(last, 2, "lastAssignedQzVolShortId")
    check_eq({g: (v["mount"], v["type"]) for g, v in entries.items()}, {d: ("D:\\", "gm"), e: ("E:\\", "em")}, "entries")
    for entry in entries.values():
        check(entry["total"] > 0 and entry["used"] == entry["total"] - entry["free"], f"sizes {entry}")
        check(abs(entry["seen"] - now_ms()) < 10 * 60000, f"last seen {entry}")
    check(not os.path.exists(data(m, "qzvolumes.xml.tmp")), "temporary registry left behind")


def test_without_a_host_identity_no_volume_is_marked(m):
    m.make_datadir()
    write(os.path.join(m.map_drive("D"), "file.txt"), "content")
    check_eq(m.run("-assignvolumeguid", "D:\\").stdout, "FALSE: assign problem, probably could not write to: D:\\\n")
    check(not os.path.exists(m.host_path("D:\\.qzvol")), "a marker was written without a host identity")
    check(not os.path.exists(data(m, "qzvolumes.xml")), "registry written without a host identity")


def test_short_ids_skip_999_and_wrap_after_ff9_and_a_staged_registry_stays_staged(m):
    machine(m, fixed=("D", "E", "F", "G", "H"))
    m.run("-update_qzvolumes_xml")
    check_eq(registry(m), (0, {}), "registry of a machine without marked volumes")
    staged = ' first_qzinfo_staging="true"'
    check(staged in read(data(m, "qzvolumes.xml")), "no staging mark")
    m.run("-update_qzvolumes_xml")
    check_eq(sum("regenerate qzvolumes.xml" in msg for msg in m.log_messages()), 1, "regenerations")
    check(not m.logged("could not find any <qzvolume ...> snippets"), "an empty registry refused by its reader")
    write_registry(m, 2456, [], staged)  # 0x998, staged by the installer with no volume yet
    check(assign(m, "D:\\").startswith("v99a"), "0x998 is followed by 0x99a")
    check(staged in read(data(m, "qzvolumes.xml")), "the installer's staging mark dropped")
    check_eq(registry(m)[0], 0x99a, "lastAssignedQzVolShortId after 0x99a")
    write_registry(m, 4088, [], staged)
    check(assign(m, "E:\\").startswith("vff9"), "0xff8 is followed by 0xff9")
    check(not m.logged("wrapping to 1"), "wrapped too early")
    write_registry(m, 4089, [], staged)
    check(assign(m, "F:\\").startswith("v001"), "0xff9 wraps to 1")
    check(m.logged("ERROR: QzUiUtil::CreateNewQzVolumeGuid high, wrapping to 1"), "no wrap line")
    check(assign(m, "G:\\").startswith("v002"), "counting goes on after the wrap")
    write_registry(m, -2, [])  # the next short id, -1, does not print as three digits
    check_eq(m.run("-assignvolumeguid", "H:\\").stdout, "FALSE: assign problem, probably could not write to: H:\\\n")
    check(m.logged("ERROR: QzUiUtil::CreateNewQzVolumeGuid qzShortVid wrong: ffffffffffffffff"), "no short id line")


# ---- the refresh ----

def test_refresh_keeps_history_reads_plain_mount_points_and_rebuilds_a_damaged_file(m):
    machine(m, fixed=("D", "E"))
    d = assign(m, "D:\\")
    x = "v0050123456789ab0123456789ab"
    write_registry(m, 5, [registry_entry(x, "X:\\", 12345, plain=True), registry_entry(d, "Q:\\", 0, "un")])
    check_eq(m.run("-update_qzvolumes_xml").stdout, f"Done updating file: {m.datadir_win}qzvolumes.xml\n")
    last, entries = registry(m)
    check_eq((last, entries[x]), (5, {"mount": "X:\\", "type": "gm", "seen": 12345, "free": 1, "used": 2,
                                      "total": 3}), "detached volume, kept as it was")
    check_eq((entries[d]["mount"], entries[d]["type"]), ("D:\\", "gm"), "attached volume")
    check(abs(entries[d]["seen"] - now_ms()) < 10 * 60000 and entries[d]["total"] > 3, f"refreshed {entries[d]}")
    # Cut short (no "</contents>"): rebuilt from the attached volumes, counting on from its last short id.
    write(data(m, "qzvolumes.xml"), read(data(m, "qzvolumes.xml"))[:-40])
    m.run("-update_qzvolumes_xml")
    check(m.logged("file exists but was corrupted: ") and
          m.logged("QzUiUtil::QzVolumesXml_ReadQzVolumesXmlFile failed, so will regenerate qzvolumes.xml from "
                    "scratch self-repair"), "no corruption and self-repair lines")
    last, entries = registry(m)
    check_eq((last, sorted(entries)), (5, [d]), "rebuilt registry")
    check(assign(m, "E:\\").startswith("v006"), "next short id after a rebuild")


def test_foreign_and_cloned_markers_leave_the_selection_and_the_registry_alone(m):
    machine(m, fixed=("D", "E", "F"))
    e = assign(m, "E:\\")
    m.select_volumes((e, "E:\\"))
    selection = read(data(m, "qzinfo.xml"))
    theirs = "v0090123456789ab0123456789ab"
    m.mark(m.host_path("D:\\"), theirs, OTHER_HGUID)
    shutil.copytree(m.host_path("E:\\.qzvol"), m.host_path("F:\\.qzvol"))  # E cloned onto F
    for _ in range(2):
        m.run("-update_qzvolumes_xml")
        check_eq(read(data(m, "qzinfo.xml")), selection, "selection in qzinfo.xml")
        _, entries = registry(m)
        check_eq((sorted(entries), entries[e]["mount"]), ([e], "E:\\"), "registered volumes")
    check(m.logged(f"- hGuid mis-match on drive D:\\, myHguid={HGUID}, driveAssociatedHguid={OTHER_HGUID}"),
          "no mismatch line")
    check(m.logged("ERROR: QzUiUtil::DoAnyCurrentlyAttachedHardDrivesHaveDuplicateVolGuids FOUND_DUPLICATE_VOL_ID: "
                    "Vol_A_E:\\__Vol_B_F:\\"), "duplicate not logged")
    check(not m.logged("self repairing sel for backup"), "selection repaired")
    check(f"| AVAIL D:\\ {theirs} gm other_hguid={OTHER_HGUID} | SEL E:\\ {e} gm DUPLICATE_VGUID | SEL F:\\ {e} gm "
          "DUPLICATE_VGUID\n" in m.run("-listvolumes").stdout, "summary of odd markers")
    check_eq(m.run("-assignvolumeguid", "D:\\").stdout, f"TRUE: Already had existing vGuid: {theirs}\n")
    check(m.run("-queryattachedvolumes").stdout.startswith(
        "WARNING: Two drives have duplicate qzvolumeids: E:\\ and F:\\\nThe following hard drives are attached:\n"),
        "no duplicate warning")
    # With E unplugged the clone stands in for it, as a volume that changed its letter does.
    shutil.rmtree(m.host_path("E:\\.qzvol"))
    m.run("-update_qzvolumes_xml")
    check(f'<qzvolume qzVolumeGuid="{e}" mountPointPath="F:\\" />' in read(data(m, "qzinfo.xml")), "no repair")
    check(m.logged(f"self repairing sel for backup mountPoint:E:\\ now F:\\, volumeId:{e}"), "no self-repair line")
    check(not os.path.exists(data(m, "qzinfo.xml.tmp")), "temporary settings file left behind")
    check_eq(registry(m)[1][e]["mount"], "F:\\", "registered mount point after the change")


# ---- alert levels ----

def test_alert_levels_from_ages_and_the_elevated_attached_volume(m):
    machine(m, fixed=("D", "E"))
    d, e = assign(m, "D:\\"), assign(m, "E:\\")
    m.run("-update_qzvolumes_xml")
    now = now_ms()
    x, y, z = ("v0%02d0123456789ab0123456789ab" % n for n in (31, 32, 33))
    text = read(data(m, "qzvolumes.xml")).replace("</contents>\n", "")
    write(data(m, "qzvolumes.xml"), text + registry_entry(x, "X:\\", now - 28 * DAY - HOUR) +
          registry_entry(y, "Y:\\", now - 29 * DAY - HOUR) + registry_entry(z, "Z:\\", 0) + "</contents>\n")
    file_list(m, d, now - 7 * DAY - HOUR)
    pushed(m, d, now - 7 * DAY - HOUR)   # 0/7/7: 5
    pushed(m, e, now - 8 * DAY - HOUR)   # 0/-1/8: 4 (never listed counts as under every bound)
    for g in (x, y, z):
        pushed(m, g, now)                # 28/-1/0: 2, 29/-1/0: 1, 9001/-1/0: 1
    check_eq(update_defcon(m), "SUCCESS reading updated file, criticalDefcon=1\n" + DEFCON_NOT_ACTIONABLE, "stdout")
    check_eq(read(data(m, "qzreports", "qzdefcon.xml")),
             defcon_text(1, [defcon_record(d, "D:\\", 5, 0, 7, 7), defcon_record(e, "E:\\", 4, 0, -1, 8),
                             defcon_record(x, "X:\\", 2, 28, -1, 0), defcon_record(y, "Y:\\", 1, 29, -1, 0),
                             defcon_record(z, "Z:\\", 1, 9001, -1, 0)]), "qzdefcon.xml")
    check(m.logged("more than 24_years since drive was seen, mountName=Z:\\"), "no cap line")
    check("    qzVol_defconLevel: 5\n" in m.run("-volumeinfo", "D:\\").stdout, "-volumeinfo of D:")
    check(not os.path.exists(data(m, "qzreports", "qzdefcon.xml.tmp")), "temporary file left behind")

    # Listed 9 days ago, E is elevated and attached; Y, listed longer ago, is not attached.
    file_list(m, e, now - 9 * DAY - HOUR)
    file_list(m, y, now - 40 * DAY)
    check_eq(update_defcon(m), "SUCCESS reading updated file, criticalDefcon=1\n"
             f"A Defcon elevated drive is attached, defcon=4, mountPoint=E:\\, volId={e}\n", "stdout")


# ---- listings ----

def test_listvolumes_labels_and_state_summary(m):
    machine(m, fixed=("D", "E"), empty=("F",))
    c, d, e = assign(m, "C:\\"), assign(m, "D:\\"), assign(m, "E:\\")
    check(os.path.exists(data(m, "qzvol_system_volume", "qzvol_id.xml")), "system volume marker not in the data dir")
    x = "v0200123456789ab0123456789ab"
    m.select_volumes((c, "C:\\"), (d, "D:\\"), (x, "X:\\"))
    r = m.run("-listvolumes")
    check_eq(r.stdout,
             f"\nSummaryLine: selected=3 attached=4 unplugged=1 | SEL C:\\ {c} attached system | SEL D:\\ {d} attached"
             f" | SEL X:\\ {x} UNPLUGGED | AVAIL E:\\ {e} gm | AVAIL F:\\ none em\n"
             "abstr: sel=C,D,X att=C,D,E,F unpl=X\n"
             "\nThe following hard drive volumes are selected for backup:\n"
             f" (SystemVolume) vguid={c}\n"
             f"                vguid={d}\n"
             f" (Unplugged)    vguid={x}\n"
             "\nThe following hard drive volumes are also available:\n"
             f"                vguid={e}\n"
             "  (Empty)       vguid=none\n"
             "ALL DONE\n", "-listvolumes")
    check_eq(r.rc, 0, "exit code")


def test_listvolumestofile_paths_and_contents(m):
    machine(m, fixed=("D",), empty=("E",), datadir="C:\\qz")
    d = assign(m, "D:\\")
    expected = ("qzunknown___________________,gm,qzunknown_______________,C:\\\n"
                f"{d},gm,{HGUID},D:\\\n"
                "qzunknown___________________,em,qzunknown_______________,E:\\\n")
    before = now_ms()
    r = m.run("-listvolumestofile")
    check_eq((r.rc, r.stdout), (0, "SUCCESS\n"), "default path")
    names = os.listdir(data(m, "qzflags"))
    check_eq(len(names), 1, f"files in qzflags: {names}")
    stamp = int(check_match(r"(\d+)_list_volumes\.txt$", names[0], "default name").group(1))
    check(before - 1000 <= stamp <= now_ms() + 1000, f"time in the name: {stamp}")
    check_eq(read(data(m, "qzflags", names[0])), expected, "contents")

    prefix = "C:\\qz\\qzflags/"  # 14 characters
    refusal = "ERROR: The output file argument was too short or did not begin with C:\\qz\\qzflags//\n"
    for path in [prefix + "a" * 21 + ".txt", "C:\\qz\\other//" + "a" * 30 + ".txt",
                 "C:\\qz\\qzflags\\" + "a" * 30 + ".txt"]:
        r = m.run("-listvolumestofile", path)
        check_eq((r.rc, r.stdout), (1, refusal), f"refusal of {path} ({len(path)} characters)")
    check(m.logged(refusal[:-1]), "refusal not logged")
    path = prefix + "sub/" + "a" * 18 + ".txt"  # 40 characters, in a folder still to be made
    write(data(m, "qzflags", "sub", "a" * 18 + ".txt"), "old")
    r = m.run("-listvolumestofile", path)
    check_eq((r.rc, r.stdout), (0, "SUCCESS\n"), f"{path} ({len(path)} characters)")
    check_eq(read(data(m, "qzflags", "sub", "a" * 18 + ".txt")), expected, "replaced file")
    check(not any(n.endswith(".qztmp") for n in os.listdir(data(m, "qzflags", "sub"))), "temporary file left behind")
