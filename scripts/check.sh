#!/usr/bin/env bash
# For daily work, in less than a minute: checks formatting and includes, then builds and runs the tests of some folders.
#
#   scripts/check.sh [FOLDER ...]    default: the folders with changes that are not committed, else those of the last commit
set -euo pipefail
cd "$(dirname "$0")/.."

paths=("$@")
if [ $# -eq 0 ]; then
  mapfile -t paths < <(git status --porcelain | cut -c4- | sed 's/.* -> //')
  [ ${#paths[@]} -gt 0 ] || mapfile -t paths < <(git show --name-only --format= HEAD)
fi

tests_of() {
  case $1 in
    qm_lib_lidar_core* | tests/core*) echo core_test ;;
    qm_lib_lidar_kernel* | tests/kernel*) echo kernel_test ;;
    qm_lib_lidar_formats* | tests/formats*) echo formats_test ;;
    qm_lib_lidar_filters* | tests/filters*) echo filters_test ;;
    qm_app_lidar_sdkApps/src/sdk* | tests/sdk*) echo sdk_test ;;
    qm_app_lidar_sdkApps* | tests/apps*) echo apps_test programs_test sdk_test ;;
    include*) echo core_test sdk_test ;;
    tests/robustness*) echo damage_test faults_test programs_test stress_test writers_test ;;
    tests/data*) echo data_test ;;
    tests/support*) echo core_test kernel_test formats_test filters_test ;;
  esac
}
mapfile -t tests < <(for path in "${paths[@]}"; do tests_of "${path#./}"; done | tr ' ' '\n' | sort -u)

scripts/lint.sh --quick
[ ${#tests[@]} -gt 0 ] || { echo "no tests concern: ${paths[*]}"; exit; }
scripts/build.sh release "${tests[@]}"
scripts/run_tests.sh build/release -L "^($(IFS='|' && echo "${tests[*]}"))\$"
