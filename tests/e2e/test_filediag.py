"""The file diagnostics: directory listings, single-file probes, DLL checks,
grep. Each runs the real program on a prepared drive and compares its output
with the exact texts support engineers read."""

import os
import re
import struct
import time

from harness import check, check_eq, check_match


def make_tree(m, files):
    """Maps D: and fills it; files maps relative paths to contents (None: a folder)."""
    d = m.map_drive("D")
    for rel, content in files.items():
        p = os.path.join(d, *rel.split("/"))
        if content is None:
            os.makedirs(p, exist_ok=True)
        else:
            os.makedirs(os.path.dirname(p), exist_ok=True)
            with open(p, "wb") as f:
                f.write(content if isinstance(content, bytes) else content.encode("utf-8"))
    return d


def test_dirlist_lists_every_entry_once(m):
    make_tree(m, {"data/a.txt": "12345", "data/Résumé 日本語.doc": "x", "data/sub": None})
    r = m.run("-dirlist", "D:\\data")
    check_eq(r.rc, 0, "exit code")
    lines = r.stdout.split("\n")
    check_eq(lines[0], "DirList of 3 items for: D:\\data", "first line")
    check_eq(lines[-2:], ["End.", ""], "last line")
    items = lines[1:-2]
    # The file system's order, numbered from 0: compare as a set after checking numbering.
    check_eq([int(l[6:9]) for l in items], [0, 1, 2], "item numbers")
    check_eq(sorted(l[12:] for l in items), sorted([" dir: sub", "file: a.txt", "file: Résumé 日本語.doc"]),
             "items")
    for l in items:
        check_match(r"^ Item +\d+ - ( dir|file): .+$", l, "item line")


def test_dirlist_errors(m):
    make_tree(m, {"file.txt": "x", "empty": None})
    # A freshly formatted drive: its root has no "." entry, so the first search
    # finds nothing; that is an empty listing, not a failed one.
    m.map_drive("E")
    cases = [
        ("D:\\missing", "Directory does not exist: D:\\missing\n"),
        ("D:\\file.txt", "This is not a directory: D:\\file.txt\n"),
        ("D:\\empty", "Directory contained zero files: D:\\empty\n"),
        ("E:\\", "Directory contained zero files: E:\\\n"),
        ("Q:\\nodrive", "Directory does not exist: Q:\\nodrive\n"),
        # Nothing outside the machine's drives exists: not the empty path, and
        # not the host's own /tmp through a path without a drive letter.
        ("", "Directory does not exist: \n"),
        ("\\tmp", "Directory does not exist: \\tmp\n"),
    ]
    for arg, want in cases:
        for switch in ("-dirlist", "-dirlistdetail"):
            r = m.run(switch, arg)
            check_eq((r.rc, r.stdout), (0, want), f"{switch} {arg}")


def test_dirlist_never_climbs_above_a_drive_root(m):
    make_tree(m, {"top.txt": "t"})
    root = m.run("-dirlist", "D:\\")
    check(root.stdout.startswith("DirList of 1 items for: D:\\\n"), root.stdout)
    up = m.run("-dirlist", "D:\\..\\..")
    check_eq(up.stdout.replace("D:\\..\\..", "D:\\"), root.stdout, "-dirlist D:\\..\\..")


def test_dirlist_refuses_a_reparse_point(m):
    if m.platform == "wine":
        return  # Wine shows a Unix symbolic link as a plain directory
    d = make_tree(m, {"real": None})
    os.symlink(os.path.join(d, "real"), os.path.join(d, "link"))
    r = m.run("-dirlist", "D:\\link")
    check_eq(r.stdout, "This is a symlink or reparse point: D:\\link\n", "-dirlist of a link")


