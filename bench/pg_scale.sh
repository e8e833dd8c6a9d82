#!/usr/bin/env bash
# The shared index at scale, in one run (minutes to an hour; never part of ./test.sh):
#   1. a share of FILES files (bench/make_share.py) indexed by the console program into this
#      machine's index (SQLite): the first build's time and size;
#   2. the same million carried into an empty PostgreSQL index through the program's first
#      build, and the same rules asked of both back ends, cold and warm (pg_index_bench compare);
#   3. ROWS items generated inside PostgreSQL, the build of its search indexes, the size per
#      million items, and name and contents queries cold and warm (pg_index_bench generate).
#
#   bench/pg_scale.sh [--build DIR] [--files N] [--rows N] [--work DIR] [--share DIR] [--keep]
#                     [--skip-share]            (--rows 0: no generated rows)
#
# --share: where the share's files are made (default: in --work); a memory file system
# (/dev/shm) makes a million files in minutes where a busy disk takes half an hour, and the
# figures here are the indexes', not the walk's.
# Everything lives in --work (default $TMPDIR/trovix-pg-scale), which is removed at the end
# unless --keep. The servers are started by the benchmark in that folder (PostgreSQL 15 from
# Debian, as the tests use it). Ten million rows take about 25 GB while the indexes are built.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
top=$(cd "$here/.." && pwd)
build=$top/build
files=1000000
rows=10000000
work=${TMPDIR:-/tmp}/trovix-pg-scale
keep=0
share=1
share_dir=
while [ $# -gt 0 ]; do
  case "$1" in
    --build) build=$2; shift 2 ;;
    --files) files=$2; shift 2 ;;
    --rows) rows=$2; shift 2 ;;
    --work) work=$2; shift 2 ;;
    --share) share_dir=$2; shift 2 ;;
    --keep) keep=1; shift ;;
    --skip-share) share=0; shift ;;
    *) echo "usage: $0 [--build DIR] [--files N] [--rows N] [--work DIR] [--share DIR] [--keep] [--skip-share]" >&2
       exit 2 ;;
  esac
done
cli=$build/trovix-cli
bench=$build/bench/pg_index_bench
for program in "$cli" "$bench"; do
  [ -x "$program" ] || { echo "$program is missing: build trovix-cli and pg_index_bench" >&2; exit 1; }
done
if [ -e "$work" ] && [ -n "$(ls -A "$work")" ]; then
  echo "$work is not empty" >&2
  exit 1
fi
mkdir -p "$work"
share_dir=${share_dir:-$work/share}
[ ! -e "$share_dir" ] || { echo "$share_dir exists already" >&2; exit 1; }
[ "$keep" = 1 ] || trap 'rm -rf "$work" "$share_dir"' EXIT
# The servers' sockets go in folders below TMPDIR, whose path must stay short.
export TMPDIR=$work XDG_CONFIG_HOME=$work/config XDG_CACHE_HOME=$work/cache XDG_DATA_HOME=$work/data
echo "free space: $(df -h --output=avail "$work" | tail -1 | tr -d ' ')"

seconds() { date +%s.%N; }
elapsed() { echo "$2 - $1" | bc; }

if [ "$share" = 1 ]; then
  echo "== a share of $files files, indexed on this machine (SQLite)"
  t0=$(seconds)
  python3 "$here/make_share.py" "$share_dir" --files "$files"
  t1=$(seconds)
  echo "share made in $(elapsed "$t0" "$t1") s"
  "$cli" --index "$work/index.db" index add "$share_dir" >/dev/null
  t0=$(seconds)
  # At normal priority and without the indexer's CPU budget: the build's own speed.
  "$cli" --index "$work/index.db" index update --normal-priority --budget 100
  t1=$(seconds)
  echo "sqlite first build $(elapsed "$t0" "$t1") s; size $(du -m "$work/index.db" | cut -f1) MB"
  echo "== the same items in PostgreSQL, and the same rules asked of both"
  TROVIX_EXTRACT="$build/trovix-extract" "$bench" compare "$work/index.db" "$share_dir"
  rm -rf "$share_dir" "$work/index.db"*
fi

if [ "$rows" -gt 0 ]; then
  echo "== $rows items generated inside PostgreSQL"
  "$bench" generate "$rows"
fi
