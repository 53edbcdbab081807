"""-explainfile: the report's verdict agrees with what a scan wrote for every
file of a generated tree (on its list or not; selected or not, by the
large-file list), each deciding step names its cause, and the command's
three outcomes."""

import os
import re
import time

from harness import check, check_eq, write
from filelists import VIRTUAL, list_dir, listed, put, read_list, scan_machine

MIB = 1 << 20
EDITABLE = ('<?xml version="1.0" encoding="UTF-8" ?> \n\n<qzexclusions>\n<!-- a comment\n over two lines -->\n'
            '<excludefname_rule plat="win" osVers="*"  ruleIsOptional="t" skipFirstCharThenStartsWith=":\\Users\\" '
            'contains_1="*" contains_2="*" doesNotContain="*" endsWith="\\secret.key" hasFileExtension="key" />\n'
            '</qzexclusions>\n')

# Path below D:\ -> (size, the first cause the report must name, or None when selected).
CASES = {
    "root.txt": (6, None),
    "Users\\top.txt": (3, None),
    "Users\\bob\\notes.txt": (12, None),
    "Users\\bob\\Pictures\\2024\\a.jpg": (7, None),
    "Users\\bob\\big.iso": (600 * MIB, None),
    "Users\\bob\\huge.iso": (800 * MIB, "larger than the size limit max_filesize_mb=700"),
    "Users\\bob\\Thumbs.db": (600 * MIB, "mandatory rule at line"),
    "Users\\bob\\old.bak": (600 * MIB, 'excluded file type "bak" of the settings (excludefiletypes at line 3'),
    "Users\\bob\\secret.key": (600 * MIB, "editable rule at line 6 of qzexcluderules_editable.xml"),
    "Users\\bob\\Secret\\x.txt": (600 * MIB, 'excluded folder "D:\\Users\\bob\\Secret" of the settings'),
    "Windows\\System32\\k.dll": (5, 'always skips'),
    "data\\Private\\p.txt": (5, 'excluded as a whole by qzinfo.xml qzdirfilter dir="D:\\data\\Private"'),
    "data\\x\\Backups.backupdb\\y.txt": (5, "skipping dirname with TimeMachine in it"),
}


def machine(m):
    d, = scan_machine(m, settings='excludefiletypes="bak" max_filesize_mb="700"',
                      extra='<do_backup>\n<qzdirfilter dir="D:\\data\\Private" whichfiles="none" />\n'
                            '<qzdirfilter dir="D:\\Users\\bob\\Secret" whichfiles="none" />\n</do_backup>\n')
    write(os.path.join(m.datadir(), "qzexcluderules_editable.xml"), EDITABLE)
    for rel, (size, _) in CASES.items():
        put(os.path.join(d, *rel.split("\\")), size)
    if m.platform == "native":
        os.symlink(os.path.join(d, "data"), os.path.join(d, "Users", "bob", "loop"))
    return d


def explain(m, path, report="C:\\explain.txt"):
    r = m.run("-explainfile", path, report)
    check_eq(r.rc, 0, f"exit code of -explainfile {path}")
    m_ = re.fullmatch(r"\nDone\.  Please email Korvatine support this file:\n(.*)\n\n\nPrimaryDiagnosis:\n(.*)\n\n",
                      r.stdout, re.S)
    check(m_ is not None, f"stdout of -explainfile {path}: {r.stdout!r}")
    check_eq(m_.group(1), report if ":" in report else m.datadir_win + "qzreports\\" + report, "report path")
    with open(m.host_path(m_.group(1)), encoding="utf-8") as f:
        text = f.read()
    summary = dict(re.findall(r"^(Verdict|ReachedByScan|SelectedByRules|OnCurrentList|PrimaryDiagnosis): (.*)$",
                              text, re.M))
    check_eq(summary.get("PrimaryDiagnosis"), m_.group(2), "PrimaryDiagnosis in the report and on stdout")
    return summary, text


