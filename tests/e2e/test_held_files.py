"""Files another program holds for a moment (an antivirus, the indexer, the
client's own transmitter), and two of our own processes writing the registry
at once. A run that finds a file held waits a little and then leaves
everything as it was. Natively the file is held with flock(LOCK_EX), which
the program sees as sharing violation 32; under Wine by a second instance of
the program in -open_file_exclusive."""

import os
import time

from filelists import VIRTUAL
from harness import check, check_eq, read, write
from test_registry import (DEFCON_NOT_ACTIONABLE, assign, data, defcon_record, defcon_text, machine, now_ms,
                           pushed, registry, registry_entry, update_defcon)

ASSIGN_REFUSED = "FALSE: assign problem, probably could not write to: {}\n"


def test_held_marker_keeps_the_volume_identity(m):
    machine(m, fixed=("D",))
    d = assign(m, "D:\\")
    marker = m.host_path("D:\\.qzvol\\qzvol_id.xml")
    before = (read(marker), registry(m))
    with m.hold("D:\\.qzvol\\qzvol_id.xml"):
        r = m.run("-assignvolumeguid", "D:\\", env=VIRTUAL)
        check_eq(r.stdout, ASSIGN_REFUSED.format("D:\\"), "verdict while the marker is held")
        m.run("-update_qzvolumes_xml", env=VIRTUAL)
    check_eq((read(marker), registry(m)), before, "marker and registry")
    check(m.logged("qzvol_id.xml exists but could not be read, so not replacing it"), "no refusal line")
    check_eq(m.run("-assignvolumeguid", "D:\\").stdout, f"TRUE: Already had existing vGuid: {d}\n", "afterwards")


def test_held_registry_changes_nothing_and_hands_out_no_short_id(m):
    machine(m, fixed=("D", "E"))
    d = assign(m, "D:\\")
    x = "v0070123456789ab0123456789ab"  # a detached volume's history
    text = read(data(m, "qzvolumes.xml")).replace('lastAssignedQzVolShortId="1"', 'lastAssignedQzVolShortId="7"')
    text = text.replace("</contents>\n", registry_entry(x, "X:\\", 5, plain=True) + "</contents>\n")
    write(data(m, "qzvolumes.xml"), text)
    with m.hold(m.datadir_win + "qzvolumes.xml"):
        check_eq(m.run("-assignvolumeguid", "E:\\", env=VIRTUAL).stdout, ASSIGN_REFUSED.format("E:\\"),
                 "verdict while the registry is held")
        m.run("-update_qzvolumes_xml", env=VIRTUAL)
    check_eq(read(data(m, "qzvolumes.xml")), text, "registry")
    check(not os.path.exists(m.host_path("E:\\.qzvol\\qzvol_id.xml")), "E: was marked without a registry entry")
    check(m.logged("qzvolumes.xml is held by another program, so leaving it as it was"), "no refresh line")
    e = assign(m, "E:\\")
    check(e.startswith("v008"), f"short id after the held registry: {e}")
    last, entries = registry(m)
    check_eq((last, sorted(entries)), (8, sorted([d, e, x])), "registry afterwards")


def test_alert_update_keeps_the_previous_file_when_its_inputs_are_missing_malformed_or_held(m):
    machine(m, fixed=("D",))
    d = assign(m, "D:\\")
    stats = f"qzlogs\\qzreports_lastfilestransmitted\\qzstat_pervol_{d}_latest_file.xml"
    check_eq(update_defcon(m), f"ERROR reading updated file: {m.datadir_win}qzreports\\qzdefcon.xml\n" +
             DEFCON_NOT_ACTIONABLE, "without the transmitter's file")
    check(m.logged(f"qzstat_pervol_latest_file.xml not found here:{m.datadir_win}{stats}, so bailing out of defcon "
                    "calculations"), "no bail-out line")
    previous = defcon_text(3, [defcon_record(d, "D:\\", 3, 16, 16, 16)])
    write(data(m, "qzreports", "qzdefcon.xml"), previous)
    pushed(m, d, now_ms())
    write(data(m, "qzfilelists", f"{d}_c____filelist.dat"), "f\t0000000000000000\t1\tD:\\x\n")
    # The previous file still rates D, listed 16 days ago, as elevated.
    check_eq(update_defcon(m), "SUCCESS reading updated file, criticalDefcon=3\n"
             f"A Defcon elevated drive is attached, defcon=3, mountPoint=D:\\, volId={d}\n", "with an unreadable list")
    check(m.logged("read per-volume filelist but did not parse first line correctly, so bailing out"), "no line")
    check_eq(read(data(m, "qzreports", "qzdefcon.xml")), previous, "previous qzdefcon.xml")
    os.remove(data(m, "qzfilelists", f"{d}_c____filelist.dat"))
    with m.hold(m.datadir_win + stats):
        m.run("-update_qzdefcon_xml", env=VIRTUAL)
    check_eq(read(data(m, "qzreports", "qzdefcon.xml")), previous, "alert levels after the held statistics")
    check(m.logged("qzstat_pervol_latest_file.xml exists but could not be read, so bailing out of defcon "
                    "calculations"), "no bail-out line")
    update_defcon(m)
    check_eq(read(data(m, "qzreports", "qzdefcon.xml")), defcon_text(5, [defcon_record(d, "D:\\", 5, 0, -1, 0)]),
             "alert levels once the statistics are free")


def test_registry_lock_is_waited_for_and_broken_only_when_stale(m):
    machine(m, fixed=("D", "E", "F", "G"))
    d = assign(m, "D:\\")
    before = read(data(m, "qzvolumes.xml"))
    lock = data(m, "qzvolumes.xml.lock")
    write(lock, "")
    check_eq(m.run("-assignvolumeguid", "E:\\", env=VIRTUAL).stdout, ASSIGN_REFUSED.format("E:\\"), "live lock")
    check_eq(read(data(m, "qzvolumes.xml")), before, "registry under a live lock")
    check(m.logged("could not get the qzvolumes.xml lock, so leaving qzvolumes.xml as it was"), "no lock line")
    os.utime(lock, (time.time() - 3600, time.time() - 3600))  # its holder died an hour ago
    check(assign(m, "E:\\").startswith("v002"), "assignment after a stale lock")
    check(m.logged("breaking a stale qzvolumes.xml lock"), "no break line")
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
