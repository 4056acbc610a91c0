#!/usr/bin/env bash
# Counts the code lines (neither blank nor comment) of C++, Python and JavaScript by folder, and the share of tests and
# fuzz targets.
set -euo pipefail
cd "$(dirname "$0")/.."

git ls-files '*.h' '*.cpp' '*.py' '*.ts' '*.js' '*.mjs' | while read -r file; do
  case $file in
    *.py) lines=$(grep -vcE '^[[:space:]]*(#|$)' "$file" || true) ;;
    *.ts | *.js | *.mjs) lines=$(grep -vcE '^[[:space:]]*(//|/?\*|$)' "$file" || true) ;;
    *) lines=$(g++ -fpreprocessed -dD -E -P -x c++ "$file" 2>/dev/null | grep -c '[^[:space:]]' || true) ;;
  esac
  case $file in
    web/tests/* | web/*/test/*) echo "tests $lines" ;;
    *) echo "${file%%/*} $lines" ;;
  esac
done | awk '
  { lines[$1] += $2; all += $2 }
  END {
    for (folder in lines) printf "%7d  %s\n", lines[folder], folder | "sort -rn"
    close("sort -rn")
    tests = lines["tests"] + lines["fuzz"]
    printf "%7d  all; tests and fuzz targets are %d, %.1f %%\n", all, tests, 100 * tests / all
  }'
