#!/usr/bin/env bash
# Static checks: formatting, the direction of includes, headers that can be compiled alone, clang-tidy.
#
#   scripts/lint.sh             everything
#   scripts/lint.sh --quick     formatting and includes only
set -euo pipefail
cd "$(dirname "$0")/.."

mapfile -t sources < <(git ls-files '*.h' '*.cpp')
find_tool() { command -v "$1-14" || command -v "$1"; }

"$(find_tool clang-format)" --dry-run -Werror "${sources[@]}"

# core <- kernel <- formats, filters <- apps: a library includes headers of libraries to its left only. A public header
# belongs to the library that holds its source.
folders() { ls -d "$1"/src/*/ | xargs -n1 basename | paste -sd'|'; }
headers() {
  git ls-files "$1/src/*.cpp" | xargs -n1 basename -s .cpp | while read -r name; do
    [ ! -e "include/vxunpack/$name.h" ] || echo "$name"
  done | paste -sd'|'
}
of() { echo "\"($(folders "$1"))/|<vxunpack/($(headers "$1"))\.h>"; }
includes() { git grep -nE "#include ($2)" -- "$1/src" || true; }
kernel=$(of qm_lib_lidar_kernel)
formats=$(of qm_lib_lidar_formats)
filters=$(of qm_lib_lidar_filters)
apps=$(of qm_app_lidar_sdkApps)
wrong=$(includes qm_lib_lidar_core "$kernel|$formats|$filters|$apps")
wrong+=$(includes qm_lib_lidar_kernel "$formats|$filters|$apps")
wrong+=$(includes qm_lib_lidar_formats "$filters|$apps")
wrong+=$(includes qm_lib_lidar_filters "$kernel|$formats|$apps")
wrong+=$(git grep -nE '#include "' -- include || true)
wrong+=$(git grep -nE '#include "(de|en)code/' -- qm_lib_lidar_kernel/src/common || true)
wrong+=$(git grep -nE '#include "encode/' -- qm_lib_lidar_kernel/src/decode || true)
wrong+=$(git grep -nE '#include "decode/' -- qm_lib_lidar_kernel/src/encode || true)
wrong+=$(git grep -nE '#include "support/' -- 'qm_*' || true)
if [ -n "$wrong" ]; then
  printf 'includes against the direction of the libraries:\n%s\n' "$wrong" >&2
  exit 1
fi

if [ "${1:-}" != --quick ]; then
  scripts/build.sh release all vx_headers
  python3 scripts/tidy.py build/release
fi
echo "lint: clean"
