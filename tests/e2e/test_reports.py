"""The reports under "qzreports": the service-account permission report
(switch -create_qzserv_perm_report), and what the scan run leaves there.
Formats: README.md, "Reports"."""

import getpass
import os

from harness import check, check_eq, check_match, read, write

QZINFO_TWO_VOLUMES = ('<?xml version="1.0" encoding="UTF-8"?>\n<qzinfo>\n'
                      '<qzvolume qzVolumeGuid="v001000000000000000000000001" mountPointPath="C:\\" />\n'
                      '<qzvolume qzVolumeGuid="v002000000000000000000000002" mountPointPath="D:\\" />\n'
                      '<qzvolume qzVolumeGuid="v003000000000000000000000003" mountPointPath="E:\\" />\n'
                      '</qzinfo>\n')


def report_rows(text):
    lines = text.split("\n")
    check_eq(lines[-1], "", "the report ends with a newline")
    return [line.split("\t") for line in lines[:-1]]


def test_permission_report_names_every_selected_volume_and_the_datadir(m):
    m.map_drive("D")  # E: stays unplugged
    m.write_qzinfo(QZINFO_TWO_VOLUMES)
    path_win = m.datadir_win + "qzreports\\qzserv_perm_report.txt"
    host = m.host_path(path_win)

    # No account file: the account is unknown and nothing counts as readable.
    r = m.run("-create_qzserv_perm_report")
    check_eq((r.rc, r.stdout), (0, f"Wrote service permission report: {path_win}\n"), "row 8")
    rows = report_rows(read(host))
    check_match(r"^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\t\d{13}$", "\t".join(rows[1][1:]), "time line")
    check_eq([rows[0], rows[1][0], rows[2]] + [row[:5] for row in rows[3:7]] + rows[7:],
             [["# qzfilelist service-account permission report"], "generated", ["account", "qzunknown", "missing"]] +
             [[kind, guid, target, "no", "service_account_unknown"] for kind, guid, target in
              [("volume", "v001000000000000000000000001", "C:\\"), ("volume", "v002000000000000000000000002", "D:\\"),
               ("volume", "v003000000000000000000000003", "E:\\"), ("datadir", "-", m.datadir_win[:-1])]] +
             [["result", "not_all_readable"]], "report without an account file")
    check(not os.path.exists(host + ".tmp"), "no temporary file is left")

    # The account named in the file; the unplugged volume cannot be read.
    account = getpass.getuser() if m.platform == "native" else "SYSTEM"
    write(os.path.join(m.datadir(), "qzreports", "qzserv_runs_as.txt"), f"  {account}\r\nsecond line\r\n")
    r = m.run("-create_qzserv_perm_report")
    check_eq(r.rc, 0, "exit code")
    rows = report_rows(read(host))
    check_eq(rows[2], ["account", account, "file"], "account from the file")
    by_target = {row[2]: row for row in rows[3:7]}
    check_eq(by_target["E:\\"][3], "no", "unplugged volume")
    if m.platform == "native":
        check_eq((by_target["D:\\"][3], by_target[m.datadir_win[:-1]][3]), ("yes", "yes"),
                 f"own folders readable by the own account: {rows}")
    check_eq(rows[-1], ["result", "not_all_readable"], "result")
    check(m.logged(f"QzReports::WriteServicePermissionReport account={account}"), "log line")
