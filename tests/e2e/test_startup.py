"""What every run does before its command: find the install and data folders
and the host id, open the log, and write the start-up lines."""

import os
import re
import shutil

from harness import HGUID_FALLBACK_LINE, UNKNOWN_HGUID, check, check_eq, check_match, startup_line_re

HGUID = "a1b2c3d4e5f6a7b8c9d0e1f2"


def startup_lines(lines):
    return [l.message for l in lines if re.match(r"qzfilelist processId=\d+ version=", l.message)]


def run_lines(m, args):
    """Runs the program and returns the log lines this run added."""
    before = len(m.log_lines())
    r = m.run(*args)
    return r, m.log_lines()[before:]


def test_startup_lines(m):
    m.write_install_xml(hguid=HGUID)
    m.make_datadir()
    # The lines before it, the pid column and the GMT time are checked by the log tests.
    r, lines = run_lines(m, ["-version"])
    check_eq(r.stdout, "VERSION: 9.1.0.833\n", "stdout")
    mm = check_match(startup_line_re(["-version"], hguid=HGUID), lines[2].message, "start-up line")
    virt, res, ram = (int(mm.group(i)) for i in (2, 3, 4))
    check(ram > 100, f"implausible numMBytesStartHardwareRamMemSize={ram}")
    check(res < ram, f"resident {res} MB exceeds RAM {ram} MB")
    # Committed private memory, as page-file usage counts it; not the address
    # space a sanitizer reserves.
    check(virt < ram, f"virtual {virt} MB exceeds RAM {ram} MB")
    # Every argument, in order, whatever it holds; then the buffering flag file.
    for args in (["-is64bit"], ["-bogus", "two words", "Résumé 日本語", "C:\\dir\\"], ["-grep", "x"], []):
        starts = startup_lines(run_lines(m, args)[1])
        check_eq(len(starts), 1, f"start-up lines for {args}")
        check_match(startup_line_re(args, hguid=HGUID), starts[0], f"start-up line for {args}")
    m.disable_buffering()
    starts = startup_lines(run_lines(m, ["-version"])[1])
    check_match(startup_line_re(["-version"], hguid=HGUID, buffering=False), starts[0], "BUFFERING_IS_TURNED_OFF")


def test_host_id(m):
    m.make_datadir()
    # None: no qzinstall.xml at all; "associated_hguid" is another attribute, only a whole "hguid" counts.
    for written, expected in [(None, UNKNOWN_HGUID), (f'hguid="{HGUID}"', HGUID),
                              (f'hguid="{HGUID[:23]}"', UNKNOWN_HGUID), (f'hguid="{HGUID}0"', UNKNOWN_HGUID),
                              ('hguid=""', UNKNOWN_HGUID),
                              (f'associated_hguid="{"b" * 24}" hguid="{HGUID}"', HGUID)]:
        if written is not None:
            m.write_install_xml(raw=f"<qzinstall {written} />\n")
        messages = [l.message for l in run_lines(m, ["-version"])[1]]
        check(any(re.match(startup_line_re(["-version"], hguid=expected), msg) for msg in messages),
              f"hguid {written!r}: start-up line should carry {expected}: {messages}")
        check_eq(messages.count(HGUID_FALLBACK_LINE), int(expected == UNKNOWN_HGUID), f"fallback lines for {written!r}")


def test_data_dir_from_install_xml(m):
    d = m.map_drive("D")
    for datadir in ("D:\\qzdata\\", "D:\\qzdata"):
        shutil.rmtree(os.path.join(d, "qzdata"), ignore_errors=True)
        os.makedirs(os.path.join(d, "qzdata"))
        m.write_install_xml(datadir=datadir, hguid=HGUID)
        r = m.run("-version")
        check_eq(r.stdout, "VERSION: 9.1.0.833\n", "stdout")
        logs = os.listdir(os.path.join(d, "qzdata", "qzlogs", "qzfilelist"))
        check_eq(len(logs), 1, f"day files under D:\\qzdata for datadir={datadir!r}: {logs}")
        check(any(re.match(startup_line_re(["-version"], hguid=HGUID), msg) for msg in m.log_messages()),
              f"no start-up line in the D: log for datadir={datadir!r}")
        check(not os.path.exists(m.c("ProgramData\\Korvatine\\qzdata")),
              f"the default data dir was created although qzinstall.xml says {datadir!r}")


def test_no_log_without_the_data_dir(m):
    d = m.map_drive("D")
    for install_xml in (None, "D:\\qzdata", "C:\\ProgramData\\Korvatine\\qzdata"):
        if install_xml:
            m.write_install_xml(datadir=install_xml, hguid=HGUID)
        before = m.snapshot()
        for args in (["-version"], ["-is64bit"], ["-bogus"], [], ["-merge_exclude_rules"]):
            r = m.run(*args)
            check_eq(r.rc, 0, f"exit code of {args}")
        check_eq(r.stdout, "Nothing changed.\n", "-merge_exclude_rules without a data directory")
        check_eq(sorted(m.snapshot() - before), [], f"files created with datadir {install_xml!r} missing")
        check_eq(os.listdir(d), [], "D: should stay empty")


def test_empty_common_app_data_answer_takes_the_short_name_rule(m):
    """Windows build: when the shell answers the common application-data
    folder with an empty text, the data directory is "C:\\ProgramData" +
    "\\Korvatine\\qzdata\\" (the rule for fewer than 2 characters), not the
    failed-call one without "qzdata"."""
    if m.platform != "wine":
        return  # the POSIX build has no shell folders to ask
    key = "HKLM\\Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\User Shell Folders"
    m.wine_cmd("reg", "add", key, "/v", "Common AppData", "/t", "REG_EXPAND_SZ", "/d", "", "/f")
    try:
        m.make_datadir()
        r = m.run("-version")
    finally:
        m.wine_cmd("reg", "add", key, "/v", "Common AppData", "/t", "REG_EXPAND_SZ", "/d", "%ProgramData%", "/f")
    check_eq(r.rc, 0, "exit code")
    check(any(l.message == "starting qzfilelist" for l in m.log_lines()), "no log in the qzdata data directory")
    check(not os.path.exists(m.c("ProgramData\\Korvatine\\qzlogs")), "logged as if the shell call had failed")
