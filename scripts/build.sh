#!/usr/bin/env bash
# Shared by run.sh and test.sh: installs what is missing, configures once, builds incrementally.
# Usage: scripts/build.sh [--asan] [--release] ; prints the build folder on its last line.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/install-deps.sh"

build="$top/build"
args=(-DCMAKE_BUILD_TYPE=RelWithDebInfo)
for a in "$@"; do
  case "$a" in
    --asan) build="$top/build-asan"; args+=(-DTROVIX_SANITIZE=ON -DTROVIX_BENCH=OFF) ;;
    --release) build="$top/build-release"; args=(-DCMAKE_BUILD_TYPE=Release) ;;
    *) echo "build.sh: unknown option $a" >&2; exit 2 ;;
  esac
done
generator=()
command -v ninja >/dev/null 2>&1 && generator=(-G Ninja)
if [ ! -f "$build/CMakeCache.txt" ]; then
  cmake -S "$top" -B "$build" "${generator[@]}" "${args[@]}" >&2
fi
cmake --build "$build" -j "$(nproc)" >&2
echo "$build"
