"""The diagnostic switches that report on the machine: bitness, memory,
operating system, clock and locale."""

import datetime

from harness import check, check_eq, check_match, gmt_now

UNITS = {"bytes": 1, "byte": 1, "KB": 1 << 10, "MB": 1 << 20, "GB": 1 << 30, "TB": 1 << 40, "PB": 1 << 50}


def check_human_size(text, exact, what):
    """"23.5 GB" must be the exact byte count rounded to a tenth of its unit."""
    m = check_match(r"^(\d+(?:\.\d)?) (bytes|byte|KB|MB|GB|TB|PB)$", text, what)
    value, unit = float(m.group(1)), UNITS[m.group(2)]
    check(abs(value * unit - exact) <= 0.05 * unit + 1, f"{what}: {text!r} is not {exact} bytes")
    if unit > 1:
        check(value < 1024, f"{what}: {text!r} should use a larger unit")


def test_bitness_and_memory(m):
    r = m.run("-is64bit")
    check_eq((r.rc, r.stdout), (0, "I am a 64 bit process.\n"), "-is64bit")
    mm = check_match(r"^Hardware RAM in Bytes: (\S+ \S+) \((\d+)\)\n$", m.run("-printRam").stdout, "-printRam")
    ram = int(mm.group(2))
    check(ram > 100 * 1024 * 1024, f"implausible RAM size {ram}")
    check_human_size(mm.group(1), ram, "RAM")
    mm = check_match(r"^ResidentMem: (\S+ \S+) \((\d+)\)\nVirtualMem: (\S+ \S+) \((\d+)\)\n$",
                     m.run("-printMemUsage").stdout, "-printMemUsage")
    resident, virtual = int(mm.group(2)), int(mm.group(4))
    check(100 * 1024 < resident < 4 << 30 and 0 < virtual < 1 << 50, f"implausible sizes {resident}, {virtual}")
    check_human_size(mm.group(1), resident, "ResidentMem")
    check_human_size(mm.group(3), virtual, "VirtualMem")
    r = m.run("-oswithdetail")
    mm = check_match(r"^OSwithDetail: (.+)\n$", r.stdout, "-oswithdetail")
    check("64-bit process" in mm.group(1), f"a 64-bit build should say so: {mm.group(1)!r}")


def test_time_reports_gmt_and_local_time(m):
    # A zone 14 hours east, or 12 west, puts local time on another day than GMT.
    before = gmt_now()
    tz, hours = ("QZT-14", 14) if before.hour >= 12 else ("QZT+12", -12)
    r = m.run("-time", env={"TZ": tz})
    after = gmt_now()
    check_eq(r.rc, 0, "exit code")
    gmt = check_match(r".*GMT time: +(\d{4}-\d\d-\d\d \d\d):\d\d:\d\d", r.stdout, "-time")
    check(gmt.group(1)[:10] in {before.strftime("%Y-%m-%d"), after.strftime("%Y-%m-%d")}, f"GMT date: {r.stdout!r}")
    millis = int(check_match(r".*GMT millis: +(\d+)", r.stdout, "-time").group(1)) / 1000
    check(before.timestamp() - 2 <= millis <= after.timestamp() + 2, f"GMT millis are not now: {r.stdout!r}")
    local = check_match(r".*Local time: +(\d{4}-\d\d-\d\d \d\d):\d\d:\d\d .*\(UTC([+-]\d\d):00\)", r.stdout, "-time")
    check_eq(int(local.group(2)), hours, "reported offset")
    check_eq(datetime.datetime.strptime(local.group(1), "%Y-%m-%d %H") -
             datetime.datetime.strptime(gmt.group(1), "%Y-%m-%d %H"), datetime.timedelta(hours=hours), "local minus GMT")


def test_localeinfo(m):
    r = m.run("-localeinfo")
    lines = r.stdout.split("\n")
    # The sample moment is 2021-05-27 12:34:56, in the locale's own format.
    check_match(r"System Locale \(translated into Korvatine locale\): [a-z]{2,3}(_[A-Z0-9]{2,3})?\n"
                r"User's Preferred Locale: .+\nLocal Date Time: .*(21.*27|27.*21).*\n"
                r"Locale Time: .*12.*34.*\nDate: .*(21.*27|27.*21).*\n$", r.stdout, "-localeinfo")
    check("34" in lines[2] and "56" in lines[2] and r.rc == 0, f"12:34:56 not recognisable: {lines[2]!r}")
