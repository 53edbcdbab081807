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


def test_fixed_answers_and_unknown_switches(m):
    version = "VERSION: 9.1.0.833\n"
    rows = [(["-version"], version, 0), (["-version", "extra"], version, 0),  # extra operands are ignored
            (["-usetimemachineexcludes"], 'The "-usetimemachineexcludes" option is only for MacOS.\n', 1),
            (["-listtimemachineuuids"], "No backup volumes found. This command is not implemented for Windows.\n", 1),
            (["-istranslatedprocess"], "not translated\n", 0), (["-archstring"], "UNKNOWN\n", 0),
            (["-bogus", "operand", "another"], "Unknown arg: -bogus\n", 0)]
    # Switches differing in case, and arguments a Windows command line has to quote or escape.
    for arg in ["-bogus", "-Version", "-VERSION", "-H", "version", "-is64Bit", "-", "", "two words", "Résumé 日本語",
                'quote"inside', "C:\\dir with space\\", "trailing\\\\", "tab\there", "%PATH%", "a&b|c<d>e^f"]:
        rows.append(([arg], f"Unknown arg: {arg}\n", 0))
    for args, stdout, rc in rows:
        expect(m, args, stdout, rc)


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


def test_operands(m):
    m.make_datadir()
    # Too few operands: two-operand switches are unknown, the others ask for more.
    for sw in ["-grep", "-igrep", "-copy_rsrc_fork", "-explainfile"]:
        expect(m, [sw], f"Unknown arg: {sw}\n")
        expect(m, [sw, "pattern"], f"Unknown arg: {sw}\n")
        expect_recognised(m, [sw, "pattern", "C:\\file.txt"])
    expect(m, ["-log_install_event", "t"], "Must have additional arg for: -log_install_event\n")
    for sw in ["-dirlist", "-fileinfo", "-diagnose_read_problem", "-open_file_exclusive", "-dllinfo",
               "-dirlistdetail", "-volumeinfo", "-getvolumeinfofromfilename", "-log_install_event"]:
        expect(m, [sw], f"Must have additional arg for: {sw}\n")
        expect_recognised(m, [sw, "C:\\", "t"])
    for sw in ["-merge_exclude_rules", "-attempt_run_qztransmit64", "-create_qzserv_perm_report",
               "-clone_qzvol_to_datadir", "-update_qzvolumes_xml", "-update_qzdefcon_xml",
               "-pingdrives_thatare_selectedforbackup", "-queryattachedvolumes", "-listvolumes",
               "-listvolumestofile", "-listvolumesdetail", "-retentioninfo", "-fixpermissions"]:
        expect_recognised(m, [sw])
    expect_recognised(m, ["-listvolumestofile", "C:\\volumes.txt"])


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
    messages = m.log_messages()
    start = max(i for i, msg in enumerate(messages) if re.match(startup_line_re(["-urgent_refresh_all"]), msg))
    check_eq(messages[start + 1], NO_QZINFO_LINE, "the line after the start-up line")
    m.write_qzinfo()
    for args in early + later:
        check_eq(qzinfo_errors_after(args), 0, f"qzinfo.xml errors for {args} with the file")