def test_explanations_agree_with_the_scan_and_name_each_cause(m):
    d = machine(m)
    # Before any scan: the rules decide, but there is no list yet.
    s, _ = explain(m, "D:\\Users\\bob\\notes.txt")
    check_eq((s["Verdict"], s["OnCurrentList"]), ("SELECTED_NOT_LISTED_YET", "no_list"), "before a scan")

    check_eq(m.run(env=VIRTUAL).rc, 0, "scan")
    on_list = listed(read_list(m)[1])
    with open(os.path.join(list_dir(m), "bigfilelist.dat"), encoding="utf-8") as f:
        big = {line.split("\t")[2]: line[0] for line in f.read().splitlines()}

    # Every file on the drive, and the ones the cases name on purpose.
    on_disk = set()
    for dirpath, dirnames, filenames in os.walk(d):
        rel = os.path.relpath(dirpath, d)
        for name in filenames:
            on_disk.add("D:\\" + ("" if rel == "." else rel.replace("/", "\\") + "\\") + name)
    for path in sorted(on_disk):
        s, text = explain(m, path, "explain.txt")
        reached = s["ReachedByScan"] == "yes"
        check_eq(reached, path in on_list, f"ReachedByScan of {path} against the list\n{text}")
        check_eq(s["OnCurrentList"], "yes" if reached else "no", f"OnCurrentList of {path}")
        if path in big:
            check_eq(s["SelectedByRules"], "yes" if big[path] == "t" else "no",
                     f"SelectedByRules of {path} against bigfilelist.dat\n{text}")
        rel = path[3:]
        if rel in CASES:
            cause = CASES[rel][1]
            if cause is None:
                check_eq(s["Verdict"], "BACKED_UP", f"verdict of {path}\n{text}")
                check(s["PrimaryDiagnosis"].startswith("BACKED UP: selected for backup, and on the list started "),
                      f"diagnosis of {path}: {s['PrimaryDiagnosis']}")
            else:
                check_eq(s["Verdict"], "NOT_BACKED_UP", f"verdict of {path}")
                check(s["PrimaryDiagnosis"].startswith("NOT BACKED UP: ") and cause in s["PrimaryDiagnosis"],
                      f"diagnosis of {path} should name {cause!r}: {s['PrimaryDiagnosis']}")
            if rel == "Users\\bob\\Thumbs.db":
                # The line named is the rule's line in the mandatory file on disk.
                line = int(re.search(r"mandatory rule at line (\d+)", s["PrimaryDiagnosis"]).group(1))
                with open(os.path.join(m.datadir(), "qzexcluderules_mandatory.xml"), encoding="utf-8") as f:
                    check('endsWith="\\thumbs.db"' in f.read().split("\n")[line - 1], "mandatory rule line")

    # A file made after the scan, a missing one, another volume, a link folder.
    put(os.path.join(d, "Users", "bob", "new.txt"), 1, int(time.time() * 1000) + 5000)
    s, _ = explain(m, "d:/users/bob/NEW.txt")
    check_eq((s["Verdict"], s["ReachedByScan"], s["OnCurrentList"]), ("SELECTED_NOT_LISTED_YET", "yes", "no"),
             "a file made after the scan")
    check("after the list was started" in s["PrimaryDiagnosis"], s["PrimaryDiagnosis"])
    s, _ = explain(m, "D:\\Users\\bob\\gone.txt")
    check("the file does not exist: D:\\Users\\bob\\gone.txt" in s["PrimaryDiagnosis"], s["PrimaryDiagnosis"])
    e = m.map_drive("E")
    put(os.path.join(e, "f.txt"), 1)
    s, _ = explain(m, "E:\\f.txt")
    check("volume E:\\ carries no volume GUID" in s["PrimaryDiagnosis"], s["PrimaryDiagnosis"])
    if m.platform == "native":
        s, _ = explain(m, "D:\\Users\\bob\\loop\\x\\Backups.backupdb\\y.txt")
        check("is a junction or link" in s["PrimaryDiagnosis"], s["PrimaryDiagnosis"])


def test_explainfile_outcomes(m):
    m.make_datadir()
    r = m.run("-explainfile", "ab", "C:\\r.txt")
    check_eq(r.stdout, "\nERROR: file to explain must be at least 3 characters: ab\n", "two characters")
    check(not os.path.exists(m.c("r.txt")), "no report for a refused name")
    r = m.run("-explainfile", "C:\\x.txt", "Q:\\nowhere\\r.txt")
    check_eq(r.stdout, "\nERROR: could not produce a report, is file writeable:\nQ:\\nowhere\\r.txt\n", "unwritable")
    check_eq(r.rc, 0, "exit code")
    # Without settings nothing is scanned, and the report says so first.
    s, _ = explain(m, "C:\\x.txt", "r.txt")
    check(s["PrimaryDiagnosis"].startswith("NOT BACKED UP: the settings file "), s["PrimaryDiagnosis"])
