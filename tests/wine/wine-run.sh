#!/bin/sh
# Runs a Windows test program under Wine: wine-run.sh program.exe [args...]
#
# Used as CMAKE_CROSSCOMPILING_EMULATOR by the win64 build, which hands it the
# absolute path of a test program. The program runs in a Wine prefix of its
# own, never in ~/.wine: ${TMPDIR:-/tmp}/qz-wine-<uid>-<checksum of the
# program's directory>, so every run of one build tree shares one prefix.
# The prefix is created once, quietly (no Mono/Gecko prompts, no display),
# under a lock so parallel ctest jobs do not race. Its Z: drive (a link to /)
# is removed so the drive list holds only C: and what a test maps itself.
# Wine reads drive links and types only when its server starts: a test that
# changes them must restart the server (wineserver -k) or use its own prefix.
#
# stdin, stdout and stderr go to the program untouched and the script exits
# with the program's exit code. Wine's own diagnostics are off unless the
# caller sets WINEDEBUG.
set -u

WINE_LOADER=/usr/lib/wine/wine64
WINESERVER_BIN=/usr/lib/wine/wineserver64
# Seconds the server stays up after the last program ends; the next run then
# starts in milliseconds instead of half a second.
LINGER=30

prog=$1
shift
key=$(dirname "$prog" | cksum | cut -d' ' -f1)
prefix=${TMPDIR:-/tmp}/qz-wine-$(id -u)-$key

export WINEPREFIX="$prefix"
export WINEDEBUG="${WINEDEBUG:--all}"
# Mono and Gecko are never needed; an empty override keeps wineboot from
# offering to install them.
export WINEDLLOVERRIDES="${WINEDLLOVERRIDES:-mscoree,mshtml=}"
unset DISPLAY WAYLAND_DISPLAY
# Wine builds the Windows command line from the arguments in the locale's
# character set; UTF-8 carries every argument through unchanged.
unset LC_ALL LC_CTYPE
export LANG=C.UTF-8

quiet() { "$@" </dev/null >/dev/null 2>&1 9>&-; }

mkdir -p "$(dirname "$prefix")"
(
    flock 9
    if [ ! -f "$prefix/.qz-ready" ]; then
        # A half-made prefix from an interrupted run is started over.
        rm -rf "$prefix"
        quiet "$WINE_LOADER" wineboot -i
        # wineboot returns before the server has written the registry out;
        # waiting for the server to end makes the prefix complete.
        quiet "$WINESERVER_BIN" -w
        rm -f "$prefix/dosdevices/z:"
        touch "$prefix/.qz-ready"
    fi
    # Start the server unless it runs, and boot a fresh one with a throw-away
    # program whose output is detached: the first program on a new server
    # starts Wine's background services, which would otherwise inherit the
    # test's output pipe and keep ctest waiting until they exit.
    if quiet "$WINESERVER_BIN" -p"$LINGER"; then
        (cd "$prefix/drive_c" && quiet "$WINE_LOADER" cmd /c exit)
    fi
) 9>"$prefix.lock"

exec "$WINE_LOADER" "$prog" "$@"
