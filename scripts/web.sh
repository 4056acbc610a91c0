#!/usr/bin/env bash
# Builds the decoder and the viewer for browsers, and serves the viewer with point clouds on this machine until Ctrl-C.
#
#   scripts/web.sh [--port N] [FILE ...]    serves examples/survey.vxl by default, on a free port
#   scripts/web.sh --build                  only builds
#
# Prints the address of each file.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)

"$root/scripts/dependencies.sh" --web
# The compiler runs Node.js with modules of Debian, which only Debian's Node.js finds.
if ! (cd / && node -e 'require("acorn")') 2>/dev/null; then export NODE_PATH=/usr/share/nodejs; fi
if command -v ccache >/dev/null; then # as in build.sh
  export CMAKE_CXX_COMPILER_LAUNCHER=ccache CCACHE_DEPEND=yes CCACHE_NOHASHDIR=yes
  export CCACHE_BASEDIR=${CCACHE_BASEDIR:-$(dirname "$root")}
fi

# npm and the builds write much even when all is well: shown only if something fails.
log=$(mktemp)
trap 'rm -f "$log"' EXIT
quietly() { "$@" >"$log" 2>&1 || { cat "$log" >&2; exit 1; }; }
begin=$SECONDS
(
  cd "$root/web"
  if [ ! node_modules/.package-lock.json -nt package-lock.json ]; then
    quietly npm ci
    touch node_modules/.package-lock.json
  fi
  quietly npm run build
)
rm -f "$log"
echo "built the decoder and the viewer ($((SECONDS - begin)) s)"
[ "${1:-}" = --build ] || exec node "$root/web/serve.mjs" "$@"
