"""Machines for the end-to-end tests: a fresh set of drives per test, the real
program run on them, and readers for what it leaves behind.

Natively the drives are directories named through QZ_DRIVES. Under Wine one
prefix serves the whole run: its C: drive is reset before each test and extra
drives are links in dosdevices/ to per-test directories.

A test is a function test_*(m) in a test_*.py module; m is a fresh Machine
(see its methods). Checks raise AssertionError through check(), check_eq(),
check_match(); raise Skip("why") when the test cannot judge.
"""

import contextlib
import datetime
import fcntl
import os
import re
import shutil
import subprocess
import tempfile
import time
from collections import namedtuple

VERSION = "9.1.0.833"
INSTALL_DIR = "C:\\Program Files\\Korvatine\\"
DEFAULT_DATADIR = "C:\\ProgramData\\Korvatine\\qzdata\\"
UNKNOWN_HGUID = "9" * 24
HGUID_FALLBACK_LINE = ("ERROR: QzFile_Internal_Only_GetMyHostGuid - failed to get correct hguid "
                       "from qzinstall.xml, falling back to 999999999999999999999999")
NO_QZINFO_LINE = "ERROR: qzfilelist could not find a qzinfo.xml file"

Result = namedtuple("Result", "rc stdout stderr")
LogLine = namedtuple("LogLine", "time pid message raw")

# "YYYY-MM-DD HH:MM:SS" + " %10d" + " - " + message
LOG_LINE_RE = re.compile(r"^(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d) ([ \d]{9}\d) - (.*)$", re.S)

# Wine's names for the drive types, kept in HKLM\Software\Wine\Drives.
WINE_DRIVE_TYPES = {"removable": "floppy", "remote": "network", "cdrom": "cdrom", "ramdisk": "ramdisk"}


class Skip(Exception):
    """Raised by a test that cannot judge the program here (wrong platform, clock crossed midnight)."""


def check(cond, message):
    if not cond:
        raise AssertionError(message)


def check_eq(actual, expected, what="value"):
    if actual != expected:
        raise AssertionError(f"{what}: expected {expected!r}, got {actual!r}")


def check_match(pattern, text, what="text"):
    m = re.match(pattern, text, re.S)
    if not m:
        raise AssertionError(f"{what}: {text!r} does not match {pattern!r}")
    return m


def write(path, text):
    """Writes a UTF-8 text file as is (no newline translation), creating its folders."""
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w", encoding="utf-8", newline="") as f:
        f.write(text)


def read(path):
    with open(path, encoding="utf-8", newline="") as f:
        return f.read()


def marker_xml(vguid, hguid, readme="x"):
    """The text of a volume marker, .qzvol\\qzvol_id.xml."""
    return ('<?xml version="1.0" encoding="UTF-8" ?>\n<contents>\n'
            f'<readme txt="{readme}" />\n<qzvolume vguid="{vguid}" associated_hguid="{hguid}" />\n</contents>\n')


def gmt_now():
    return datetime.datetime.now(datetime.timezone.utc)


def parse_log_line(raw):
    m = LOG_LINE_RE.match(raw)
    if not m:
        raise AssertionError(f"malformed log line: {raw!r}")
    return LogLine(m.group(1), int(m.group(2)), m.group(3), raw)


def startup_line_re(args, hguid=UNKNOWN_HGUID, buffering=True):
    """The start-up line for a run with these arguments, as a regex."""
    called = "".join(f"arg{i}={re.escape(a)} " for i, a in enumerate(args, 1))
    flag = "buffering_is_on" if buffering else "BUFFERING_IS_TURNED_OFF"
    return (rf"qzfilelist processId=(\d+) version={re.escape(VERSION)}, myhguid={re.escape(hguid)}, "
            rf"myProc64=TRUE, numMBytesStartVirtualMemSize=(\d+), numMBytesStartResidentMemSize=(\d+), "
            rf"numMBytesStartHardwareRamMemSize=(\d+), {flag}, called with args: {called}$")


