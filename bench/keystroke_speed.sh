#!/usr/bin/env bash
# An answer in the time of a keystroke: trovix-cli as a whole process, start-up included.
#
#   bench/keystroke_speed.sh [--cli PATH] [--reps N] [--files N] [--folders M] [--megabytes N]
#                            [--name WORD] [--phrase TEXT] [--word WORD] [--no-contents]
#                            [--desktop [--rounds N]]
#
# Printed, medians of N runs (default 20) timed by proc_time.py (wall and CPU milliseconds):
#   start-up      trovix-cli --version, beside /bin/true (the spawn alone); target under 2 ms
#   name query    an indexed name query as a process, against the walk of the same tree
#                 (--robust: the folders themselves; target at most 0.1x) and against plocate
#                 on the same files (updatedb into a private database; target at most 1x)
#   contents      an indexed rare word and rare phrase against rg -uu -l -F over the same
#                 text tree (target at most 0.05x)
#   --desktop     instead of all that: the desktop program's search as typed (keystroke_bench)
#                 on an index of a million items (target: results within 50 ms of each key),
#                 the name typed N times (default 3) for the medians.
#                 The million-file tree and its index are made once and kept under $TMPDIR
#                 (trovix-bench-tree-1m, trovix-keystroke-cache/index.db).
# Ratios are medians of paired runs (one tool, then the other), so that a change in the
# machine's load between runs falls on both; the ratio of CPU times is printed beside the ratio
# of wall times, as it holds on a busy machine where the wall times do not.
#
# The trees are made by make_tree.py and make_text.py under $TMPDIR and reused. plocate is
# installed for the benchmark only when missing (Debian package plocate).
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
top=$(cd "$here/.." && pwd)
# shellcheck source=bench/timing.sh
. "$here/timing.sh"

cli=""
reps=20
name_word=invoice_42
phrase="Boost Software License"
word=lighthouse
contents=1
desktop=0
rounds=3
gen_args=()
text_args=(--megabytes 40)
while [ $# -gt 0 ]; do
  case "$1" in
    --cli) cli=$2; shift 2 ;;
    --reps) reps=$2; shift 2 ;;
    --files|--folders) gen_args+=("$1" "$2"); shift 2 ;;
    --megabytes) text_args=(--megabytes "$2"); shift 2 ;;
    --name) name_word=$2; shift 2 ;;
    --phrase) phrase=$2; shift 2 ;;
    --word) word=$2; shift 2 ;;
    --no-contents) contents=0; shift ;;
    --desktop) desktop=1; shift ;;
    --rounds) rounds=$2; shift 2 ;;
    -h|--help) sed -n '2,25p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) echo "keystroke_speed.sh: unknown argument $1" >&2; exit 2 ;;
  esac
done

tmp=${TMPDIR:-/tmp}
tree=$tmp/trovix-bench-tree
text=$tmp/trovix-index-bench-text
work=$(mktemp -d "$tmp/trovix-keystroke-bench-XXXXXX")
trap 'rm -rf "$work"' EXIT

[ -z "$cli" ] && cli=$(build_release_cli "$top")

if [ "$desktop" = 1 ]; then
  build=$(dirname "$cli")
  cmake --build "$build" -j2 --target keystroke_bench >/dev/null
  big=$tmp/trovix-bench-tree-1m
  cache=$tmp/trovix-keystroke-cache
  python3 "$here/make_tree.py" "$big" --files 1000000 --folders 100000
  mkdir -p "$cache"
  # The index is made once per tree: it is kept while it is newer than the tree's stamp.
  if [ ! -f "$cache/index.db" ] || [ "$big/.make_tree-stamp" -nt "$cache/index.db" ]; then
    rm -f "$cache"/index.db*
    "$cli" --index "$cache/index.db" index add "$big" >/dev/null
    "$cli" --index "$cache/index.db" index update --names-only | tail -n 1
  fi
  echo "load before: $(uptime | sed 's/.*load average: //')"
  "$build/bench/keystroke_bench" "$cache/index.db" "$big" "$name_word" --rounds "$rounds"
  echo "load after:  $(uptime | sed 's/.*load average: //')"
  exit 0
fi
if ! command -v updatedb.plocate >/dev/null && ! command -v updatedb >/dev/null; then
  echo "installing plocate for the benchmark..."
  sudo_=(); [ "$(id -u)" -ne 0 ] && sudo_=(sudo)
  "${sudo_[@]}" apt-get -o DPkg::Lock::Timeout=600 install -y plocate >/dev/null
fi
updatedb=$(command -v updatedb.plocate || command -v updatedb)
timer=("$here/proc_time.py" --reps "$reps" --)
once=("$here/proc_time.py" --reps 1 --warm 0 --)

