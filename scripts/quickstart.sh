#!/usr/bin/env bash
# Installs all dependencies, builds vxunpack and decodes the example.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/dependencies.sh
echo "building ..."
scripts/build.sh release vxunpack

echo "decoding examples/survey.vxl to build/survey.txt"
build/release/vxunpack -i examples/survey.vxl -o build/survey.txt
head -n 6 build/survey.txt
