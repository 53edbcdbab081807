"""What a scan run needs and leaves behind, shared by the scan tests and the
torture script: a machine whose selected volumes carry markers, the
per-volume list read block by block, and the tree on disk in the list's
terms. Paths are host strings (undecodable bytes kept as surrogates)."""

import os
import re

from harness import check, check_eq

HGUID = "0123456789abcdef01234567"
VIRTUAL = {"QZ_TEST_VIRTUAL_TIME": "1"}  # pauses return at once and move the program's clock instead
MARKER = "\\.qzvol\\"  # the run writes its wake-up files into the marker folder as it walks
HEADER_RE = re.compile(r"^# GmtMillisThisListWasStarted: ([0-9a-f]{16}), GmtDateTime: \d{14}$")
FILE_RE = re.compile(r"^([fs])\t([0-9a-f]{16})\t(\d+)\t(.+)$", re.S)
# The folders never made top-level entries (first and second level), compared
# with a backslash appended and without regard to case.
SKIP_STARTS = (":\\windows\\", ":\\windows.old\\", ":\\filehistory\\")
SKIP_CONTAINS = ("\\windows\\", "\\windows.old\\", "\\program files\\", "\\program files (x86)\\",
                 "\\system volume information\\", "\\$recycle.bin\\", "\\$recycler\\", "\\$windows.~bt\\",
                 "\\$windows.~ws\\", "\\wd smartware.swstor\\", "\\wdsmartware.swstor\\", "\\wdbackup.swstor\\",
                 "\\recycler\\", "\\msocache\\", "\\users\\all users\\microsoft help\\", "\\i386\\")


def vguid(letter):
    """The identity the marker of drive `letter` carries: D: is short id 1, E: 2, ..."""
    return f"v{ord(letter) - ord('C'):03x}0123456789ab0123456789ab"


def list_name(letter):
    return f"{vguid(letter)}_c____filelist.dat"  # drive roots all share the tag "c___"


def scan_machine(m, letters="D", settings='excludefiletypes="bak" max_filesize_mb="4000"', extra=""):
    """Install, data directory and the drives (mapped here unless they are
    already), each with its marker and selected for backup; returns their host
    directories in order."""
    m.write_install_xml(hguid=HGUID)
    m.make_datadir()
    dirs, vols = [], ""
    for letter in letters:
        d = m.drives[letter][0] if letter in m.drives else m.map_drive(letter)
        m.mark(d, vguid(letter), HGUID)
        dirs.append(d)
        vols += f'<qzvolume qzVolumeGuid="{vguid(letter)}" mountPointPath="{letter}:\\" />\n'
    m.write_qzinfo('<?xml version="1.0" encoding="UTF-8" ?>\n<contents>\n'
                   f'<settings {settings} />\n{vols}'
                   '<filesetdef filesetname="docs" extensions="txt,doc" />\n'
                   '<filesetdef filesetname="pictures" extensions="jpg,txt" />\n'
                   f'<filesetdef filesetname="music" extensions="mp3" />\n{extra}</contents>\n')
    return dirs


def put(path, size=1, mtime_ms=1_600_000_000_123):
    """A (sparse) file of `size` bytes with the given modification time."""
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as f:
        f.truncate(size)
    os.utime(path, ns=(mtime_ms * 1_000_000, mtime_ms * 1_000_000))


def list_dir(m):
    return os.path.join(m.datadir(), "qzfilelists")


def list_path(m, letter="D"):
    return os.path.join(list_dir(m), list_name(letter))


def leftover_futures(m):
    d = list_dir(m)
    return sorted(n for n in os.listdir(d) if n.endswith((".future", ".future_aside"))) if os.path.isdir(d) else []


def scan(m, *args, timeout=120):
    """A scan in virtual time, which must succeed and leave no growing file."""
    r = m.run(*args, env=VIRTUAL, timeout=timeout)
    check_eq(r.rc, 0, f"exit code of a scan {list(args)}: {r.stderr[-300:]!r}")
    check_eq(leftover_futures(m), [], "future files left")
    return r


def age_locks(m):
    """The next run comes later: a dead run's locks (the scan's, three hours;
    the registry's, two minutes) are stale by then."""
    for root in m.owned_roots():
        for dirpath, _, names in os.walk(root):
            for p in (os.path.join(dirpath, n) for n in names if n.endswith((".lck", ".lock"))):
                old = os.path.getmtime(p) - 4 * 3600
                os.utime(p, (old, old))


