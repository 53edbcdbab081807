"""The switch table: what each switch prints, its exit code, and how missing
operands are treated."""

import re

from harness import NO_QZINFO_LINE, check, check_eq, startup_line_re


def expect(m, args, stdout, rc=0, stderr=""):
    r = m.run(*args)
    check_eq(r.stdout, stdout, f"stdout of {list(args)}")
    check_eq(r.rc, rc, f"exit code of {list(args)}")
    if stderr is not None:
        check_eq(r.stderr, stderr, f"stderr of {list(args)}")
    return r


def expect_recognised(m, args):
    """A switch given enough operands is taken up: no "Unknown arg", no usage
    line, and no switch says it is not available."""
    r = m.run(*args)
    check("Unknown arg" not in r.stdout, f"{list(args)} was not recognised: {r.stdout!r}")
    check("Must have additional arg" not in r.stdout, f"{list(args)} asked for more operands: {r.stdout!r}")
    check("not available" not in r.stdout + r.stderr, f"{list(args)} is not available: {r.stderr!r}")
    return r


def test_version(m):
    expect(m, ["-version"], "VERSION: 9.1.0.833\n")
    # Extra operands are ignored.
    expect(m, ["-version", "extra"], "VERSION: 9.1.0.833\n")


def test_h_prefix_ends_the_run_with_1_before_any_lookup(m):
    m.make_datadir()
    runs = [["-h"], ["-help"], ["-hello"], ["-hx"], ["-hversion"], ["-h", "-version"]]
    for args in runs:
        expect(m, args, "", rc=1)
    # Each run still wrote its start-up line, and none looked for the settings file.
    messages = m.log_messages()
    for args in runs:
        check(any(re.match(startup_line_re(args), msg) for msg in messages),
              f"no start-up line for {args} in the log")
    check(NO_QZINFO_LINE not in messages, "an -h run looked up qzinfo.xml")


def test_unknown_switches_exit_0(m):
    for arg in ["-bogus", "-Version", "-VERSION", "-H", "version", "-is64Bit", "-"]:
        expect(m, [arg], f"Unknown arg: {arg}\n")
    expect(m, ["-bogus", "operand", "another"], "Unknown arg: -bogus\n")


def test_arguments_arrive_verbatim(m):
    # Characters a command line has to quote or escape on Windows.
    for arg in ["", "two words", "Résumé 日本語", 'quote"inside', "C:\\dir with space\\",
                "trailing\\\\", "tab\there", "%PATH%", "a&b|c<d>e^f"]:
        expect(m, [arg], f"Unknown arg: {arg}\n")


def test_two_operand_switches_are_unknown_with_fewer(m):
    for sw in ["-grep", "-igrep", "-copy_rsrc_fork", "-explainfile"]:
        expect(m, [sw], f"Unknown arg: {sw}\n")
        expect(m, [sw, "pattern"], f"Unknown arg: {sw}\n")
        expect_recognised(m, [sw, "pattern", "C:\\file.txt"])


def test_log_install_event_needs_two_operands(m):
    usage = "Must have additional arg for: -log_install_event\n"
    expect(m, ["-log_install_event"], usage)
    expect(m, ["-log_install_event", "t"], usage)
    expect_recognised(m, ["-log_install_event", "t", "message"])


def test_one_operand_switches(m):
    for sw in ["-dirlist", "-fileinfo", "-diagnose_read_problem", "-open_file_exclusive", "-dllinfo",
               "-dirlistdetail", "-volumeinfo", "-getvolumeinfofromfilename"]:
        expect(m, [sw], f"Must have additional arg for: {sw}\n")
        expect_recognised(m, [sw, "C:\\"])


def test_switches_without_operands_are_recognised(m):
    m.make_datadir()
    switches = ["-merge_exclude_rules", "-attempt_run_qztransmit64", "-create_qzserv_perm_report",
                "-clone_qzvol_to_datadir", "-update_qzvolumes_xml", "-update_qzdefcon_xml",
                "-pingdrives_thatare_selectedforbackup", "-queryattachedvolumes", "-listvolumes",
                "-listvolumestofile", "-listvolumesdetail", "-retentioninfo", "-fixpermissions"]
    for sw in switches:
        expect_recognised(m, [sw])
    expect_recognised(m, ["-listvolumestofile", "C:\\volumes.txt"])


def test_macos_only_switches(m):
    expect(m, ["-usetimemachineexcludes"], 'The "-usetimemachineexcludes" option is only for MacOS.\n', rc=1)
    expect(m, ["-listtimemachineuuids"], "No backup volumes found. This command is not implemented for Windows.\n",
           rc=1)
    expect(m, ["-istranslatedprocess"], "not translated\n")
    expect(m, ["-archstring"], "UNKNOWN\n")


def test_settings_file_is_looked_up_after_the_first_rows(m):
    m.make_datadir()

    def qzinfo_errors_after(args):
        before = len(m.log_messages())
        m.run(*args)
        return m.log_messages()[before:].count(NO_QZINFO_LINE)

    early = [["-h"], ["-version"], ["-oswithdetail"]]
    later = [["-is64bit"], ["-time"], ["-archstring"], ["-bogus"], ["-grep", "x"], ["-urgent_refresh_all"]]
    for args in early:
        check_eq(qzinfo_errors_after(args), 0, f"qzinfo.xml errors for {args} without the file")
    for args in later:
        check_eq(qzinfo_errors_after(args), 1, f"qzinfo.xml errors for {args} without the file")
    m.write_qzinfo()
    for args in early + later:
        check_eq(qzinfo_errors_after(args), 0, f"qzinfo.xml errors for {args} with the file")


def test_settings_error_follows_the_startup_line(m):
    m.make_datadir()
    m.run("-is64bit")
    messages = m.log_messages()
    start = next(i for i, msg in enumerate(messages) if re.match(startup_line_re(["-is64bit"]), msg))
    check_eq(messages[start + 1:], [NO_QZINFO_LINE], "log lines after the start-up line")