def test_dirlistdetail_prints_the_file_details_under_each_item(m):
    make_tree(m, {"dd/five.bin": "12345"})
    r = m.run("-dirlistdetail", "D:\\dd\\")
    lines = r.stdout.split("\n")
    check_eq(lines[:3], ["DirList of 1 items for: D:\\dd\\", "", " Item   0 - file: five.bin"], "head")
    keys = [l.split(":")[0] for l in lines[3:13]]
    check_eq(keys, ["  fileSizeInBytes", "  rsrcForkInBytes", "  isDirectory", "  isSymLinkOrReparsePoint",
                    "  linked file count", "  isBundlePackageDir", "  isAliasFile", "  isAppropriateToModifyFile",
                    "  creationTime (GMT)", "  lastModifiedTime (GMT)"], "detail fields")
    check_eq(lines[3], "  fileSizeInBytes: 5", "size")
    check_eq(lines[5], "  isDirectory: false", "isDirectory")
    check_match(r"^  lastModifiedTime \(GMT\): \d{4}-\d\d-\d\d \d\d:\d\d:\d\d$", lines[12], "time")
    check_eq(lines[13:], ["End.", ""], "tail")


def test_fileinfo(m):
    make_tree(m, {"info/a.txt": "hello"})
    r = m.run("-fileinfo", "D:\\info\\a.txt")
    lines = r.stdout.split("\n")
    check_eq(lines[0], "FileInfo for: D:\\info\\a.txt", "head")
    check_eq(lines[1], "  fileSizeInBytes: 5", "size")
    check_eq(lines[3], "  isDirectory: false", "isDirectory")
    check_eq(lines[4], "  isSymLinkOrReparsePoint: false", "reparse")
    check_eq(lines[5], "  linked file count: 1", "links")
    check_match(r"^  (yes_have_admin_rights|no_admin_rights)_login_name: \S.*$", lines[11], "login line")
    check_eq(lines[12], "  qzserv_login_name: qzunknown", "service account")
    check_eq(lines[13], "  successfully_read_in_file: 5 bytes", "read")
    check_match(r"^  my_current_login_has_rights_to_read_file: true, detail=.*$", lines[14], "own rights")
    check_match(r"^  qzserv_login_has_rights_to_read_file: false, detail=.*$", lines[15], "service rights")
    r = m.run("-fileinfo", "D:\\info\\missing.txt")
    check_eq(r.stdout, "FileInfo for: D:\\info\\missing.txt\nFile does not exist.\n", "missing file")

    # The service account's name comes from the reports folder.
    reports = os.path.join(m.make_datadir(), "qzreports")
    os.makedirs(reports, exist_ok=True)
    with open(os.path.join(reports, "qzserv_runs_as.txt"), "w") as f:
        f.write("SYSTEM\r\n")
    r = m.run("-fileinfo", "D:\\info\\a.txt")
    check("  qzserv_login_name: SYSTEM\n" in r.stdout, r.stdout)


def test_diagnose_read_problem(m):
    make_tree(m, {"r/ok.txt": "ok"})
    head = "Diagnosing this file for ability to read: "
    r = m.run("-diagnose_read_problem", "D:\\r\\ok.txt")
    check_eq(r.stdout, head + "D:\\r\\ok.txt\nFile exists, and there was no problem reading the file.\n", "ok")
    r = m.run("-diagnose_read_problem", "D:\\r\\nope.txt")
    check_eq(r.stdout, head + "D:\\r\\nope.txt\nQzFile::DiagnoseFileReadProblem failed - file does not exist: "
             "D:\\r\\nope.txt, errStr=QZ_FILE_PERMANENT_DOES_NOT_EXIST\n", "missing file")
    r = m.run("-diagnose_read_problem", "Q:\\gone.txt")
    check_eq(r.stdout, head + "Q:\\gone.txt\nQzFile::DiagnoseFileReadProblem failed - file does not exist: "
             "Q:\\gone.txt, errStr=QZ_FILE_TEMPORARY_DRIVE_UNPLUGGED\n", "vanished drive")
    r = m.run("-diagnose_read_problem", "D:\\r")
    check_eq(r.stdout, head + "D:\\r\nFile exists, could not read for intReason=2, "
             "strReason=QZ_FILE_PERMANENT_BAD_PERMISSIONS\n", "a directory")