def parse_list(data):
    """A per-volume list (bytes) as (header millis or None, blocks, problems):
    blocks are (dir, "# Files:" count, [(type, mtime, size, path)]) in order;
    problems say what is not well formed (none for a good list)."""
    text = os.fsdecode(data)
    if not text:
        return None, [], ["empty list"]
    problems = [] if text.endswith("\n") else ["the last line is not complete"]
    lines = (text[:-1] if text.endswith("\n") else text).split("\n")
    header = HEADER_RE.match(lines[0])
    if not header:
        problems.append(f"bad header {lines[0][:120]!r}")
    blocks, i, n = [], 1, len(lines)
    while i < n:
        if lines[i] != "#" or i + 2 >= n or not lines[i + 1].startswith("# Dir: ") \
                or not re.fullmatch(r"# Files: \d+", lines[i + 2]):
            problems.append(f"line {i + 1}: no block header at {lines[i][:120]!r}")
            break
        d, count, files = lines[i + 1][7:], int(lines[i + 2][9:]), []
        prefix = d if d.endswith("\\") else d + "\\"
        i += 3
        while i < n and lines[i] != "#":
            f = FILE_RE.match(lines[i])
            if f and f.group(4).startswith(prefix) and "\\" not in f.group(4)[len(prefix):]:
                files.append((f.group(1), int(f.group(2), 16), int(f.group(3)), f.group(4)))
            else:
                problems.append(f"line {i + 1}: bad file line {lines[i][:160]!r} in block {d!r}")
            i += 1
        if len(files) > count:
            problems.append(f"block {d!r}: {len(files)} file lines but '# Files: {count}'")
        blocks.append((d, count, files))
    folders = [b[0].lower() for b in blocks]
    if len(folders) != len(set(folders)):
        problems.append("a folder is listed twice")
    return (int(header.group(1), 16) if header else None), blocks, problems


def read_list(m, letter="D"):
    """The volume's list, which must be well formed: (header millis, blocks)."""
    with open(list_path(m, letter), "rb") as f:
        header, blocks, problems = parse_list(f.read())
    check(not problems, f"{letter}: list not well formed: {problems[:5]}")
    return header, blocks


def listed(blocks):
    """path -> [(mtime, size)] of every file line (two items: listed twice)."""
    out = {}
    for _, _, files in blocks:
        for _, mtime, size, path in files:
            out.setdefault(path, []).append((mtime, size))
    return out


def skipped_top_dir(win_path):
    p = win_path.lower() + "\\"
    return any(p[1:].startswith(s) for s in SKIP_STARTS) or any(s in p for s in SKIP_CONTAINS)


def tree_blocks(host_root, letter, ignore=()):
    """The blocks a walk of the tree writes, depth first in the host's order. A
    link to a file is listed as "s" with size 0; a link to a folder is neither
    entered nor counted; the folders the top-level list skips, and names
    holding any of `ignore`, are left out."""
    blocks = []

    def walk(host, win, level):
        files, dirs, count = [], [], 0
        for e in os.scandir(host):
            wp = win + ("" if win.endswith("\\") else "\\") + e.name
            if e.is_dir(follow_symlinks=False):
                if not (level < 2 and skipped_top_dir(wp)) and not any(s in wp + "\\" for s in ignore):
                    dirs.append((e.path, wp))
            elif not e.is_dir():  # a link to a folder is not a file either
                count += 1
                if not any(s in wp for s in ignore):
                    st = e.stat(follow_symlinks=False)
                    link = e.is_symlink()
                    files.append(("s" if link else "f", st.st_mtime_ns // 1_000_000, 0 if link else st.st_size, wp))
        blocks.append((win, count, files))
        for host_dir, wp in dirs:
            walk(host_dir, wp, level + 1)

    walk(host_root, letter + ":\\", 0)
    return blocks


def compare_with_tree(files, expected, what="list"):
    """files (from listed()) names every file of expected (path -> (mtime, size)) once, rightly."""
    missing = [p for p in expected if p not in files]
    twice = [p for p, v in files.items() if len(v) > 1]
    wrong = [p for p, v in files.items() if p in expected and v[0] != expected[p]]
    check(not missing, f"{what}: {len(missing)} files missing, e.g. {missing[:3]}")
    check(not twice, f"{what}: {len(twice)} files listed twice, e.g. {twice[:3]}")
    check(not wrong, f"{what}: {len(wrong)} files with wrong mtime or size, e.g. "
                     f"{[(p, files[p], expected[p]) for p in wrong[:3]]}")


def tree_files(host_root, letter, ignore=()):
    """path -> (mtime, size) of every file a walk of the tree lists."""
    return {p: (mt, size) for _, _, files in tree_blocks(host_root, letter, ignore) for _, mt, size, p in files}


def check_list(m, host_root, letter="D", ignore=(MARKER,)):
    """The volume's list is well formed and names every file of its tree once."""
    _, blocks = read_list(m, letter)
    compare_with_tree({p: v for p, v in listed(blocks).items() if not any(s in p for s in ignore)},
                      tree_files(host_root, letter, ignore), f"{letter}: list")
    return blocks
