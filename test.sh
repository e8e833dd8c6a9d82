#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test through CTest.
#   ./test.sh           the normal build
#   ./test.sh --asan    the address + undefined-behaviour sanitizer build
#   ./test.sh --fuzz SECONDS   instead of the tests, each fuzz target for SECONDS (clang)
# Further arguments after -- go to ctest (for example: ./test.sh -- -R RuleSet).
set -euo pipefail
top=$(cd "$(dirname "$0")" && pwd)
build_args=()
ctest_args=()
while [ $# -gt 0 ]; do
  case "$1" in
    --fuzz) shift; exec "$top/scripts/fuzz.sh" "${1:?--fuzz needs a number of seconds}" ;;
    --) shift; ctest_args=("$@"); break ;;
    *) build_args+=("$1"); shift ;;
  esac
done
build=$("$top/scripts/build.sh" "${build_args[@]}" | tail -n 1)
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1}
export LSAN_OPTIONS=${LSAN_OPTIONS:-suppressions=$top/tests/sanitizers/lsan.supp}
cd "$build"
ctest --output-on-failure -j "$(nproc)" "${ctest_args[@]}"
