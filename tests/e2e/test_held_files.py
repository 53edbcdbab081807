"""Files another program holds for a moment (an antivirus, the indexer, the
client's own transmitter), and two of our own processes writing the registry
at once. A run that finds a file held waits a little and then leaves
everything as it was. Natively the file is held with flock(LOCK_EX), which
the program sees as sharing violation 32; under Wine by a second instance of
the program in -open_file_exclusive."""

import os
import shutil
import time

from harness import check, check_eq, read, write
from test_registry import (HGUID, OTHER_HGUID, XML_HEAD, assign, data, defcon_record, defcon_text, logged, machine,
                           now_ms, pushed, registry, settings, update_defcon, write_registry)

# Pauses return at once and move the program's clock instead.
FAST = {"QZ_TEST_VIRTUAL_TIME": "1"}
ASSIGN_REFUSED = "FALSE: assign problem, probably could not write to: {}\n"


def test_held_marker_keeps_the_volume_identity(m):
    machine(m, fixed=("D",))
    d = assign(m, "D:\\")
    marker = m.host_path("D:\\.qzvol\\qzvol_id.xml")
    before = (read(marker), registry(m))
    with m.hold("D:\\.qzvol\\qzvol_id.xml"):
        r = m.run("-assignvolumeguid", "D:\\", env=FAST)
        check_eq(r.stdout, ASSIGN_REFUSED.format("D:\\"), "verdict while the marker is held")
        m.run("-update_qzvolumes_xml", env=FAST)
    check_eq((read(marker), registry(m)), before, "marker and registry")
    check(logged(m, "qzvol_id.xml exists but could not be read, so not replacing it"), "no refusal line")
    check_eq(m.run("-assignvolumeguid", "D:\\").stdout, f"TRUE: Already had existing vGuid: {d}\n", "afterwards")


def test_held_registry_changes_nothing_and_hands_out_no_short_id(m):
    machine(m, fixed=("D", "E"))
    d = assign(m, "D:\\")
    x = "v0070123456789ab0123456789ab"  # a detached volume's history
    text = read(data(m, "qzvolumes.xml")).replace("lastAssignedQzVolShortId=\"1\"", "lastAssignedQzVolShortId=\"7\"")
    text = text.replace("</contents>\n", f'<qzvolume qzVolumeGuid="{x}" mountPointPath="X:\\" '
                                         'typeOfVolumeTwoCharCode="gm" lastTimeVolumeWasSeenAttachedGmtMillis="5" '
                                         'numBytesFreeOnVolume="1" numBytesUsedOnVolume="2" '
                                         'numBytesTotalOnVolume="3" />\n</contents>\n')
    write(data(m, "qzvolumes.xml"), text)
    with m.hold(m.datadir_win + "qzvolumes.xml"):
        check_eq(m.run("-assignvolumeguid", "E:\\", env=FAST).stdout, ASSIGN_REFUSED.format("E:\\"),
                 "verdict while the registry is held")
        m.run("-update_qzvolumes_xml", env=FAST)
    check_eq(read(data(m, "qzvolumes.xml")), text, "registry")
    check(not os.path.exists(m.host_path("E:\\.qzvol\\qzvol_id.xml")), "E: was marked without a registry entry")
    check(logged(m, "qzvolumes.xml is held by another program, so leaving it as it was"), "no refresh line")
    e = assign(m, "E:\\")
    check(e.startswith("v008"), f"short id after the held registry: {e}")
    last, entries = registry(m)
    check_eq((last, sorted(entries)), (8, sorted([d, e, x])), "registry afterwards")


def test_alert_update_keeps_the_previous_file_while_statistics_are_held(m):
    machine(m, fixed=("D",))
    d = assign(m, "D:\\")
    m.run("-update_qzvolumes_xml")
    pushed(m, d, now_ms())
    update_defcon(m)
    previous = read(data(m, "qzreports", "qzdefcon.xml"))
    check_eq(previous, defcon_text(5, [defcon_record(d, "D:\\", 5, 0, -1, 0)]), "alert levels")
    with m.hold(m.datadir_win + f"qzlogs\\qzreports_lastfilestransmitted\\qzstat_pervol_{d}_latest_file.xml"):
        m.run("-update_qzdefcon_xml", env=FAST)
    check_eq(read(data(m, "qzreports", "qzdefcon.xml")), previous, "alert levels after the held statistics")
    check(logged(m, "qzstat_pervol_latest_file.xml exists but could not be read, so bailing out of defcon "
                    "calculations"), "no bail-out line")