def test_open_file_exclusive_holds_the_file(m):
    make_tree(m, {"x/held.txt": "held"})
    r = m.run("-open_file_exclusive", "D:\\x\\missing.txt")
    check_eq(r.stdout, "Opening this file exclusively: D:\\x\\missing.txt\n"
             "File does not exist - not valid to use this command.\n", "missing file")
    p = m.start("-open_file_exclusive", "D:\\x\\held.txt")
    try:
        deadline = time.time() + 60
        seen = ""
        while time.time() < deadline:
            p.qz_out.seek(0)
            seen = p.qz_out.read().decode("utf-8", "replace").replace("\r\n", "\n")
            if "Holding file exclusively seconds=0 ...\n" in seen:
                break
            time.sleep(0.2)
        check_eq(seen, "Opening this file exclusively: D:\\x\\held.txt\nHolding file exclusively seconds=0 ...\n",
                 "holder output")
        r = m.run("-diagnose_read_problem", "D:\\x\\held.txt")
        check("could not read for intReason=3, strReason=QZ_FILE_TEMPORARY_FILE_BUSY" in r.stdout, r.stdout)
        r = m.run("-open_file_exclusive", "D:\\x\\held.txt")
        check_eq(r.stdout, "Opening this file exclusively: D:\\x\\held.txt\nFile exists but "
                 "QzOpenFileReadOnlyExclusive Failed on: D:\\x\\held.txt, errStr=Another_Process_Has_File_Open_\n",
                 "second holder")
        r = m.run("-grep", "x", "D:\\x\\held.txt")
        check_eq(r.stdout, "An error occurred, is the file readable?, errStr=Another_Process_Has_File_Open_\n",
                 "grep of a held file")
    finally:
        p.kill()
        p.wait()
        p.qz_out.close()
        p.qz_err.close()


def pe_image(machine, characteristics, size=4096):
    """A minimal PE header: "MZ", the PE offset at 0x3C, then machine and characteristics."""
    data = bytearray(size)
    data[0:2] = b"MZ"
    struct.pack_into("<I", data, 0x3C, 0x80)
    data[0x80:0x84] = b"PE\0\0"
    struct.pack_into("<H", data, 0x84, machine)
    struct.pack_into("<H", data, 0x80 + 22, characteristics)
    return bytes(data)


def test_dllinfo_reads_the_headers(m):
    make_tree(m, {
        "dll/x64.dll": pe_image(0x8664, 0x2022),
        "dll/x86.dll": pe_image(0x014C, 0x2102),
        "dll/arm.dll": pe_image(0xAA64, 0x2022),
        "dll/app.exe": pe_image(0x8664, 0x0022),
        "dll/small.dll": pe_image(0x8664, 0x2022, size=1999),
        "dll/text.txt": "not a program at all " * 200,
    })
    expected = {
        "x64.dll": "Test B: This file is a 64 bit Windows DLL.",
        "x86.dll": "Test B: This file is a 32 bit Windows DLL.",
        "arm.dll": "Test B: This file is an unknown bit Windows DLL.",
        "app.exe": "Test B: This file is not a Windows DLL.",
        "small.dll": "ReadFirstNbytesIntoBuf read less than 2000 bytes",
        "text.txt": "Test B: This file is not a Windows DLL.",
    }
    for name, last in expected.items():
        r = m.run("-dllinfo", "D:\\dll\\" + name)
        lines = r.stdout.split("\n")
        check_eq(lines[0], "DllInfo from a 64 bit process for: D:\\dll\\" + name, name)
        if m.platform == "wine":
            # Fabricated headers do not load.
            check_eq(lines[1], "Test A: This file is NOT a 64 bit Windows DLL.", name)
        else:
            check_eq(lines[1], "Test A: skipped, this build cannot load Windows DLLs.", name)
        check_eq(lines[2:], [last, ""], name)
    r = m.run("-dllinfo", "D:\\dll\\none.dll")
    check_eq(r.stdout, "DllInfo from a 64 bit process for: D:\\dll\\none.dll\nFile does not exist.\n", "missing")
    if m.platform == "wine":
        r = m.run("-dllinfo", "C:\\windows\\system32\\kernel32.dll")
        check_eq(r.stdout.split("\n")[1:3], ["Test A: This file is a 64 bit Windows DLL.",
                                             "Test B: This file is a 64 bit Windows DLL."], "a real DLL")


