"""The file diagnostics: directory listings, single-file probes, DLL checks,
grep. Each runs the real program on a prepared drive and compares its output
with the exact texts support engineers read."""

import os
import struct

from harness import check, check_eq, check_match, peek, write


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


def test_dirlist_and_dirlistdetail(m):
    d = make_tree(m, {"data/a.txt": "12345", "data/Résumé 日本語.doc": "x", "data/sub": None, "dd/five.bin": "12345",
                      "file.txt": "x", "empty": None, "real": None})
    r = m.run("-dirlist", "D:\\data")
    lines = r.stdout.split("\n")
    check_eq((r.rc, lines[0], lines[-2:]), (0, "DirList of 3 items for: D:\\data", ["End.", ""]), "frame")
    # The file system's order, numbered from 0.
    check_eq([l[:12] for l in lines[1:-2]], [f" Item   {i} - " for i in range(3)], "item numbers")
    check_eq(sorted(l[12:] for l in lines[1:-2]), [" dir: sub", "file: Résumé 日本語.doc", "file: a.txt"], "items")
    r = m.run("-dirlistdetail", "D:\\dd\\")
    lines = r.stdout.split("\n")
    check_eq(lines[:3], ["DirList of 1 items for: D:\\dd\\", "", " Item   0 - file: five.bin"], "head")
    check_eq([l.split(":")[0] for l in lines[3:13]],
             ["  fileSizeInBytes", "  rsrcForkInBytes", "  isDirectory", "  isSymLinkOrReparsePoint",
              "  linked file count", "  isBundlePackageDir", "  isAliasFile", "  isAppropriateToModifyFile",
              "  creationTime (GMT)", "  lastModifiedTime (GMT)"], "detail fields")
    check_eq((lines[3], lines[5]), ("  fileSizeInBytes: 5", "  isDirectory: false"), "size and kind")
    check_match(r"^  lastModifiedTime \(GMT\): \d{4}-\d\d-\d\d \d\d:\d\d:\d\d$", lines[12], "time")
    check_eq(lines[13:], ["End.", ""], "tail")
    # Listing never climbs above a drive root.
    root = m.run("-dirlist", "D:\\").stdout
    check_eq(m.run("-dirlist", "D:\\..\\..").stdout.replace("D:\\..\\..", "D:\\"), root, "-dirlist D:\\..\\..")
    # A freshly formatted drive's root has no "." entry: an empty listing, not a failed one.
    m.map_drive("E")
    cases = [("D:\\missing", "Directory does not exist: D:\\missing\n"),
             ("D:\\file.txt", "This is not a directory: D:\\file.txt\n"),
             ("D:\\empty", "Directory contained zero files: D:\\empty\n"),
             ("E:\\", "Directory contained zero files: E:\\\n"),
             ("Q:\\nodrive", "Directory does not exist: Q:\\nodrive\n"),
             # Nothing outside the machine's drives exists: not the empty path, and
             # not the host's own /tmp through a path without a drive letter.
             ("", "Directory does not exist: \n"),
             ("\\tmp", "Directory does not exist: \\tmp\n")]
    if m.platform == "native":  # Wine shows a Unix symbolic link as a plain directory
        os.symlink(os.path.join(d, "real"), os.path.join(d, "link"))
        cases.append(("D:\\link", "This is a symlink or reparse point: D:\\link\n"))
    for arg, want in cases:
        for switch in ("-dirlist", "-dirlistdetail"):
            r = m.run(switch, arg)
            check_eq((r.rc, r.stdout), (0, want), f"{switch} {arg}")


def test_fileinfo_diagnose_read_problem_and_copy_rsrc_fork(m):
    make_tree(m, {"r/a.txt": "hello"})
    lines = m.run("-fileinfo", "D:\\r\\a.txt").stdout.split("\n")
    check_eq(lines[:2] + lines[3:6] + lines[12:14],
             ["FileInfo for: D:\\r\\a.txt", "  fileSizeInBytes: 5", "  isDirectory: false",
              "  isSymLinkOrReparsePoint: false", "  linked file count: 1", "  qzserv_login_name: qzunknown",
              "  successfully_read_in_file: 5 bytes"], "-fileinfo")
    check_match(r"^  (yes_have_admin_rights|no_admin_rights)_login_name: \S.*$", lines[11], "login line")
    check_match(r"^  my_current_login_has_rights_to_read_file: true, detail=.*$", lines[14], "own rights")
    check_match(r"^  qzserv_login_has_rights_to_read_file: false, detail=.*$", lines[15], "service rights")
    # The service account's name comes from the reports folder.
    write(os.path.join(m.make_datadir(), "qzreports", "qzserv_runs_as.txt"), "SYSTEM\r\n")
    check("  qzserv_login_name: SYSTEM\n" in m.run("-fileinfo", "D:\\r\\a.txt").stdout, "service account from the file")
    gone = "QzFile::DiagnoseFileReadProblem failed - file does not exist: "
    for switch, path, answer in [
            ("-fileinfo", "D:\\r\\no.txt", "File does not exist."),
            ("-diagnose_read_problem", "D:\\r\\a.txt", "File exists, and there was no problem reading the file."),
            ("-diagnose_read_problem", "D:\\r\\no.txt", gone + "D:\\r\\no.txt, errStr=QZ_FILE_PERMANENT_DOES_NOT_EXIST"),
            ("-diagnose_read_problem", "Q:\\no.txt", gone + "Q:\\no.txt, errStr=QZ_FILE_TEMPORARY_DRIVE_UNPLUGGED"),
            ("-diagnose_read_problem", "D:\\r",
             "File exists, could not read for intReason=2, strReason=QZ_FILE_PERMANENT_BAD_PERMISSIONS"),
            ("-copy_rsrc_fork", "D:\\r\\a.txt", "File has no resource fork."),
            ("-copy_rsrc_fork", "D:\\r\\no.txt", "File does not exist.")]:
        head = "Diagnosing this file for ability to read: " if switch == "-diagnose_read_problem" else "FileInfo for: "
        r = m.run(switch, path, *(["D:\\out.bin"] if switch == "-copy_rsrc_fork" else []))
        check_eq((r.rc, r.stdout), (0, f"{head}{path}\n{answer}\n"), f"{switch} {path}")


