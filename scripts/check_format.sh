#!/usr/bin/env bash
# Fails when a tracked C++ file differs from the project's format (.clang-format).
#   scripts/check_format.sh          check
#   scripts/check_format.sh --fix    rewrite the files in place
set -euo pipefail
cd "$(dirname "$0")/.."
command -v clang-format >/dev/null || { echo "check_format: clang-format is not installed"; exit 1; }
mapfile -t files < <(git ls-files '*.cpp' '*.h' '*.inc')
if [ "${1:-}" = --fix ]; then
  clang-format -i "${files[@]}"
  exit 0
fi
bad=$(clang-format --dry-run "${files[@]}" 2>&1 | grep -E '^[^ ]+:[0-9]+:[0-9]+: (warning|error)' | cut -d: -f1 | sort -u || true)
if [ -n "$bad" ]; then
  echo "format: these files differ from .clang-format (scripts/check_format.sh --fix):"
  printf '  %s\n' $bad
  exit 1
fi
echo "format: all ${#files[@]} files follow .clang-format"
