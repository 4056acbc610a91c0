#!/usr/bin/env bash
# Compares vxunpack and vxpack with LASzip and PDAL as whole programs:
#
#   scripts/compare.sh [--millions "1 10"] [--rounds 5]    speed and peak memory, with goals
#   scripts/compare.sh --rows REGEX [...]                  only the rows whose names match, and those of their goals
#   scripts/compare.sh --check                             floors instead of goals; exit status 1 below one
#   scripts/compare.sh --sizes [FILE ...] [--prefer size]  sizes of .vxl and LAZ files, of LAS and LAZ files
#   scripts/compare.sh --large [MILLIONS]                  one file of many tiles (default: 1000, which needs 50 GB)
#   scripts/compare.sh --scaling [JOB ...]                 how long runs would take on 1 to 64 cores (bench/scaling)
#   scripts/compare.sh --memory [MILLIONS ...]             peak memory of vxpack and vxunpack (default: 1 10 100)
#   scripts/compare.sh --smoke                             all of it with a few points: only shows that it works
#
# The points are those of autzen_trim.las in the directory of real files (VX_SHARED, else ../shared), repeated as a
# square of copies; without that file, those of examples/survey.vxl. Sizes are by default those of all real files. Rows
# of PDAL need a pdal on the PATH. TMPDIR holds the files, 250 MB per million points, and should be on a real disk.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/dependencies.sh --all
scripts/build.sh bench vxpack vxunpack vxinfo laszip_peer scaling
python3 scripts/compare.py "$@"