def test_registry_lock_is_waited_for_and_broken_only_when_stale(m):
    machine(m, fixed=("D", "E", "F", "G"))
    d = assign(m, "D:\\")
    before = read(data(m, "qzvolumes.xml"))
    lock = data(m, "qzvolumes.xml.lock")
    write(lock, "")
    check_eq(m.run("-assignvolumeguid", "E:\\", env=FAST).stdout, ASSIGN_REFUSED.format("E:\\"), "live lock")
    check_eq(read(data(m, "qzvolumes.xml")), before, "registry under a live lock")
    check(logged(m, "could not get the qzvolumes.xml lock, so leaving qzvolumes.xml as it was"), "no lock line")
    os.utime(lock, (time.time() - 3600, time.time() - 3600))  # its holder died an hour ago
    check(assign(m, "E:\\").startswith("v002"), "assignment after a stale lock")
    check(logged(m, "breaking a stale qzvolumes.xml lock"), "no break line")
    check(not os.path.exists(lock), "lock left behind")

    # Two assignments and a refresh at once: every volume gets its own short id and its entry.
    runs = [m.start("-assignvolumeguid", "F:\\"), m.start("-update_qzvolumes_xml"), m.start("-assignvolumeguid", "G:\\")]
    for p in runs:
        check_eq(m.wait(p).rc, 0, "exit code")
    last, entries = registry(m)
    short_ids = sorted(g[1:4] for g in entries)
    check_eq((last, short_ids), (4, ["001", "002", "003", "004"]), "short ids after concurrent writers")
    check_eq(sorted(e["mount"] for e in entries.values()), ["D:\\", "E:\\", "F:\\", "G:\\"], "registered mounts")
    check(d in entries, "the first volume lost")


def test_empty_registry_reads_back_and_a_staged_one_stays_staged(m):
    machine(m, fixed=("D",))
    m.run("-update_qzvolumes_xml")
    check_eq(registry(m), (0, {}), "registry of a machine without marked volumes")
    check('first_qzinfo_staging="true"' in read(data(m, "qzvolumes.xml")), "no staging mark")
    m.run("-update_qzvolumes_xml")
    check_eq(sum("regenerate qzvolumes.xml" in msg for msg in m.log_messages()), 1, "regenerations")
    check(not logged(m, "could not find any <qzvolume ...> snippets"), "an empty registry refused by its reader")
    write_registry(m, 0, [], ' first_qzinfo_staging="true"')
    d = assign(m, "D:\\")
    check('first_qzinfo_staging="true"' in read(data(m, "qzvolumes.xml")), "the installer's staging mark dropped")
    check_eq(sorted(registry(m)[1]), [d], "registered volumes")


def test_cloned_disk_leaves_the_selection_and_the_registry_alone(m):
    machine(m, fixed=("E", "F"))
    e = assign(m, "E:\\")
    settings(m, [(e, "E:\\")])
    shutil.copytree(m.host_path("E:\\.qzvol"), m.host_path("F:\\.qzvol"))  # E cloned onto F
    selection = read(data(m, "qzinfo.xml"))
    for _ in range(2):
        m.run("-update_qzvolumes_xml")
        check_eq(read(data(m, "qzinfo.xml")), selection, "selection in qzinfo.xml")
        check_eq(registry(m)[1][e]["mount"], "E:\\", "registered mount point of the cloned identity")
    check(logged(m, "ERROR: QzUiUtil::DoAnyCurrentlyAttachedHardDrivesHaveDuplicateVolGuids FOUND_DUPLICATE_VOL_ID: "
                    "Vol_A_E:\\__Vol_B_F:\\"), "duplicate not logged")
    check(not logged(m, "self repairing sel for backup"), "selection repaired")
    # With E unplugged the clone stands in for it.
    shutil.rmtree(m.host_path("E:\\.qzvol"))
    m.run("-update_qzvolumes_xml")
    check(f'<qzvolume qzVolumeGuid="{e}" mountPointPath="F:\\" />' in read(data(m, "qzinfo.xml")), "no repair")


def test_cloned_system_marker_keeps_its_time_so_a_stale_owner_is_repaired(m):
    machine(m, fixed=())
    c = "v0030123456789ab0123456789ab"
    source = m.c(".qzvol\\qzvol_id.xml")
    write(source, XML_HEAD + '<readme txt="x" />\n'
          f'<qzvolume vguid="{c}" associated_hguid="{OTHER_HGUID}" />\n</contents>\n')
    old = time.time() - 86400  # written a day before this install
    os.utime(source, (old, old))
    settings(m, [(c, "C:\\")])
    m.run("-clone_qzvol_to_datadir")
    copy = data(m, "qzvol_system_volume", "qzvol_id.xml")
    check_eq(read(copy), read(source), "cloned marker")
    check(abs(os.stat(copy).st_mtime - old) < 0.01, "the clone's modification time is not its original's")
    r = m.run("-volumeinfo", "C:\\")
    check(f"    VolumeGUID: {c}\n    AssocHguid: {HGUID}\n" in r.stdout, f"-volumeinfo: {r.stdout!r}")
    check(logged(m, f"which doesn't match assocHguid={OTHER_HGUID}, so attempting repair."), "no repair line")
    check(f'associated_hguid="{HGUID}"' in read(copy), "marker not repaired")
