"""The installer's rows: -attempt_run_qztransmit64, -log_install_event,
-retentioninfo, -fixpermissions and -checkcodesignature, with their texts and
exit codes on both builds."""

import os
import shutil
import stat

from harness import INSTALL_DIR, check, check_eq, read, write


def tool_names(m):
    return ("win64", "qztransmit64.exe") if m.platform == "wine" else ("unk64", "qztransmit")


def test_attempt_run_qztransmit64(m):
    m.make_datadir()
    tag, name = tool_names(m)
    tool = INSTALL_DIR + name
    r = m.run("-attempt_run_qztransmit64")
    check_eq((r.rc, r.stdout), (0, f"err_{tag}: failed to find file to run: {tool}\n"), "no tool")
    # The program itself stands in for the tool: without settings it ends at once, printing nothing.
    shutil.copy(m.exe, m.host_path(tool))
    r = m.run("-attempt_run_qztransmit64")
    check_eq((r.rc, r.stdout), (0, f"exit_code=0: ran file: {tool}\n"), "tool ran")
    if m.platform == "native":
        write(m.host_path(tool), "#!/bin/sh\necho line one\necho line two >&2\nexit 3\n")
        os.chmod(m.host_path(tool), 0o755)
        r = m.run("-attempt_run_qztransmit64")
        check_eq(r.stdout, f"exit_code=3, output=line one line two: ran file: {tool}\n", "output and exit code")
        write(m.host_path(tool), "#!/bin/sh\nsleep 600\n")
        os.chmod(m.host_path(tool), 0o644)
        r = m.run("-attempt_run_qztransmit64")
        check_eq(r.stdout, f"err_could_not_start_5: ran file: {tool}\n", "a tool that cannot be started")


def test_log_install_event(m):
    m.make_datadir()
    history = os.path.join(m.datadir(), "qzreports", "qzinstall_history.txt")
    for flags in (("t", "f"), ("f", "t"), ("T", "x")):
        r = m.run("-log_install_event", *flags)
        check_eq((r.rc, r.stdout), (0, "Successfully Logged Install Event.\n"), f"event {flags}")
    lines = read(history).split("\n")
    check_eq(lines[0], "# qzfilelist install history", "title")
    check_eq([l.split("\t")[2:] for l in lines[1:4]],
             [["9.1.0.833", "t", "f"], ["9.1.0.833", "f", "t"], ["9.1.0.833", "f", "f"]], "events")
    check(all(l.split("\t")[0].isdigit() for l in lines[1:4]) and lines[4:] == [""], f"history {lines!r}")
    # A history another program holds is never replaced by one without its events.
    before = read(history)
    with m.hold(m.datadir_win + "qzreports\\qzinstall_history.txt"):
        r = m.run("-log_install_event", "t", "t")
    check_eq(r.stdout, "ERROR: did not log Install Event.\n", "held history")
    check_eq(read(history), before, "held history unchanged")
    check(not os.path.exists(history + ".tmp"), "no temporary file left")


def test_retentioninfo(m):
    m.make_datadir()
    check_eq(m.run("-retentioninfo").stdout, "none\n", "no history")
    write(os.path.join(m.datadir(), "qzreports", "qzrollback_history.txt"),
          "1700000000000\tfinalized\tuxe_rb365d_1year\n1800000000000\tpending\tuxe_rb002\n")
    r = m.run("-retentioninfo")
    check_eq((r.rc, r.stdout), (0, "uxe_rb365d_1year\n"), "newest finalized text")


def test_fixpermissions(m):
    m.make_datadir()
    install = m.host_path(INSTALL_DIR)
    write(os.path.join(install, "sub", "a.dll"), "x")
    write(os.path.join(install, "run.exe"), "x")
    if m.platform == "native":
        os.chmod(os.path.join(install, "sub", "a.dll"), 0o600)
        os.chmod(os.path.join(install, "run.exe"), 0o700)
        os.chmod(os.path.join(install, "sub"), 0o700)
    r = m.run("-fixpermissions")
    if m.platform == "native":
        check_eq((r.rc, r.stdout), (0, "Succeeded fixing permissions on the install dir.\n"), "fixed")
        modes = {p: stat.S_IMODE(os.stat(os.path.join(install, p)).st_mode) for p in ("", "sub", "sub/a.dll", "run.exe")}
        check_eq(modes, {"": 0o755, "sub": 0o755, "sub/a.dll": 0o744, "run.exe": 0o755}, "modes")
    else:
        # Wine keeps access lists only where the file system takes extended
        # attributes; either answer must match the exit code.
        check(r.stdout in ("Succeeded fixing permissions on the install dir.\n",
                           "Failed to fix permissions on the install dir.\n"), r.stdout)
        check_eq(r.rc, 0 if r.stdout.startswith("Succeeded") else 1, "exit code matches the text")
    shutil.rmtree(install)
    r = m.run("-fixpermissions")
    check_eq((r.rc, r.stdout), (1, "Failed to fix permissions on the install dir.\n"), "no install dir")


def test_checkcodesignature(m):
    m.make_datadir()
    r = m.run("-checkcodesignature", "C:\\nothing.exe")
    check_eq((r.rc, r.stdout), (1, 'FAIL:File "C:\\nothing.exe" does not exist.\n'), "missing file")
    r = m.run("-checkcodesignature")
    check_eq((r.rc, r.stdout), (1, "FAIL:Please specify a path to a file.\n"), "no operand")
    # Neither the unsigned program nor a copy of it passes; the self test says so too.
    shutil.copy(m.exe, m.c("copy.exe"))
    r = m.run("-checkcodesignature", "C:\\copy.exe")
    lines = r.stdout.split("\n")
    check_eq((r.rc, lines[0]), (0, "FAIL:C:\\copy.exe does not have a valid code signature."), "unsigned file")
    check(lines[1].startswith("FAIL:") and lines[1].endswith(" does not have a valid code signature (self test).")
          and lines[2:] == [""], f"self test line: {r.stdout!r}")
