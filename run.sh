#!/usr/bin/env bash
# Installs what is missing, builds, and runs trovix-cli with the given arguments.
# With no arguments it runs the default search (see the README).
set -euo pipefail
top=$(cd "$(dirname "$0")" && pwd)
build=$("$top/scripts/build.sh" | tail -n 1)
exec "$build/trovix-cli" "$@"
