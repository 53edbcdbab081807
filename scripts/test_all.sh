#!/usr/bin/env bash
# Builds and tests everything: the native build under AddressSanitizer and
# UndefinedBehaviorSanitizer, the release-style native build, the Windows
# build under Wine (unit tests, end-to-end tests, dependency check) and a
# short run of every fuzz target, then the format check. Ends with one
# "N passed, M failed" line.
set -u
cd "$(dirname "$0")/.."
scripts/install_deps.sh || { echo "could not install the build and test packages"; exit 1; }

presets=(native-asan native win64 fuzz)
[ $# -gt 0 ] && presets=("$@")

total_pass=0
total_fail=0
status=0
for p in "${presets[@]}"; do
  echo "=== $p: configure and build"
  if ! cmake --preset "$p" >"build-$p.log" 2>&1 || ! cmake --build --preset "$p" >>"build-$p.log" 2>&1; then
    cat "build-$p.log"
    echo "=== $p: BUILD FAILED"
    total_fail=$((total_fail + 1))
    status=1
    continue
  fi
  rm -f "build-$p.log"
  echo "=== $p: test"
  out=$(ctest --preset "$p" --output-on-failure 2>&1)
  rc=$?
  printf '%s\n' "$out"
  summary=$(printf '%s\n' "$out" | grep -E '[0-9]+% tests passed, [0-9]+ tests? failed out of [0-9]+' | tail -n 1)
  if [ -n "$summary" ]; then
    failed=$(sed -E 's/.* ([0-9]+) tests? failed out of ([0-9]+).*/\1/' <<<"$summary")
    all=$(sed -E 's/.* ([0-9]+) tests? failed out of ([0-9]+).*/\2/' <<<"$summary")
    total_pass=$((total_pass + all - failed))
    total_fail=$((total_fail + failed))
  elif [ $rc -ne 0 ]; then
    total_fail=$((total_fail + 1))
  fi
  [ $rc -ne 0 ] && status=1
done
echo "=== format"
if scripts/check_format.sh; then
  total_pass=$((total_pass + 1))
else
  total_fail=$((total_fail + 1))
  status=1
fi

echo
echo "total: $total_pass passed, $total_fail failed"
exit $status
