#!/usr/bin/env python3
"""Runs the end-to-end tests: every test_* function of every test_*.py module
next to this file, each on a fresh machine, against the real program.

    run_e2e.py --exe PATH --platform native|wine [-k SUBSTRING] [--keep]

Prints one line per test and ends with "N passed, M failed"; exits non-zero
when a test failed or none ran.
"""

import argparse
import importlib
import inspect
import os
import shutil
import sys
import tempfile
import time
import traceback

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
sys.dont_write_bytecode = True  # no __pycache__ in the source tree

import harness  # noqa: E402


def discover(selector):
    tests = []
    for name in sorted(os.listdir(HERE)):
        if not (name.startswith("test_") and name.endswith(".py")):
            continue
        module = importlib.import_module(name[:-3])
        funcs = [f for n, f in vars(module).items() if n.startswith("test_") and inspect.isfunction(f)]
        funcs.sort(key=lambda f: f.__code__.co_firstlineno)
        for f in funcs:
            full = f"{module.__name__}.{f.__name__}"
            if not selector or any(s in full for s in selector):
                tests.append((full, f))
    return tests


def failure_text(exc):
    """The assertion message and the test's own frames, without the harness internals."""
    frames = [fr for fr in traceback.extract_tb(exc.__traceback__)
              if os.path.basename(fr.filename).startswith("test_")]
    where = "".join(f"    at {os.path.basename(fr.filename)}:{fr.lineno} {fr.line}\n" for fr in frames)
    kind = "" if isinstance(exc, AssertionError) else f"{type(exc).__name__}: "
    return f"{kind}{exc}\n{where}".rstrip("\n")


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--exe", required=True, help="the qzfilelist program to test")
    ap.add_argument("--platform", required=True, choices=("native", "wine"))
    ap.add_argument("-k", action="append", default=[], help="run only tests whose name contains this")
    ap.add_argument("--keep", action="store_true", help="keep the machines' directories")
    opts = ap.parse_args()

    tests = discover(opts.k)
    exe = os.path.abspath(opts.exe)

    tmp_root = tempfile.mkdtemp(prefix="qz-e2e-")
    wine = None
    passed = failed = skipped = 0
    started = time.monotonic()
    try:
        if opts.platform == "wine":
            wine = harness.WinePrefix(tmp_root)
            print(f"wine prefix {wine.prefix} created in {wine.creation_seconds:.1f}s", flush=True)
        for i, (name, func) in enumerate(tests):
            workdir = os.path.join(tmp_root, f"t{i:03d}")
            t0 = time.monotonic()
            m = None
            try:
                m = harness.Machine(opts.platform, exe, workdir, wine)
                func(m)
            except harness.Skip as e:
                skipped += 1
                print(f"SKIP {name}: {e}", flush=True)
            except Exception as e:  # noqa: BLE001 - every failure is reported, not raised
                failed += 1
                print(f"FAIL {name} ({time.monotonic() - t0:.2f}s): {failure_text(e)}")
                if m is not None:
                    print(m.describe())
                if opts.keep:
                    print(f"  machine kept in {workdir}")
                sys.stdout.flush()
            else:
                passed += 1
                print(f"PASS {name} ({time.monotonic() - t0:.2f}s)", flush=True)
            if not opts.keep:
                shutil.rmtree(workdir, ignore_errors=True)
    finally:
        if wine is not None:
            wine.close()
        if opts.keep:
            print(f"machines kept in {tmp_root}")
        else:
            shutil.rmtree(tmp_root, ignore_errors=True)
    print(f"total {time.monotonic() - started:.1f}s on {opts.platform}" +
          (f", {skipped} skipped" if skipped else ""))
    print(f"{passed} passed, {failed} failed")
    return 1 if failed or passed == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
