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
# Extraction helpers that are still running when a phase ends are not in the watch's figures
# (the kernel counts a child's CPU to its parent when it ends); the first build's are.
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

# CPU seconds of a running process and of the children it has reaped.
proc_cpu() {
  awk -v tck="$(getconf CLK_TCK)" '{ sub(/^.*\) /, ""); print ($12 + $13 + $14 + $15) / tck }' "/proc/$1/stat"
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
read -r build_ms build_cpu_ms <<<"$(time_ms "$cli" --index "$db" index update "${cost[@]}")"
items=$(ix status --json | sed -n 's/.*"items":\([0-9]*\).*/\1/p')
build_cpu=$(awk -v m="$build_cpu_ms" 'BEGIN { printf "%.2f", m / 1000 }')

ix watch "${cost[@]}" 2>"$work/watch.log" &
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
echo "  first build:  $(awk -v m="$build_ms" 'BEGIN { printf "%.1f", m / 1000 }') s wall, $build_cpu CPU s" \
     "= $(per100k "$build_cpu") CPU s per 100,000 files"
echo "  watch, idle:  $(awk -v a="$c0" -v b="$c1" 'BEGIN { printf "%.3f", b - a }') CPU s in $idle s" \
     "= $idle_hour CPU s per hour"
echo "  watch, $changed changes (1%) written one by one: $change_cpu CPU s"
echo "  an hour of watching with 1% changed: $hour CPU s = $(per100k "$hour") CPU s per 100,000 files"