def test_open_file_exclusive_holds_the_file(m):
    make_tree(m, {"x/held.txt": "held"})
    r = m.run("-open_file_exclusive", "D:\\x\\missing.txt")
    check_eq(r.stdout, "Opening this file exclusively: D:\\x\\missing.txt\n"
             "File does not exist - not valid to use this command.\n", "missing file")
    with m.hold("D:\\x\\held.txt", by_program=True) as holder:
        check_eq(peek(holder.qz_out).decode().replace("\r\n", "\n"), "Opening this file exclusively: D:\\x\\held.txt\n"
                 "Holding file exclusively seconds=0 ...\n", "holder output")
        r = m.run("-diagnose_read_problem", "D:\\x\\held.txt")
        check("could not read for intReason=3, strReason=QZ_FILE_TEMPORARY_FILE_BUSY" in r.stdout, r.stdout)
        r = m.run("-open_file_exclusive", "D:\\x\\held.txt")
        check_eq(r.stdout, "Opening this file exclusively: D:\\x\\held.txt\nFile exists but "
                 "QzOpenFileReadOnlyExclusive Failed on: D:\\x\\held.txt, errStr=Another_Process_Has_File_Open_\n",
                 "second holder")
        r = m.run("-grep", "x", "D:\\x\\held.txt")
        check_eq(r.stdout, "An error occurred, is the file readable?, errStr=Another_Process_Has_File_Open_\n",
                 "grep of a held file")


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


def test_grep_and_igrep(m):
    lines = ["C:\\Users\\Bob\\notes.txt\t0000018c3a\t12", "C:\\Users\\bob\\BOB.doc\t0000018c3b\t7",
             "nothing here", "Résumé BOB"]
    # A pattern of 64 KiB is searched like any other and a longer one is refused with the row's error text.
    # A Windows command line holds at most 32,767 characters, so under Wine the pattern is as long as fits.
    longest = 65536 if m.platform == "native" else 32000
    unit = "C:\\Users\\Bob\\Documents\\"
    pat = (unit * (longest // len(unit) + 1))[:longest]
    near = pat[:longest // 2] + "#" + pat[longest // 2 + 1:]
    make_tree(m, {"list.dat": "\n".join(lines) + "\n", "many.dat": "".join(f"hit {i}\n" for i in range(12000)),
                  "big.dat": "\n".join(["C:\\Users\\Bob\\a.txt", near, pat[1:], "x" + pat + "y", pat[:-1]]) + "\n"})
    head = "Grep returned the following for file: D:\\"
    check_eq(m.run("-grep", "Bob", "D:\\list.dat").stdout, f"{head}list.dat\nLine 1: {lines[0]}\nDone.\n", "-grep")
    check_eq(m.run("-igrep", "bob", "D:\\list.dat").stdout,
             f"{head}list.dat\nLine 1: {lines[0]}\nLine 2: {lines[1]}\nLine 4: {lines[3]}\nDone.\n", "-igrep")
    check_eq(m.run("-grep", "x", "D:\\none.dat").stdout, "File does not exist: D:\\none.dat\n", "missing file")
    out = m.run("-grep", "hit", "D:\\many.dat").stdout.split("\n")
    check_eq((len(out), out[10000], out[-2]), (1 + 10000 + 2, "Line 10000: hit 9999", "Done."), "stops at 10,000 hits")
    for switch, p in (("-grep", pat), ("-igrep", pat.upper())):
        r = m.run(switch, p, "D:\\big.dat")
        check(r.stdout == f"{head}big.dat\nLine 4: x{pat}y\nDone.\n", f"{switch} of {len(p)} bytes: {r.stdout[:300]!r}")
    if m.platform == "native":
        check_eq(m.run("-grep", pat + "s", "D:\\big.dat").stdout, f"{head}big.dat\n"
                 "An error occurred, is the file readable?, errStr=error_pattern_is_too_long\n", "65,537 bytes")
