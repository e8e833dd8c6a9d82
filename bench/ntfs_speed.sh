#!/usr/bin/env bash
# Volume table scan speed: trovix-cli reading the file table of an NTFS image directly
# (search --volume-image) against ntfs-3g's own lister (ntfsls -R) on the same image. Nothing
# is mounted: this machine has no NTFS kernel driver and a FUSE mount needs root.
#
#   bench/ntfs_speed.sh [--cli PATH] [--files N] [--reps R]
#
# The image (N empty files in folders of 1,000, one in ten named *.txt) is made once under
# $TMPDIR by make_ntfs_image.cpp, built here against libntfs-3g, and reused while N matches.
# Each command runs once untimed (warm page cache), then R timed times; medians are shown,
# with the records per second of each (files and folders of the image / wall time).
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
top=$(cd "$here/.." && pwd)
# shellcheck source=bench/timing.sh
. "$here/timing.sh"

cli=""
files=100000
reps=5
while [ $# -gt 0 ]; do
  case "$1" in
    --cli) cli=$2; shift 2 ;;
    --files) files=$2; shift 2 ;;
    --reps) reps=$2; shift 2 ;;
    *) echo "unknown option $1" >&2; exit 2 ;;
  esac
done
[ -n "$cli" ] || cli=$(build_release_cli "$top")

work=${TMPDIR:-/tmp}/trovix-ntfs-bench
mkdir -p "$work"
image=$work/volume-$files.img
if [ ! -f "$image" ]; then
  g++ -std=c++20 -O2 -o "$work/make_ntfs_image" "$here/make_ntfs_image.cpp" -lntfs-3g
  # About 1.3 KiB of table and index per file, and room to spare.
  truncate -s $(( files * 3 / 1000 + 64 ))M "$image.part"
  mkntfs -q -F -f -L bench "$image.part" >/dev/null
  echo "making $image ($files files)..." >&2
  "$work/make_ntfs_image" "$image.part" "$files"
  mv "$image.part" "$image"
fi
records=$(( files + (files + 999) / 1000 ))

scan=("$cli" search --volume-image "$image" -r 'System.ItemNameDisplay: *.txt')
list=(ntfsls -R -a -p / "$image")
found=$("${scan[@]}" | wc -l)
listed=$("${list[@]}" 2>/dev/null | wc -l)
scan_ms=() list_ms=()
for _ in $(seq "$reps"); do
  scan_ms+=("$(time_ms "${scan[@]}" | cut -d' ' -f1)")
  list_ms+=("$(time_ms "${list[@]}" | cut -d' ' -f1)")
done
s=$(median "${scan_ms[@]}")
l=$(median "${list_ms[@]}")
rate() { awk -v n="$records" -v ms="$1" 'BEGIN { if (ms) printf "%d", n * 1000 / ms; else print "-" }'; }
printf '%-28s %8s %14s %s\n' "command" "ms" "records/s" "output lines"
printf '%-28s %8d %14s %s\n' "trovix-cli --volume-image" "$s" "$(rate "$s")" "$found hits"
printf '%-28s %8d %14s %s\n' "ntfsls -R -a" "$l" "$(rate "$l")" "$listed lines"
echo "scan / ntfsls: $(ratio "$s" "$l")"