def peek(f):
    """What a started program has written so far into one of its output files."""
    f.seek(0)
    return f.read()


def _read_temp(f):
    data = peek(f)
    f.close()
    return data


def _decode(data):
    return data.decode("utf-8", errors="surrogateescape")


def _quiet(cmd, env, cwd=None, stdout=subprocess.DEVNULL):
    """Runs a helper program with its output detached (or stdout piped)."""
    return subprocess.run(cmd, env=env, cwd=cwd, stdin=subprocess.DEVNULL, stdout=stdout,
                          stderr=subprocess.DEVNULL, timeout=600, check=False)


class WinePrefix:
    """One Wine prefix for the whole run, with a server kept alive between tests.

    The server is started by us with its output detached: one started by the
    program would inherit our pipes and keep them open after the program ends.
    Wine reads the drive list and drive types when its server starts, so the
    server is restarted whenever a test changes either.
    """

    # Where Debian's wine64 package puts them, as tests/wine/wine-run.sh expects too.
    loader = "/usr/lib/wine/wine64"
    server = "/usr/lib/wine/wineserver64"

    def __init__(self, tmp_root):
        self.prefix = os.path.join(tmp_root, "wineprefix")
        os.makedirs(self.prefix)
        self.drive_c = os.path.join(self.prefix, "drive_c")
        self.dosdevices = os.path.join(self.prefix, "dosdevices")
        self.types = {}  # drive letter -> Wine type we wrote to the registry
        self.server_config = None  # drive links and types the running server started with
        started = time.monotonic()
        _quiet([self.loader, "wineboot", "-i"], self.env())
        # wineboot returns before the registry is written out.
        self._server("-w")
        self.creation_seconds = time.monotonic() - started
        if not os.path.isdir(os.path.join(self.drive_c, "windows")):
            raise RuntimeError(f"wineboot did not create a usable prefix in {self.prefix}")
        # Only the drives a test maps are visible; Z: (the whole host) is not one of them.
        self._remove_links(keep=("c:",))

    def env(self, extra=None):
        env = dict(os.environ)
        for k in ("DISPLAY", "WAYLAND_DISPLAY", "LC_ALL", "LC_CTYPE", "QZ_DRIVES"):
            env.pop(k, None)
        env.update({"WINEPREFIX": self.prefix, "WINEDEBUG": "-all", "WINEDLLOVERRIDES": "mscoree,mshtml=",
                    # Wine turns the Unix arguments into the Windows command line with the
                    # locale's character set; without UTF-8 non-ASCII arguments arrive garbled.
                    "LANG": "C.UTF-8"})
        if extra:
            env.update(extra)
        return env

    def _server(self, *args):
        _quiet([self.server, *args], self.env())

    def _links(self):
        return sorted(n for n in os.listdir(self.dosdevices) if re.fullmatch(r"[a-z]:", n))

    def _remove_links(self, keep):
        for name in self._links():
            if name not in keep:
                os.unlink(os.path.join(self.dosdevices, name))

    def reset(self):
        """Puts C: back to a fresh install state and unmaps every other drive."""
        for sub in ("ProgramData", "Program Files"):
            d = os.path.join(self.drive_c, sub, "Korvatine")
            shutil.rmtree(d, ignore_errors=True)
            os.makedirs(d)
        shutil.rmtree(os.path.join(self.drive_c, ".qzvol"), ignore_errors=True)  # the system volume's old marker
        self._remove_links(keep=("c:",))

    def map_drive(self, letter, host_dir):
        link = os.path.join(self.dosdevices, letter.lower() + ":")
        if os.path.lexists(link):
            os.unlink(link)
        os.symlink(host_dir, link)

    def set_drive_types(self, wanted):
        """wanted: letter -> Wine type for the non-fixed drives; others go back to Wine's default."""
        for letter in sorted(set(self.types) | set(wanted)):
            if self.types.get(letter) == wanted.get(letter):
                continue
            if self.server_config is None:
                self._start_server()
                self.server_config = (tuple(self._links()), tuple(sorted(self.types.items())))
            value = ["/d", wanted[letter]] if letter in wanted else []
            _quiet([self.loader, "reg", "add" if value else "delete", "HKLM\\Software\\Wine\\Drives", "/v",
                    letter.lower() + ":", *value, "/f"], self.env(), self.drive_c)
        self.types = dict(wanted)

    def prepare_run(self):
        """Starts (or restarts) the server so it sees the current drives."""
        config = (tuple(self._links()), tuple(sorted(self.types.items())))
        if self.server_config is not None and self.server_config != config:
            self._server("-k")
            self._server("-w")
            self.server_config = None
        if self.server_config is None:
            self._start_server()
            self.server_config = config

    def _start_server(self):
        self._server("-p")
        # The first program of a server session starts Wine's own background
        # processes; start them here, detached from any output we read.
        _quiet([self.loader, "cmd", "/c", "exit"], self.env(), self.drive_c)

    def close(self):
        self._server("-k")
        self._server("-w")