def test_copy_rsrc_fork_has_the_windows_answer(m):
    make_tree(m, {"f.txt": "x"})
    r = m.run("-copy_rsrc_fork", "D:\\f.txt", "D:\\out.bin")
    check_eq(r.stdout, "FileInfo for: D:\\f.txt\nFile has no resource fork.\n", "existing file")
    r = m.run("-copy_rsrc_fork", "D:\\g.txt", "D:\\out.bin")
    check_eq(r.stdout, "FileInfo for: D:\\g.txt\nFile does not exist.\n", "missing file")


def test_grep_and_igrep(m):
    lines = ["C:\\Users\\Bob\\notes.txt\t0000018c3a\t12", "C:\\Users\\bob\\BOB.doc\t0000018c3b\t7",
             "nothing here", "Résumé BOB"]
    make_tree(m, {"lists/list.dat": "\n".join(lines) + "\n"})
    r = m.run("-grep", "Bob", "D:\\lists\\list.dat")
    check_eq(r.stdout, "Grep returned the following for file: D:\\lists\\list.dat\n"
             "Line 1: C:\\Users\\Bob\\notes.txt\t0000018c3a\t12\nDone.\n", "-grep")
    r = m.run("-igrep", "bob", "D:\\lists\\list.dat")
    check_eq(r.stdout, "Grep returned the following for file: D:\\lists\\list.dat\n"
             f"Line 1: {lines[0]}\nLine 2: {lines[1]}\nLine 4: {lines[3]}\nDone.\n", "-igrep")
    r = m.run("-grep", "x", "D:\\lists\\none.dat")
    check_eq(r.stdout, "File does not exist: D:\\lists\\none.dat\n", "missing file")


def test_grep_with_the_longest_patterns(m):
    """A pattern of 64 KiB is searched like any other and a longer one is refused with the row's error text.
    A Windows command line holds at most 32,767 characters, so under Wine the pattern is as long as fits."""
    longest = 65536 if m.platform == "native" else 32000
    unit = "C:\\Users\\Bob\\Documents\\"
    pat = (unit * (longest // len(unit) + 1))[:longest]
    near = pat[:longest // 2] + "#" + pat[longest // 2 + 1:]
    make_tree(m, {"big.dat": "\n".join(["C:\\Users\\Bob\\a.txt", near, pat[1:], "x" + pat + "y", pat[:-1]]) + "\n"})
    want = f"Grep returned the following for file: D:\\big.dat\nLine 4: x{pat}y\nDone.\n"
    for switch, p in (("-grep", pat), ("-igrep", pat.upper())):
        r = m.run(switch, p, "D:\\big.dat")
        check(r.stdout == want, f"{switch} of {len(p)} bytes: {r.stdout[:300]!r} ... {r.stdout[-100:]!r}")
    if m.platform == "native":
        r = m.run("-grep", pat + "s", "D:\\big.dat")
        check_eq(r.stdout, "Grep returned the following for file: D:\\big.dat\n"
                 "An error occurred, is the file readable?, errStr=error_pattern_is_too_long\n", "65,537 bytes")


def test_grep_stops_at_10000_hits(m):
    make_tree(m, {"many.dat": "".join(f"hit {i}\n" for i in range(12000))})
    r = m.run("-grep", "hit", "D:\\many.dat")
    out = r.stdout.split("\n")
    check_eq(len(out), 1 + 10000 + 2, "line count")
    check_eq(out[10000], "Line 10000: hit 9999", "last hit")
    check_eq(out[-2], "Done.", "end")
