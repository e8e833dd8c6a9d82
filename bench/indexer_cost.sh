#!/usr/bin/env bash
# What the indexer costs the machine, in CPU seconds per 100,000 files: the first build of the
# index (walk and read, the extraction helpers included), and an hour of watching a tree in
# which 1% of the files change.
#
#   bench/indexer_cost.sh [--cli PATH] [--files N] [--folders M] [--idle SECONDS] [--gap SECONDS]
#                         [--budget PERCENT] [--normal-priority]
#
# The hour is scaled down in two parts that add up:
#   - idle: the watch is left alone for --idle seconds (default 30) and its CPU is multiplied
#     up to an hour;
#   - changes: 1% of the files (every hundredth of the sorted list) get a line appended, one at
#     a time, --gap seconds apart (default 0.4 s, longer than the 200 ms the watch gathers
#     changes for): each change is written on its own, as changes spread over an hour would
#     be. Their cost is the CPU of that phase less the idle rate over its length.
# The watch's figures count its extraction helpers, running or ended; so do the first build's.
# The tree is bench/make_tree.py's (default 100,000 files in 10,000 folders, reused).
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
top=$(cd "$here/.." && pwd)
# shellcheck source=bench/timing.sh
. "$here/timing.sh"

cli=""
files=100000
folders=10000
idle=30
gap=0.4
cost=()
while [ $# -gt 0 ]; do
  case "$1" in
    --cli) cli=$2; shift 2 ;;
    --files) files=$2; shift 2 ;;
    --folders) folders=$2; shift 2 ;;
    --idle) idle=$2; shift 2 ;;
    --gap) gap=$2; shift 2 ;;
    --budget) cost+=(--budget "$2"); shift 2 ;;
    --normal-priority) cost+=(--normal-priority); shift ;;
    -h|--help) sed -n '2,20p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) echo "indexer_cost.sh: unknown argument $1" >&2; exit 2 ;;
  esac
done

tmp=${TMPDIR:-/tmp}
tree=$tmp/trovix-cost-tree-$files
work=$(mktemp -d "$tmp/trovix-cost-bench-XXXXXX")
watch_pid=""
cleanup() {
  [ -n "$watch_pid" ] && kill "$watch_pid" 2>/dev/null && wait "$watch_pid" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT

[ -z "$cli" ] && cli=$(build_release_cli "$top")
python3 "$here/make_tree.py" "$tree" --files "$files" --folders "$folders" >/dev/null
db=$work/index.db
ix() { "$cli" --index "$db" index "$@"; }

# CPU seconds of a running process, of the children it has reaped and of those still running
# (the extraction helpers live as long as the watch).
proc_cpu() {
  cat /proc/[0-9]*/stat 2>/dev/null | awk -v pid="$1" -v tck="$(getconf CLK_TCK)" '
    { line = $0; me = $1; sub(/^.*\) /, "", line); split(line, f, " ")
      # After the name: f[2] is the parent, f[12..15] utime, stime, cutime, cstime.
      if (me == pid || f[2] == pid) total += f[12] + f[13] + f[14] + f[15] }
    END { print total / tck }'
}
# Waits until `index status` holds the text (at most a minute).
await() {
  for _ in $(seq 600); do
    ix status 2>/dev/null | grep -q "$1" && return 0
    sleep 0.1
  done
  echo "indexer_cost.sh: the watch never said \"$1\"" >&2
  exit 1
}
per100k() { awk -v s="$1" -v n="$files" 'BEGIN { printf "%.2f", s * 100000 / n }'; }

ix add "$tree" >/dev/null
# The first build in its two phases: the walk (names and file-system facts), then the read
# (properties and text, through the handlers and the extraction helpers).
read -r walk_ms walk_cpu_ms <<<"$(time_ms "$cli" --index "$db" index update --names-only "${cost[@]}")"
read -r read_ms read_cpu_ms <<<"$(time_ms "$cli" --index "$db" index update "${cost[@]}")"
items=$(ix status --json | sed -n 's/.*"items":\([0-9]*\).*/\1/p')
seconds() { awk -v m="$1" 'BEGIN { printf "%.2f", m / 1000 }'; }
build_cpu=$(seconds $((walk_cpu_ms + read_cpu_ms)))

# The program itself, not a subshell around it: its CPU is what /proc tells.
"$cli" --index "$db" index watch "${cost[@]}" 2>"$work/watch.log" &
watch_pid=$!
await "watching, idle"
c0=$(proc_cpu "$watch_pid")
sleep "$idle"
c1=$(proc_cpu "$watch_pid")

mapfile -d '' all < <(find "$tree" -type f ! -name '.make_tree-stamp' -print0 | sort -z)
changed=0
start=$(date +%s.%N)
for ((i = 0; i < ${#all[@]}; i += 100)); do
  printf 'changed by the benchmark\n' >>"${all[i]}"
  changed=$((changed + 1))
  sleep "$gap"
done
await "behind:      no"
end=$(date +%s.%N)
c2=$(proc_cpu "$watch_pid")
kill "$watch_pid"
wait "$watch_pid" || true
watch_pid=""

read -r idle_hour change_cpu hour <<<"$(awk -v c0="$c0" -v c1="$c1" -v c2="$c2" -v idle="$idle" \
  -v t0="$start" -v t1="$end" 'BEGIN {
    rate = (c1 - c0) / idle; changes = (c2 - c1) - rate * (t1 - t0); if (changes < 0) changes = 0
    printf "%.3f %.3f %.3f\n", rate * 3600, changes, rate * 3600 + changes }')"

echo "indexer cost: $files files in $folders folders ($items items indexed), options: ${cost[*]:-none}"
echo "  first build:  $build_cpu CPU s = $(per100k "$build_cpu") CPU s per 100,000 files"
echo "    walk:       $(seconds "$walk_cpu_ms") CPU s = $(per100k "$(seconds "$walk_cpu_ms")") per 100,000" \
     "($(seconds "$walk_ms") s wall)"
echo "    read:       $(seconds "$read_cpu_ms") CPU s = $(per100k "$(seconds "$read_cpu_ms")") per 100,000" \
     "($(seconds "$read_ms") s wall)"
echo "  watch, idle:  $(awk -v a="$c0" -v b="$c1" 'BEGIN { printf "%.3f", b - a }') CPU s in $idle s" \
     "= $idle_hour CPU s per hour"
echo "  watch, $changed changes (1%) written one by one: $change_cpu CPU s"
echo "  an hour of watching with 1% changed: $hour CPU s = $(per100k "$hour") CPU s per 100,000 files"
