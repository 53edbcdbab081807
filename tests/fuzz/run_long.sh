#!/usr/bin/env bash
# Runs every fuzz target for a fixed number of executions (10 million unless
# given), each over a scratch copy of its seed corpus, and prints one line per
# target with its execution count, wall time and result. Findings are kept in
# build/fuzz/long/<target>-crash-* for reproduction (run the target on the file).
# QZ_FUZZ_BIN names another folder of targets (a copy, so that a rebuild does
# not replace a binary under a long run).
#   tests/fuzz/run_long.sh [runs] [target ...]
set -u
cd "$(dirname "$0")/../.."
runs=${1:-10000000}
shift $(( $# > 0 ? 1 : 0 ))
bin=${QZ_FUZZ_BIN:-build/fuzz/tests/fuzz}
out=build/fuzz/long
mkdir -p "$out"
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for f in "$bin"/fuzz_*; do [ -x "$f" ] && targets+=("$(basename "$f" | sed 's/^fuzz_//')"); done
fi
status=0
for t in "${targets[@]}"; do
  corpus="$out/corpus_$t"
  rm -rf "$corpus" && cp -R "tests/fuzz/corpus/$t" "$corpus"
  start=$(date +%s)
  UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 "$bin/fuzz_$t" -runs="$runs" -max_len=4096 -rss_limit_mb=2048 -timeout=10 \
    -print_final_stats=1 -artifact_prefix="$out/fuzz_$t-" "$corpus" >"$out/fuzz_$t.log" 2>&1
  rc=$?
  execs=$(grep -o 'stat::number_of_executed_units: [0-9]*' "$out/fuzz_$t.log" | grep -o '[0-9]*$')
  echo "fuzz_$t: ${execs:-?} executions in $(( $(date +%s) - start )) s, $([ $rc -eq 0 ] && echo ok || echo "FAILED (rc $rc, see $out/fuzz_$t.log)")"
  [ $rc -ne 0 ] && status=1
done
exit $status
