#!/usr/bin/env bash
# Builds the libFuzzer targets with clang in build-fuzz/ and runs each for SECONDS on its
# committed corpus: fuzz/seeds/<name>/ and fuzz/corpus-<name>/ (name with hyphens), where
# <name> is the target without "_fuzz". New inputs go to build-fuzz/corpus/<target>/ so the
# committed corpora stay small; crashing inputs land in build-fuzz/crashes/.
# Usage: scripts/fuzz.sh SECONDS [TARGET...]   Exits non-zero when any target fails.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:?usage: scripts/fuzz.sh SECONDS [TARGET...]}
shift
case "$seconds" in ''|*[!0-9]*) echo "fuzz.sh: SECONDS must be a whole number" >&2; exit 2 ;; esac

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for src in "$top"/fuzz/*_fuzz.cpp; do targets+=("$(basename "$src" .cpp)"); done
fi

"$top/scripts/install-deps.sh"
command -v clang++ >/dev/null 2>&1 || { echo "fuzz.sh: clang++ is needed" >&2; exit 2; }
build="$top/build-fuzz"
generator=()
command -v ninja >/dev/null 2>&1 && generator=(-G Ninja)
if [ ! -f "$build/CMakeCache.txt" ]; then
  CC=clang CXX=clang++ cmake -S "$top" -B "$build" "${generator[@]}" -DTROVIX_FUZZ=ON \
    -DTROVIX_TESTS=OFF -DTROVIX_BENCH=OFF >&2
fi
cmake --build "$build" -j "$(nproc)" --target "${targets[@]}" >&2

# Stop at the first undefined behaviour or leak, with a stack to read.
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}
failed=()
for target in "${targets[@]}"; do
  name=${target%_fuzz}
  work="$build/corpus/$target"
  mkdir -p "$work" "$build/crashes"
  corpora=("$work")
  for dir in "$top/fuzz/seeds/$name" "$top/fuzz/corpus-${name//_/-}"; do
    [ -d "$dir" ] && corpora+=("$dir")
  done
  # Documents and archives need room for their structure; rule lists and texts do not.
  case "$name" in
    rtf | ooxml_odf | archive_list | legacy_office | ntfs_image) max_len=65536 ;;
    *) max_len=4096 ;;
  esac
  echo "== $target: ${seconds}s" >&2
  if ! "$build/fuzz/$target" -max_total_time="$seconds" -max_len="$max_len" -timeout=25 \
      -print_final_stats=1 -artifact_prefix="$build/crashes/$target-" "${corpora[@]}" \
      >"$build/$target.log" 2>&1; then
    failed+=("$target")
    tail -n 40 "$build/$target.log" >&2
  fi
  grep -E '^stat::number_of_executed_units' "$build/$target.log" | sed "s/^/$target: /" >&2 || true
done
if [ ${#failed[@]} -ne 0 ]; then
  echo "fuzz.sh: failed: ${failed[*]} (inputs in $build/crashes/)" >&2
  exit 1
fi
echo "fuzz.sh: all ${#targets[@]} targets ran ${seconds}s without a crash" >&2
