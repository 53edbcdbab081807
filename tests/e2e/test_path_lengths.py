"""Path lengths: every switch that takes a path, and the scan, given paths of
259, 260, 261, 32,000 and 32,767 UTF-16 units. Each answers as its row says,
with its success text or its error text, and never crashes. Paths up to 261
units exist on disk; the longer ones exist only where the host allows (the
scan's tree is built one folder at a time, so natively they do)."""

import os
import re

from harness import check, check_eq
from filelists import VIRTUAL, list_path, scan_machine

LENGTHS = (259, 260, 261, 32000, 32767)
SEGMENT = 200  # characters of a folder name (hosts allow 255 bytes)


def long_path(length, leaf):
    """ "D:\\" + folders + a name ending in leaf, `length` UTF-16 units long; one "é" per folder."""
    body, parts = length - 3, []
    while body > len(leaf) + SEGMENT + 1:
        parts.append("é" + "d" * (SEGMENT - 1))
        body -= SEGMENT + 1
    path = "D:\\" + "".join(p + "\\" for p in parts) + "f" * (body - len(leaf)) + leaf
    check_eq(len(path.encode("utf-16-le")) // 2, length, "path length in UTF-16 units")
    return path


def make(m, path, is_dir=False):
    """Creates the file (or folder) one folder at a time; False when the host refuses."""
    host_root = m.host_path("D:\\")
    parts = path[3:].split("\\")
    fd = os.open(host_root, os.O_RDONLY)
    try:
        for name in parts[:-1] if not is_dir else parts:
            try:
                os.mkdir(name, dir_fd=fd)
            except FileExistsError:
                pass
            nxt = os.open(name, os.O_RDONLY, dir_fd=fd)
            os.close(fd)
            fd = nxt
        if not is_dir:
            os.close(os.open(parts[-1], os.O_WRONLY | os.O_CREAT, 0o644, dir_fd=fd))
        return True
    except OSError:
        return False
    finally:
        os.close(fd)


def too_long_for_windows(m, args):
    """Windows starts no process whose command line (program name included) passes
    32,767 UTF-16 units: the switch is never reached."""
    units = sum(len(a.encode("utf-16-le")) // 2 + 1 for a in ["qzfilelist.exe", *args])
    return m.platform == "wine" and units > 32767 - 260


DIRLIST = (r"(DirList of \d+ items for: {p}\n.*End\.|Directory does not exist: {p}|This is not a directory: {p}|"
           r"Directory contained zero files: {p})\n")
GREP = r"(Grep returned the following for file: {p}\nDone\.|File does not exist: {p})\n"
# switch, operands before the path, after it, and what stdout may be: the
# row's success text or its error text. {p} is the path as given.
ROWS = [
    ("-fileinfo", [], [], r"FileInfo for: {p}\n(  fileSizeInBytes: .*|File does not exist\.\n)"),
    ("-diagnose_read_problem", [], [], r"Diagnosing this file for ability to read: {p}\n(File exists, and there was no "
     r"problem reading the file\.|QzFile::DiagnoseFileReadProblem failed - file does not exist: {p}, errStr=.*|"
     r"File exists, could not read for intReason=.*)\n"),
    ("-dllinfo", [], [], r"DllInfo from a 64 bit process for: {p}\n.*"),
    ("-dirlist", [], [], DIRLIST),
    ("-dirlistdetail", [], [], DIRLIST),
    ("-volumeinfo", [], [], r"VolumeInfo for: {p}\n.*"),
    ("-getvolumeinfofromfilename", [], [], r"VolumeInfo for file: {p}\n.*"),
    ("-assignvolumeguid", [], [], r"(TRUE|FALSE): .*\n"),
    ("-copy_rsrc_fork", [], ["D:\\fork.out"], r"FileInfo for: {p}\n(File has no resource fork\.|File does not exist\.)\n"),
    ("-grep", ["x"], [], GREP),
    ("-igrep", ["x"], [], GREP),
    ("-open_file_exclusive", [], [], r"Opening this file exclusively: {p}\nFile does not exist - not valid to use "
     r"this command\.\n"),
]


def test_every_path_switch_at_the_edge_lengths(m):
    scan_machine(m)
    for length in LENGTHS:
        existing = long_path(length, "a.txt")
        made = length <= 261 and make(m, existing)
        check(made or length > 261, f"could not create a {length}-unit path")
        missing = long_path(length, "b.txt")  # never created: the exclusive hold would last an hour
        for switch, before, after, want in ROWS:
            for p in ([missing] if switch == "-open_file_exclusive" else [existing, missing]):
                args = [switch, *before, p, *after]
                r = m.run(*args, timeout=60)
                what = f"{switch} at {length} units ({'exists' if p == existing and made else 'missing'})"
                if too_long_for_windows(m, args):
                    check(r.stdout == "" and r.rc != 0, f"{what}: started with too long a command line: {r}")
                    continue
                check(r.rc == 0, f"{what}: exit code {r.rc}, stderr {r.stderr[:300]!r}")
                check(re.fullmatch(want.replace("{p}", re.escape(p)), r.stdout, re.S),
                      f"{what}: unexpected output {r.stdout[:400]!r}")
        # The volume list goes to a file inside the flags folder; at these lengths it may be refused.
        out = m.datadir_win + "qzflags/" + "v" * max(1, length - len(m.datadir_win) - len("qzflags/"))
        r = m.run("-listvolumestofile", out, timeout=60)
        if too_long_for_windows(m, ["-listvolumestofile", out]):
            check(r.stdout == "" and r.rc != 0, f"-listvolumestofile at {length}: started with too long a command line")
            continue
        check((r.rc, r.stdout) == (0, "SUCCESS\n") or (r.rc == 1 and r.stdout.startswith("ERROR: ")),
              f"-listvolumestofile at {length} units: rc={r.rc} {r.stdout[:300]!r}")
        if length <= 261:
            check_eq((r.rc, r.stdout), (0, "SUCCESS\n"), f"-listvolumestofile at {length} units")


def test_scan_lists_files_at_the_edge_lengths(m):
    scan_machine(m)
    made = {length: make(m, long_path(length, "s.txt")) for length in LENGTHS}
    for length in (259, 260, 261):
        check(made[length], f"could not create a {length}-unit path")
    r = m.run(env=VIRTUAL, timeout=300)
    check_eq(r.rc, 0, "scan exit code")
    with open(list_path(m), encoding="utf-8") as f:
        listed = {line.split("\t")[3] for line in f.read().splitlines() if line.startswith("f\t")}
    for length in LENGTHS:
        p = long_path(length, "s.txt")
        # Windows names at most 32,767 units; the host may stop sooner: then the folder is logged and skipped.
        if length <= 261:
            check(p in listed, f"the {length}-unit file is not listed")
