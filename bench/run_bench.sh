#!/usr/bin/env bash
# Measures the directory listing on a 100,000-entry directory and grep over a
# generated 1 GB file list, next to `ls -f`, `grep -c` and `grep -n` on the
# same inputs in the same run (best of several runs, warm cache).
#   bench/run_bench.sh [work dir]      (default /tmp/qzbench; needs ~1.1 GB)
set -euo pipefail
cd "$(dirname "$0")/.."
work=${1:-/tmp/qzbench}
cmake --preset native >/dev/null
cmake --build --preset native --target bench_io >/dev/null
bench=$PWD/build/native/bench/bench_io
mkdir -p "$work/d"
export QZ_DRIVES="D=$work/d"

best_of() {  # best wall time in ms of N runs of a command
  local n=$1; shift
  local best=999999999
  for _ in $(seq "$n"); do
    local t0 t1
    # Output goes to a file: GNU grep stops at the first match when it can
    # tell its output is /dev/null, which would flatter it.
    t0=$(date +%s%N); "$@" >"$work/out.txt"; t1=$(date +%s%N)
    local ms=$(((t1 - t0) / 1000000))
    [ "$ms" -lt "$best" ] && best=$ms
  done
  echo "$best"
}

times_of() {  # median and best wall time in ms of N runs of a command
  local n=$1; shift
  local ts=()
  for _ in $(seq "$n"); do
    local t0 t1
    t0=$(date +%s%N); "$@" >"$work/out.txt"; t1=$(date +%s%N)
    ts+=($(((t1 - t0) / 1000000)))
  done
  local sorted
  mapfile -t sorted < <(printf '%s\n' "${ts[@]}" | sort -n)
  echo "median ${sorted[$((n / 2))]} ms, best ${sorted[0]} ms"
}

if [ ! -d "$work/d/dir100k" ]; then
  python3 - "$work/d/dir100k" <<'PY'
import os, sys
d = sys.argv[1]
os.makedirs(d)
for i in range(100000):
    open(os.path.join(d, "file%06d_%s.dat" % (i, "x" * (i % 20))), "w").close()
PY
fi
echo "== listing a directory of 100,000 entries"
"$bench" list 'D:\dir100k' 5
echo "ls -f (names only): best $(best_of 5 ls -f "$work/d/dir100k") ms (includes process start)"
echo "find -printf size+mtime (stats each entry): best $(best_of 5 find "$work/d/dir100k" -maxdepth 1 -printf '%s %T@ %p\n') ms"

if [ ! -f "$work/d/list1g.dat" ]; then
  python3 - "$work/d/list1g.dat" <<'PY'
import random, sys
rnd = random.Random(7)
users = ["Bob", "alice", "Carol Smith"]
areas = ["AppData\\Local\\Google\\Chrome\\User Data\\Default\\Cache", "Documents\\Projects", "Pictures\\2024",
         "AppData\\Roaming\\Microsoft\\Windows\\Recent", "source\\repos\\app\\node_modules\\lib", "Music\\Albums"]
exts = ["dat", "docx", "jpg", "js", "tmp", "pdf", "mp3", "json"]
target = 1 << 30
with open(sys.argv[1], "w", newline="\n") as f:
    written = 0
    chunk = []
    while written < target:
        for _ in range(10000):
            line = "C:\\Users\\%s\\%s\\%s_%d.%s\t%016x\t%d\n" % (
                rnd.choice(users), rnd.choice(areas), rnd.choice(["report", "img", "cache", "notes"]),
                rnd.randrange(1000000), rnd.choice(exts), rnd.randrange(1 << 41), rnd.randrange(1 << 24))
            chunk.append(line)
            written += len(line)
        f.write("".join(chunk))
        chunk.clear()
PY
fi
size=$(stat -c %s "$work/d/list1g.dat")
echo "== grep over a $((size / 1048576)) MiB file list (5 runs each)"
for pat in "notes_12345" "Carol Smith"; do
  "$bench" grep "$pat" 'D:\list1g.dat' 5
  echo "grep -c '$pat': $(grep -c "$pat" "$work/d/list1g.dat") lines, $(times_of 5 grep -c "$pat" "$work/d/list1g.dat")"
  echo "grep -n '$pat' (numbers lines, as we do): $(times_of 5 grep -n "$pat" "$work/d/list1g.dat")"
done
for pat in "NOTES_12345" "carol smith"; do
  "$bench" grep "$pat" 'D:\list1g.dat' 5 -i
  echo "grep -ic '$pat': $(times_of 5 grep -ic "$pat" "$work/d/list1g.dat")"
  echo "grep -in '$pat' (numbers lines, as we do): $(times_of 5 grep -in "$pat" "$work/d/list1g.dat")"
done
