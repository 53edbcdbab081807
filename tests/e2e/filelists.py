"""Readers for what a scan run leaves behind, shared by the scan tests and the
torture script: a per-volume list checked line by line, the tree on disk in
the list's terms, and a sample machine whose selected volumes are trees."""

import os
import re

from harness import check

HEADER_RE = re.compile(rb"^# GmtMillisThisListWasStarted: [0-9a-f]{16}, GmtDateTime: \d{14}$")
FILE_RE = re.compile(rb"^([fs])\t([0-9a-f]{16})\t(\d+)\t(.+)$", re.S)
# The folders never made top-level entries (first and second level), compared
# with a backslash appended and without regard to case.
SKIP_STARTS = (":\\windows\\", ":\\windows.old\\", ":\\filehistory\\")
SKIP_CONTAINS = ("\\windows\\", "\\windows.old\\", "\\program files\\", "\\program files (x86)\\",
                 "\\system volume information\\", "\\$recycle.bin\\", "\\$recycler\\", "\\$windows.~bt\\",
                 "\\$windows.~ws\\", "\\wd smartware.swstor\\", "\\wdsmartware.swstor\\", "\\wdbackup.swstor\\",
                 "\\recycler\\", "\\msocache\\", "\\users\\all users\\microsoft help\\", "\\i386\\")


def parse_list(data):
    """Checks a per-volume list (bytes). Returns (files, dirs, problems): files
    maps each path (bytes) to [(mtime, size)] (more than one item = listed
    twice), dirs lists the "# Dir:" paths in order, problems says what is not
    well formed (empty when the list is)."""
    problems, files, dirs = [], {}, []
    if not data:
        return files, dirs, ["empty list"]
    if not data.endswith(b"\n"):
        problems.append("the last line is not complete")
    lines = data.split(b"\n")[:-1] if data.endswith(b"\n") else data.split(b"\n")
    if not HEADER_RE.match(lines[0]):
        problems.append(f"bad header {lines[0][:120]!r}")
    i, n = 1, len(lines)
    while i < n:
        if lines[i] != b"#" or i + 2 >= n or not lines[i + 1].startswith(b"# Dir: ") \
                or not re.match(rb"^# Files: \d+$", lines[i + 2]):
            problems.append(f"line {i + 1}: no block header at {lines[i][:120]!r}")
            break
        d = lines[i + 1][len(b"# Dir: "):]
        count = int(lines[i + 2][len(b"# Files: "):])
        dirs.append(d)
        prefix = d if d.endswith(b"\\") else d + b"\\"
        i += 3
        listed = 0
        while i < n and not lines[i].startswith(b"#"):
            m = FILE_RE.match(lines[i])
            if not m or not m.group(4).startswith(prefix) or b"\\" in m.group(4)[len(prefix):]:
                problems.append(f"line {i + 1}: bad file line {lines[i][:160]!r} in block {d!r}")
            else:
                files.setdefault(m.group(4), []).append((int(m.group(2), 16), int(m.group(3))))
                listed += 1
            i += 1
        if listed > count:
            problems.append(f"block {d!r}: {listed} file lines but '# Files: {count}'")
    seen = set()
    for d in dirs:
        if d.lower() in seen:
            problems.append(f"folder listed twice: {d!r}")
        seen.add(d.lower())
    return files, dirs, problems


def skipped_top_dir(win_path):
    p = win_path.lower() + "\\"
    return any(p[1:].startswith(s) for s in SKIP_STARTS) or any(s in p for s in SKIP_CONTAINS)


def tree_files(host_root, letter, ignore=()):
    """The files of a tree as the list names them: Windows path (bytes) ->
    (mtime millis, size). Symbolic links are left out; so are the system
    folders the top-level list skips, and names containing any of `ignore`."""
    out = {}
    root = os.fsencode(host_root)

    def walk(host, win, level):
        for e in os.scandir(host):
            wp = win + (b"" if win.endswith(b"\\") else b"\\") + e.name
            if any(s in wp for s in ignore):
                continue
            if e.is_symlink():
                continue
            if e.is_dir():
                if level < 2 and skipped_top_dir(os.fsdecode(wp)):
                    continue
                walk(e.path, wp, level + 1)
            else:
                st = e.stat(follow_symlinks=False)
                out[wp] = (st.st_mtime_ns // 1000000, st.st_size)
    walk(root, letter.encode() + b":\\", 0)
    return out


def compare_with_tree(files, expected, what="list"):
    """Every expected file listed exactly once with its mtime and size."""
    missing = [p for p in expected if p not in files]
    twice = [p for p, v in files.items() if len(v) > 1]
    wrong = [p for p, v in files.items() if p in expected and v[0] != expected[p]]
    check(not missing, f"{what}: {len(missing)} files missing, e.g. {missing[:3]}")
    check(not twice, f"{what}: {len(twice)} files listed twice, e.g. {twice[:3]}")
    check(not wrong, f"{what}: {len(wrong)} files with wrong mtime or size, e.g. "
                     f"{[(p, files[p], expected[p]) for p in wrong[:3]]}")


def setup_scan_machine(m, letters, hguid="h0123456789abcdef0123456"):
    """Gives each drive (already mapped) an identity and selects them all for
    backup. Returns {letter: vguid}."""
    m.write_install_xml(hguid=hguid)
    m.make_datadir()
    guids = {}
    for letter in letters:
        r = m.run("-assignvolumeguid", f"{letter}:\\")
        found = re.search(r"vGuid: (v[0-9a-z]{27})", r.stdout)
        check(found, f"no identity for {letter}: {r.stdout!r}")
        guids[letter] = found.group(1)
    vols = "".join(f'<qzvolume qzVolumeGuid="{g}" mountPointPath="{l}:\\" />\n' for l, g in guids.items())
    m.write_qzinfo('<?xml version="1.0" encoding="UTF-8" ?>\n<contents>\n'
                   '<qzinfo excludefiletypes="tmp,bak" max_filesize_mb="4000" numdays_warn_if_no_backup="7" />\n'
                   f'<hard_drives_to_backup>\n{vols}</hard_drives_to_backup>\n</contents>\n')
    return guids


def list_dir(m):
    return os.path.join(m.datadir(), "qzfilelists")


def list_path(m, vguid):
    """The volume's list (drive roots all share the tag "c___")."""
    return os.path.join(list_dir(m), f"{vguid}_c____filelist.dat")


def leftover_futures(m):
    d = list_dir(m)
    if not os.path.isdir(d):
        return []
    return sorted(n for n in os.listdir(d) if n.endswith(".future") or n.endswith(".future_aside"))


def scan_available(r):
    return "the scan run is not available" not in r.stderr
