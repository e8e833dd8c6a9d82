# Timing helpers shared by the benchmark scripts (sourced, not run).

# time_ms COMMAND [ARGS...]: runs the command with its output thrown away and prints
# "wall_ms cpu_ms" (CPU: user + system of all its threads and children). A command that fails
# (a search that finds nothing exits with 1) is timed all the same.
time_ms() {
  local TIMEFORMAT='%3R %3U %3S' line
  line=$( { time { "$@" >/dev/null 2>&1 || true; }; } 2>&1 )
  awk '{ printf "%d %d\n", $1 * 1000, ($2 + $3) * 1000 }' <<<"$line"
}

# time_ms_fine COMMAND [ARGS...]: the command's wall time in milliseconds with two decimals
# (output thrown away, failure timed all the same), for commands that take a few milliseconds,
# where time_ms's whole milliseconds would hide the difference being measured.
time_ms_fine() {
  local t0 t1
  t0=$EPOCHREALTIME
  "$@" >/dev/null 2>&1 || true
  t1=$EPOCHREALTIME
  LC_ALL=C awk -v a="${t0/,/.}" -v b="${t1/,/.}" 'BEGIN { printf "%.2f\n", (b - a) * 1000 }'
}

# median N...: the median of the numbers.
median() { printf '%s\n' "$@" | sort -n | awk '{a[NR]=$1} END {print (NR%2) ? a[(NR+1)/2] : int((a[NR/2]+a[NR/2+1])/2)}'; }

# ratio A B: A / B with two decimals ("-" when B is 0).
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { if (b) printf "%.2f", a / b; else printf "-" }'; }

# build_release_cli TOP: configures and builds a Release trovix-cli (and its helper) in
# $BUILD_DIR (default TOP/build-release) and prints its path.
build_release_cli() {
  local build=${BUILD_DIR:-$1/build-release} gen=()
  if [ ! -f "$build/CMakeCache.txt" ]; then
    command -v ninja >/dev/null && gen=(-G Ninja)
    cmake -S "$1" -B "$build" "${gen[@]}" -DCMAKE_BUILD_TYPE=Release >/dev/null
  fi
  cmake --build "$build" -j2 --target trovix-cli trovix-extract >/dev/null
  echo "$build/trovix-cli"
}