class Machine:
    """A fresh machine for one test: drives, install and data folders, the program.

    Paths handed to the program are Windows form; the helpers turn them into
    host paths. Nothing exists at first but empty "C:\\ProgramData\\Korvatine"
    and "C:\\Program Files\\Korvatine" folders: no qzinstall.xml, no data dir.
    """

    def __init__(self, platform, exe, workdir, wine=None):
        self.platform = platform
        self.exe = exe
        self.root = workdir
        self.wine = wine
        self.history = []  # (args, Result) of every run, for failure reports
        self.drives = {}  # letter -> (host dir, kind)
        self.datadir_win = DEFAULT_DATADIR
        os.makedirs(workdir, exist_ok=True)
        if platform == "wine":
            wine.reset()
            wine.set_drive_types({})
            self.drives["C"] = (wine.drive_c, "fixed")
        else:
            c = os.path.join(workdir, "c")
            self.drives["C"] = (c, "fixed")
            for sub in ("ProgramData", "Program Files"):
                os.makedirs(os.path.join(c, sub, "Korvatine"))

    # ---- paths ----
    def host_path(self, win_path):
        """Host path of a Windows path "X:\\a\\b" on one of this machine's drives."""
        m = re.match(r"^([A-Za-z]):[\\/]?(.*)$", win_path, re.S)
        parts = [p for p in re.split(r"[\\/]", m.group(2)) if p]
        return os.path.join(self.drives[m.group(1).upper()][0], *parts)

    def c(self, path=""):
        return self.host_path("C:\\" + path)

    def map_drive(self, letter, kind="fixed"):
        """Maps a drive letter to a new empty directory; returns that directory."""
        letter = letter.upper()
        d = os.path.join(self.root, "drive_" + letter.lower())
        os.makedirs(d)
        self.drives[letter] = (d, kind)
        if self.platform == "wine":
            self.wine.map_drive(letter, d)
            self.wine.set_drive_types({l: WINE_DRIVE_TYPES[k] for l, (_, k) in self.drives.items()
                                       if k != "fixed"})
        return d

    def map_empty_drive(self, letter):
        """A drive holding only the folders Windows puts on every drive: an empty volume."""
        d = self.map_drive(letter)
        for folder in ("$RECYCLE.BIN", "System Volume Information"):
            os.makedirs(os.path.join(d, folder))
        return d

    def mark(self, host_dir, vguid, hguid, readme="x"):
        """Puts a volume marker on the drive at host_dir; returns its path."""
        path = os.path.join(host_dir, ".qzvol", "qzvol_id.xml")
        write(path, marker_xml(vguid, hguid, readme))
        return path

    def qz_drives(self):
        return ";".join(f"{l}={d}" + ("" if k == "fixed" else f"|{k}")
                        for l, (d, k) in sorted(self.drives.items()))

    # ---- install and data ----
    def write_install_xml(self, datadir=None, hguid=None, raw=None):
        """Writes <install dir>qzinstall.xml with the given attributes (or raw text)."""
        if raw is None:
            attrs = "".join(f' {k}="{v}"' for k, v in (("datadir", datadir), ("hguid", hguid)) if v is not None)
            raw = f'<?xml version="1.0" encoding="UTF-8"?>\n<qzinstall{attrs} />\n'
        path = self.host_path(INSTALL_DIR + "qzinstall.xml")
        write(path, raw)
        if datadir:
            # As the program does: one trailing separator is dropped, then one added.
            self.datadir_win = (datadir[:-1] if datadir[-1] in "\\/" else datadir) + "\\"
        else:
            self.datadir_win = DEFAULT_DATADIR
        return path

    def datadir(self):
        return self.host_path(self.datadir_win)

    def make_datadir(self):
        os.makedirs(self.datadir(), exist_ok=True)
        return self.datadir()

    def write_qzinfo(self, text=None):
        if text is None:
            text = ('<?xml version="1.0" encoding="UTF-8"?>\n<qzinfo>\n'
                    '<qzvolume qzVolumeGuid="v0010000000000000000000000000001" mountPointPath="C:\\" />\n'
                    '</qzinfo>\n')
        path = os.path.join(self.make_datadir(), "qzinfo.xml")
        write(path, text)
        return path

    def select_volumes(self, *volumes):
        """qzinfo.xml selecting these (volume GUID, mount point) pairs for backup."""
        self.write_qzinfo('<?xml version="1.0" encoding="UTF-8" ?>\n<contents>\n<hard_drives_to_backup>\n' +
                          "".join(f'<qzvolume qzVolumeGuid="{g}" mountPointPath="{p}" />\n' for g, p in volumes) +
                          "</hard_drives_to_backup>\n</contents>\n")

    def disable_buffering(self):
        path = os.path.join(self.make_datadir(), "qzfilelists", "qzfilelistdisablebuffering.txt")
        write(path, "")
        return path

    # ---- running ----
    def _command(self, args, extra_env):
        if self.platform == "wine":
            self.wine.prepare_run()
            return [self.wine.loader, self.exe, *args], self.wine.env(extra_env), self.wine.drive_c
        env = dict(os.environ)
        env["QZ_DRIVES"] = self.qz_drives()
        if extra_env:
            env.update(extra_env)
        return [self.exe, *args], env, self.root

    def wine_cmd(self, *args):
        """Runs one of Wine's own programs (reg, ...) in the prefix; returns its output."""
        self.wine.prepare_run()
        return _decode(_quiet([self.wine.loader, *args], self.wine.env(), self.wine.drive_c, subprocess.PIPE).stdout)

    def _result(self, rc, out, err):
        # The Windows C runtime writes text-mode "\n" as "\r\n".
        fix = (lambda t: t.replace("\r\n", "\n")) if self.platform == "wine" else (lambda t: t)  # noqa: E731
        return Result(rc, fix(_decode(out)), fix(_decode(err)))

    def start(self, *args, env=None):
        """Starts the program without waiting; finish it with wait()."""
        cmd, full_env, cwd = self._command(args, env)
        # Output goes to files, not pipes: a process the program (or Wine) starts
        # may inherit the handles and outlive it, and a pipe would then never end.
        out, err = tempfile.TemporaryFile(), tempfile.TemporaryFile()
        p = subprocess.Popen(cmd, env=full_env, cwd=cwd, stdin=subprocess.DEVNULL, stdout=out, stderr=err)
        p.qz_args, p.qz_out, p.qz_err = args, out, err
        return p

    def wait(self, p, timeout=120):
        try:
            p.wait(timeout=timeout)
        except subprocess.TimeoutExpired:
            p.kill()
            p.wait()
            raise
        out, err = (_read_temp(f) for f in (p.qz_out, p.qz_err))
        r = self._result(p.returncode, out, err)
        self.history.append((p.qz_args, r))
        return r

    def run(self, *args, env=None, timeout=120):
        return self.wait(self.start(*args, env=env), timeout=timeout)

    @contextlib.contextmanager
    def hold(self, win_path, by_program=False):
        """Holds an existing file exclusively for the duration of the block, as an
        antivirus or the client's transmitter does: natively with flock(LOCK_EX)
        (the program's opens then fail with sharing violation 32), under Wine or
        when asked with a second instance of the program in -open_file_exclusive,
        whose process the block gets."""
        if self.platform != "wine" and not by_program:
            with open(self.host_path(win_path), "rb") as f:
                fcntl.flock(f, fcntl.LOCK_EX)
                yield None
            return
        p = self.start("-open_file_exclusive", win_path)
        try:
            deadline = time.time() + 60
            while b"Holding file exclusively" not in peek(p.qz_out):
                check(p.poll() is None and time.time() < deadline, f"could not hold {win_path}")
                time.sleep(0.1)
            yield p
        finally:
            p.kill()
            self.wait(p)

    # ---- log ----
    def log_dir(self):
        return os.path.join(self.datadir(), "qzlogs", "qzfilelist")

    def day_file(self, day, ext=".log"):
        return os.path.join(self.log_dir(), f"qzfilelist{day:02d}{ext}")

    def raw_log_lines(self):
        """Lines of the day files of yesterday, today and tomorrow (GMT), in that order."""
        today = gmt_now().date()
        days = dict.fromkeys((today + datetime.timedelta(days=k)).day for k in (-1, 0, 1))  # kept in order
        lines = []
        for path in map(self.day_file, days):
            if os.path.exists(path):
                text = read(path)
                check(text.endswith("\n") or not text, f"{path} does not end with a newline")
                lines.extend(text.split("\n")[:-1])
        return lines

    def log_lines(self):
        """One entry per message; a message may hold line feeds, so a physical
        line without the time and process id continues the one before it."""
        out = []
        for raw in self.raw_log_lines():
            if out and not LOG_LINE_RE.match(raw):
                prev = out[-1]
                out[-1] = prev._replace(message=prev.message + "\n" + raw, raw=prev.raw + "\n" + raw)
                continue
            out.append(parse_log_line(raw))
        return out

    def log_messages(self):
        return [line.message for line in self.log_lines()]

    def logged(self, text):
        """Whether some log message holds the text."""
        return any(text in msg for msg in self.log_messages())

    def log_index(self, pattern):
        """Index of the first log message the regex matches at its start, or None."""
        return next((i for i, msg in enumerate(self.log_messages()) if re.match(pattern, msg)), None)

    # ---- files ----
    def owned_roots(self):
        """The install and data folders and every drive but C:, as host paths."""
        return [self.c("ProgramData\\Korvatine"), self.c("Program Files\\Korvatine")] + \
            [d for l, (d, _) in self.drives.items() if l != "C"]

    def snapshot(self):
        """Every file and folder on this machine's drives that the test owns, as host paths."""
        found = set()
        for r in self.owned_roots() if self.platform == "wine" else [self.root]:
            for dirpath, dirnames, filenames in os.walk(r):
                found.update(os.path.join(dirpath, n) for n in dirnames + filenames)
        return found

    def describe(self):
        """The last runs and the log's tail, for a failure report."""
        out = [f"  run {list(a)!r}: rc={r.rc} stdout={r.stdout[:600]!r} stderr={r.stderr[:600]!r}"
               for a, r in self.history[-3:]]
        try:
            lines = self.raw_log_lines()
        except Exception as e:  # the log may be what is broken
            lines = [f"(log unreadable: {e})"]
        return "\n".join(out + ["  log tail:"] + ["    " + l for l in lines[-8:]])
