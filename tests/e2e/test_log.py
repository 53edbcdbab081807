"""The day-file log: which file a line goes to, appending to an existing day
file, and appends from many processes at once. (The clean-up of the coming
days' files is checked on fixed dates by the unit tests.)"""

import os
import re

from harness import Skip, check, check_eq, gmt_now, parse_log_line, read, startup_line_re, write

HGUID = "0123456789abcdef01234567"


def test_day_file_is_chosen_by_gmt_day_and_appended_to(m):
    m.make_datadir()
    now = gmt_now()
    old = "2000-01-01 00:00:00          1 - an earlier line\n"
    write(m.day_file(now.day), old)
    # A zone 14 hours east, or 12 west, puts local time on another day than GMT.
    m.run("-version", env={"TZ": "QZT-14" if now.hour >= 12 else "QZT+12"})
    if gmt_now().day != now.day:
        raise Skip("the GMT day changed during the run")
    check_eq(os.listdir(m.log_dir()), [f"qzfilelist{now.day:02d}.log"], "day files")
    text = read(m.day_file(now.day))
    check(text.startswith(old), f"the earlier content of today's file was lost: {text[:200]!r}")
    check("\r" not in text, "log lines must end in a bare newline")
    lines = m.log_lines()[1:]
    check(lines and all(line.time.startswith(now.strftime("%Y-%m-%d ")) for line in lines), "log time is not GMT")


def test_concurrent_runs_append_whole_lines(m):
    m.write_install_xml(hguid=HGUID)
    m.make_datadir()
    n = 8
    procs = [m.start("-version", f"run{i}", "x" * 200) for i in range(n)]
    results = [m.wait(p) for p in procs]
    for i, r in enumerate(results):
        check_eq((r.rc, r.stdout), (0, "VERSION: 9.1.0.833\n"), f"run {i}")
    raw = m.raw_log_lines()
    lines = [parse_log_line(l) for l in raw]  # fails on any torn or interleaved line
    by_pid = {}
    for line in lines:
        by_pid.setdefault(line.pid, []).append(line.message)
    check_eq(len(by_pid), n, f"distinct pids in the log: {sorted(by_pid)}")
    seen = set()
    for pid, messages in by_pid.items():
        check_eq(messages[:2], [" ", "starting qzfilelist"], f"first lines of pid {pid}")
        check_eq(len(messages), 3, f"lines of pid {pid}: {messages}")
        for i in range(n):
            mm = re.match(startup_line_re(["-version", f"run{i}", "x" * 200], hguid=HGUID), messages[2])
            if mm:
                check_eq(int(mm.group(1)), pid, "processId in the start-up line")
                seen.add(i)
    check_eq(seen, set(range(n)), "runs with a start-up line")
