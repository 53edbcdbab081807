#!/usr/bin/env bash
# Runs every fuzz target for a fixed number of executions (10 million unless
# given), each over a scratch copy of its seed corpus, and prints one line per
# target with its execution count, wall time and result. Findings are kept in
# build/fuzz/long/<target>-crash-* for reproduction (run the target on the file).
# QZ_FUZZ_BIN names another folder of targets (a copy, so that a rebuild does
# not replace a binary under a long run). QZ_FUZZ_JOBS=N shares a target's
# runs among N processes on one corpus (each takes up the others' finds), one
# per core; the line gives their sum. Inputs are scheduled by their speed as
# well as by their finds: otherwise a corpus drifts towards its slowest inputs
# (a grep over a large file, a settings file full of rules) and a long run
# slows to a third of its first rate. QZ_FUZZ_RESUME=1 goes on from the corpus
# a previous long run left in build/fuzz/long instead of from the seeds, so a
# run cut short can be finished (the counts of both runs add up).
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
jobs=${QZ_FUZZ_JOBS:-1}
for t in "${targets[@]}"; do
  corpus="$out/corpus_$t"
  if [ "${QZ_FUZZ_RESUME:-0}" != 1 ] || [ ! -d "$corpus" ]; then
    rm -rf "$corpus" && cp -R "tests/fuzz/corpus/$t" "$corpus"
  fi
  rm -f "$out/fuzz_$t.log" "$out/fuzz_$t".[0-9]*.log
  start=$(date +%s)
  rc=0
  pids=()
  for ((j = 1; j <= jobs; j++)); do
    log="$out/fuzz_$t.log"
    [ "$jobs" -gt 1 ] && log="$out/fuzz_$t.$j.log"
    UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 "$bin/fuzz_$t" -runs=$(( (runs + jobs - 1) / jobs )) -max_len=4096 \
      -rss_limit_mb=2048 -timeout=10 -entropic_scale_per_exec_time=1 -print_final_stats=1 -artifact_prefix="$out/fuzz_$t-" "$corpus" >"$log" 2>&1 &
    pids+=($!)
  done
  for p in "${pids[@]}"; do wait "$p" || rc=$?; done
  execs=$(cat "$out"/fuzz_"$t".*log 2>/dev/null | grep -o 'stat::number_of_executed_units: [0-9]*' | grep -o '[0-9]*$' |
    awk '{s += $1} END {if (NR) print s}')
  echo "fuzz_$t: ${execs:-?} executions in $(( $(date +%s) - start )) s$([ "$jobs" -gt 1 ] && echo " ($jobs processes)"), $([ $rc -eq 0 ] && echo ok || echo "FAILED (rc $rc, see $out/fuzz_$t*.log)")"
  [ $rc -ne 0 ] && status=1
done
exit $status
