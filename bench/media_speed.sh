#!/usr/bin/env bash
# Property rules over media files: a rule on System.Music.Artist and one on
# System.Photo.DateTaken over a tree of copied sample files, against a name rule over the same
# tree (the walk alone), and the artist rule over the tree's other half (documents and text,
# which the rule must pass over without reading: its cost there must be the walk's).
#
#   bench/media_speed.sh [--cli PATH] [--reps N] [--copies N] [--samples DIR] [--tree DIR]
#
# The tree is made by make_media.py under $TMPDIR as trovix-bench-media from the sample corpus
# (default ../shared/corpus beside the sources). Items per second count the files each rule
# had to read (the media files of the tree).
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
top=$(cd "$here/.." && pwd)
# shellcheck source=bench/timing.sh
. "$here/timing.sh"

cli=""
reps=5
copies=60
samples="$top/../shared/corpus"
tree=""
while [ $# -gt 0 ]; do
  case "$1" in
    --cli) cli=$2; shift 2 ;;
    --reps) reps=$2; shift 2 ;;
    --copies) copies=$2; shift 2 ;;
    --samples) samples=$2; shift 2 ;;
    --tree) tree=$2; shift 2 ;;
    -h|--help) sed -n '2,12p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) echo "media_speed.sh: unknown argument $1" >&2; exit 2 ;;
  esac
done
tree=${tree:-${TMPDIR:-/tmp}/trovix-bench-media}
[ -z "$cli" ] && cli=$(build_release_cli "$top")
python3 "$here/make_media.py" "$tree" "$samples" --copies "$copies"

search() { "$cli" search "$@" --settings /dev/null -0; }
run_walk()       { search "$tree" -r 'name: zzzz-no-such-name'; }
run_artist()     { search "$tree" -r 'System.Music.Artist: a'; }
run_taken()      { search "$tree" -r 'System.Photo.DateTaken: < 2030-01-01'; }
run_other_walk() { search "$tree/other" -r 'name: zzzz-no-such-name'; }
run_other_artist() { search "$tree/other" -r 'System.Music.Artist: a'; }

media=$(find "$tree/media" -type f | wc -l)
audio=$(find "$tree/media/audio" -type f | wc -l)
images=$(find "$tree/media/images" -type f | wc -l)
other=$(find "$tree/other" -type f | wc -l)
echo
echo "tree: $tree ($media media files: $audio sound, $images pictures; $other documents and text files)"
echo "trovix-cli: $cli; repetitions: $reps; load before: $(uptime | sed 's/.*load average: //')"

queries=(walk artist taken other_walk other_artist)
declare -A times cpus med cmed found
for q in "${queries[@]}"; do
  found[$q]=$( { "run_$q" 2>/dev/null || true; } | tr -cd '\0' | wc -c)
done
for ((r = 1; r <= reps; r++)); do
  for q in "${queries[@]}"; do
    read -r wall cpu < <(time_ms "run_$q")
    times[$q]+="$wall "
    cpus[$q]+="$cpu "
  done
done
echo "load after:  $(uptime | sed 's/.*load average: //')"
echo
for q in "${queries[@]}"; do
  # shellcheck disable=SC2086
  med[$q]=$(median ${times[$q]})
  # shellcheck disable=SC2086
  cmed[$q]=$(median ${cpus[$q]})
  printf '  %-13s median %6d ms wall %6d ms CPU   found %6d   wall runs: %s\n' "$q" "${med[$q]}" "${cmed[$q]}" \
    "${found[$q]}" "${times[$q]}"
done
per() { awk -v n="$1" -v ms="$2" 'BEGIN { if (ms > 0) printf "%.0f", n * 1000 / ms; else printf "-" }'; }
echo
echo "  artist rule: $(per "$audio" "$((med[artist] - med[walk]))") sound files read per second (beyond the walk)"
echo "  date-taken rule: $(per "$images" "$((med[taken] - med[walk]))") pictures read per second (beyond the walk)"
echo "  artist rule over documents and text only: $(ratio "${med[other_artist]}" "${med[other_walk]}") of the walk alone"