# pair LABEL TARGET -- A... -- B...: paired single runs of A and B, REPS times; prints
# "LABEL: A w ms (cpu c ms), B w ms (cpu c ms): median ratio r (target <= TARGET)".
pair() {
  local label=$1 target=$2 a=() b=() as=() bs=() acs=() bcs=() ratios=() cratios=() w c v d r
  shift 3
  while [ "$1" != "--" ]; do a+=("$1"); shift; done
  shift
  b=("$@")
  "${once[@]}" "${a[@]}" >/dev/null; "${once[@]}" "${b[@]}" >/dev/null  # warm both
  for ((r = 1; r <= reps; r++)); do
    read -r w c < <("${once[@]}" "${a[@]}")
    read -r v d < <("${once[@]}" "${b[@]}")
    as+=("$w"); acs+=("$c"); bs+=("$v"); bcs+=("$d")
    ratios+=("$(fratio "$w" "$v")"); cratios+=("$(fratio "$c" "$d")")
  done
  printf '%s: %s ms (cpu %s ms) against %s ms (cpu %s ms): median ratio %s, of cpu %s (target <= %s)\n' "$label" \
    "$(fmedian "${as[@]}")" "$(fmedian "${acs[@]}")" "$(fmedian "${bs[@]}")" "$(fmedian "${bcs[@]}")" \
    "$(fmedian "${ratios[@]}")" "$(fmedian "${cratios[@]}")" "$target"
}
fratio() { awk -v a="$1" -v b="$2" 'BEGIN { r = b > 0 ? a / b : 0; printf "%.4f", r }'; }
fmedian() { printf '%s\n' "$@" | sort -g | awk '{a[NR]=$1} END {m = (NR%2) ? a[(NR+1)/2] : (a[NR/2]+a[NR/2+1])/2; printf "%.2f", m}'; }
count() { { "$@" 2>/dev/null || true; } | tr -cd '\0' | wc -c; }

echo "load before: $(uptime | sed 's/.*load average: //')"
read -r true_w true_c < <("${timer[@]}" /bin/true)
read -r ver_w ver_c < <("${timer[@]}" "$cli" --version)
echo "start-up:   trovix-cli --version $ver_w ms (cpu $ver_c ms); /bin/true $true_w ms (cpu $true_c ms) (target: under 2 ms)"

python3 "$here/make_tree.py" "$tree" "${gen_args[@]}" >/dev/null
db=$work/index.db
pdb=$work/plocate.db
"$cli" --index "$db" index add "$tree" >/dev/null
"$cli" --index "$db" index update --names-only >/dev/null
"$updatedb" -l 0 -U "$tree" -o "$pdb"
find "$tree" >/dev/null  # the same warm cache for everyone
query=("$cli" --index "$db" search "$tree" -r "name: $name_word")
read -r q_w q_c < <("${timer[@]}" "${query[@]}")
echo "name query: tree $tree ($(find "$tree" | wc -l) entries), \"$name_word\": $(count "${query[@]}" -0) results from the index," \
     "$(count "${query[@]}" -0 --robust) from the walk, $(count plocate -d "$pdb" -0 "$name_word") from plocate"
echo "            indexed, as a process: $q_w ms (cpu $q_c ms)"
walk_reps=$reps; [ "$reps" -gt 5 ] && walk_reps=5
reps=$walk_reps pair "            against the walk" 0.1 -- "${query[@]}" -- "${query[@]}" --robust
pair "            against plocate" 1 -- "${query[@]}" -- plocate -d "$pdb" "$name_word"

if [ "$contents" = 1 ]; then
  python3 "$here/make_text.py" "$text" "${text_args[@]}" >/dev/null
  tdb=$work/text.db
  ctext=$work/contents
  mkdir -p "$ctext/real"
  # As the index benchmark does: the licences and the plain-text documentation beside the
  # generated text, copied so that the tree stays the same while it is timed.
  cp -r /usr/share/common-licenses "$ctext/real/licenses"
  (cd /usr/share/doc && find . -type f -size -8M ! -name '*.gz' ! -name '*.png' ! -name '*.gif' ! -name '*.jpg' \
     ! -name '*.svg' ! -name '*.html' ! -name '*.pdf' ! -name '*.ico' -print0 | tar --null -T - -cf -) |
    (mkdir -p "$ctext/real/doc" && tar -C "$ctext/real/doc" -xf -)
  cp -r "$text" "$ctext/generated"
  "$cli" --index "$tdb" index add "$ctext" >/dev/null
  "$cli" --index "$tdb" index update >/dev/null
  echo "contents:   $(du -sm "$ctext" | cut -f1) MB of text in $ctext"
  for q in "word:$word:contents: $word" "phrase:$phrase:contents: \"$phrase\""; do
    kind=${q%%:*}; rest=${q#*:}; needle=${rest%%:*}; rule=${rest#*:}
    ix=("$cli" --index "$tdb" search "$ctext" -r "$rule")
    echo "            rare $kind \"$needle\": $(count "${ix[@]}" -0) files from the index, $(count rg -uu -l -F -0 "$needle" "$ctext") from rg"
    pair "            against rg -uu -l -F" 0.05 -- "${ix[@]}" -- rg -uu -l -F "$needle" "$ctext"
  done
fi
echo "load after:  $(uptime | sed 's/.*load average: //')"
