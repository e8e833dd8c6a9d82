#!/usr/bin/env bash
# Installs what is missing, builds, and runs the program.
#   ./run.sh            the desktop program when a display is available, else the console's
#                       default search (see the README)
#   ./run.sh ARGS...    trovix-cli with these arguments
set -euo pipefail
top=$(cd "$(dirname "$0")" && pwd)
build=$("$top/scripts/build.sh" | tail -n 1)
if [ $# -eq 0 ] && [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ] && [ -x "$build/trovix" ]; then
  exec "$build/trovix"
fi
exec "$build/trovix-cli" "$@"
