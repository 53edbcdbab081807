#!/usr/bin/env python3
"""Checks that a Windows .exe is ready to ship as one file.

    check_pe_deps.py program.exe --version 9.1.0.833

Checks, each reported on a line of its own:
  - every imported DLL comes with Windows (no libstdc++-6.dll, libgcc_s_*.dll,
    libwinpthread-1.dll or any other runtime that would have to be shipped);
  - a version resource exists and carries the version both as numbers and as
    the FileVersion/ProductVersion text;
  - the application manifest is embedded as resource type 24, id 1, names the
    same version and asks for asInvoker, long paths and the UTF-8 code page.
Exits 0 when all pass, 1 when any fails, 2 when the tool cannot run.
"""

import argparse
import re
import struct
import subprocess
import sys

# DLLs every supported Windows has; compared case-insensitively.
SYSTEM_DLLS = {
    "advapi32.dll", "bcrypt.dll", "comctl32.dll", "comdlg32.dll", "crypt32.dll", "dbghelp.dll",
    "gdi32.dll", "iphlpapi.dll", "kernel32.dll", "kernelbase.dll", "msvcrt.dll", "netapi32.dll",
    "ntdll.dll", "ole32.dll", "oleaut32.dll", "psapi.dll", "rpcrt4.dll", "secur32.dll",
    "shell32.dll", "shlwapi.dll", "ucrtbase.dll", "user32.dll", "userenv.dll", "version.dll",
    "winmm.dll", "wintrust.dll", "ws2_32.dll", "wsock32.dll",
}
SYSTEM_DLL_PATTERNS = [re.compile(r"api-ms-win-(crt|core)-[a-z0-9-]+\.dll")]

RT_VERSION = 0x10
RT_MANIFEST = 0x18
OBJDUMP = "x86_64-w64-mingw32-objdump"


def run_objdump(args, exe):
    """objdump's output; None when it refuses (as for a missing section)."""
    try:
        done = subprocess.run([OBJDUMP, *args, exe], capture_output=True, text=True, errors="replace")
    except OSError as e:
        print(f"ERROR: cannot run {OBJDUMP}: {e}", file=sys.stderr)
        sys.exit(2)
    return done.stdout if done.returncode == 0 else None


def is_system_dll(name):
    low = name.lower()
    return low in SYSTEM_DLLS or any(p.fullmatch(low) for p in SYSTEM_DLL_PATTERNS)


def resource_ids(private_headers):
    """(type, id) pairs from objdump's listing of the resource directory, which
    indents each level of the tree further: types, then names or ids, then languages."""
    _, _, tree = private_headers.partition("The .rsrc Resource Directory section")
    entries = [(len(indent), int(value, 16)) for indent, value in
               re.findall(r"^[0-9a-f]+(\s+)Entry: ID: (0x[0-9a-f]+)", tree.split("Resources start")[0], re.M)]
    levels = sorted({indent for indent, _ in entries}) + [None, None]
    pairs, current_type = set(), None
    for indent, value in entries:
        if indent == levels[0]:
            current_type = value
        elif indent == levels[1] and current_type is not None:
            pairs.add((current_type, value))
    return pairs


def section_bytes(dump):
    """The bytes of objdump -s output: address, up to four hex words, text."""
    data = bytearray()
    for line in dump.splitlines():
        m = re.match(r"^ ([0-9a-f]+) (.{35})", line)
        if not m:
            continue
        for word in m.group(2).split():
            if not re.fullmatch(r"[0-9a-f]{2,8}", word):
                break
            data += bytes.fromhex(word)
    return bytes(data)


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("exe")
    ap.add_argument("--version", required=True, help="the version the build was made with")
    opts = ap.parse_args()

    failures = 0

    def check(ok, text):
        nonlocal failures
        print(("PASS: " if ok else "FAIL: ") + text)
        failures += 0 if ok else 1

    headers = run_objdump(["-p"], opts.exe)
    if headers is None:
        print(f"ERROR: {opts.exe} is not a PE file objdump can read", file=sys.stderr)
        return 2
    dlls = re.findall(r"^\s*DLL Name: (\S+)", headers, flags=re.M)
    check(bool(dlls), f"import table lists {len(dlls)} DLLs: {', '.join(dlls) or 'none'}")
    for dll in dlls:
        check(is_system_dll(dll), f"{dll} is a Windows system DLL")

    ids = resource_ids(headers)
    check(any(t == RT_VERSION for t, _ in ids), "a version resource (type 16) is present")
    check((RT_MANIFEST, 1) in ids, "the manifest is embedded as resource type 24, id 1")

    rsrc = section_bytes(run_objdump(["-s", "-j", ".rsrc"], opts.exe) or "")
    check(len(rsrc) > 0, f".rsrc section read ({len(rsrc)} bytes)")

    # VS_FIXEDFILEINFO: the signature, the structure version, then file and product version.
    p = [int(x) for x in opts.version.split(".")] + [0] * 4
    want = ((p[0] << 16) | p[1], (p[2] << 16) | p[3]) * 2
    pos = rsrc.find(struct.pack("<I", 0xFEEF04BD))
    check(0 <= pos and pos + 24 <= len(rsrc) and struct.unpack_from("<IIII", rsrc, pos + 8) == want,
          f"VS_FIXEDFILEINFO file and product version are {opts.version}")

    text16 = opts.version.encode("utf-16-le")
    check(rsrc.count(text16) >= 2, f'FileVersion and ProductVersion text "{opts.version}" present (UTF-16)')
    for value in ("qzfilelist.exe", "Korvatine"):
        check(value.encode("utf-16-le") in rsrc, f'version strings contain "{value}"')

    start = rsrc.find(b"<assembly")
    manifest = rsrc[start:rsrc.find(b"</assembly>", start)].decode("utf-8", "replace") if start >= 0 else ""
    check(bool(manifest), "manifest XML found in the resources")
    for pattern, what in [(r'<assemblyIdentity[^>]*\sversion="' + re.escape(opts.version) + '"',
                           f"names version {opts.version}"),
                          (r'requestedExecutionLevel\s+level="asInvoker"', "requests asInvoker"),
                          (r"<longPathAware[^>]*>\s*true\s*</longPathAware>", "declares longPathAware true"),
                          (r"<activeCodePage[^>]*>\s*UTF-8\s*</activeCodePage>", "sets activeCodePage UTF-8")]:
        check(re.search(pattern, manifest) is not None, "manifest " + what)

    print(f"{'OK' if failures == 0 else 'FAILED'}: {failures} check(s) failed")
    return 0 if failures == 0 else 1


if __name__ == "__main__":
    sys.exit(main())
