#!/usr/bin/env bash
# Index speed, in one run: building the index of the benchmark tree against plocate's updatedb,
# an update of the unchanged tree, name queries (in process, and as whole processes against
# plocate), a contents query against rg on the text tree, and the database's size against the
# raw path list.
#
#   bench/index_speed.sh [--cli PATH] [--reps N] [--files N] [--folders M] [--megabytes N]
#                        [--phrase TEXT] [--word WORD] [--read-phase] [--contents-only] [--large-text]
#
# Targets: build (names and metadata) at most 3x updatedb; unchanged update at most 1x; a
# name query under 1 ms in process and, as a whole process, at most 0.1x the walk of the same
# tree and no slower than plocate; start-up of trovix-cli under 2 ms; names and metadata at
# most 1.5x the raw path list. The build's CPU seconds per 100,000 files and its peak memory
# (the indexer's largest resident set) are reported beside them. Contents, on a tree of real text (licences and
# /usr/share/doc's plain text) beside the generated one: a rare phrase and a rare word through
# the index at most 0.05x the time of rg -uu -l -i -F (medians of paired runs), the contents
# tables at most 1.5 MB per MB of text; the read phase's MB/s is reported. The ratio is one of
# scale: rg's time grows with the text, the index's hardly, and a whole process has a floor of
# about 2.5 ms (exec, loading, opening the index) that is 0.07x of rg over the default 96 MB.
# --megabytes 900 makes the tree about 1 GB, the size of a real /usr/share, where the target
# is meant (about 10 minutes, 1 GB of disk under $TMPDIR). The index's second phase (reading
# properties and text through the handlers and the extraction helper) has no counterpart in
# updatedb and is reported apart.
# The contents build's peak memory (the indexer's largest resident set) is reported with a
# target under 200 MiB; --large-text puts files of 20 to 80 MB of text in the tree for it.
#
# plocate is installed for the benchmark only when missing (Debian package plocate); the
# tests never need it. --files 1000000 --folders 100000 is the million-entry run.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
top=$(cd "$here/.." && pwd)
# shellcheck source=bench/timing.sh
. "$here/timing.sh"

cli=""
reps=5
read_phase=0
contents_only=0
large_text=0
phrase="Boost Software License"
word=lighthouse
common="quiet harbour lantern"
gen_args=()
text_args=()
while [ $# -gt 0 ]; do
  case "$1" in
    --cli) cli=$2; shift 2 ;;
    --reps) reps=$2; shift 2 ;;
    --files|--folders) gen_args+=("$1" "$2"); shift 2 ;;
    --megabytes) text_args+=("$1" "$2"); shift 2 ;;
    --phrase) phrase=$2; shift 2 ;;
    --word) word=$2; shift 2 ;;
    --read-phase) read_phase=1; shift ;;
    --contents-only) contents_only=1; shift ;;
    --large-text) large_text=1; shift ;;
    -h|--help) sed -n '2,27p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) echo "index_speed.sh: unknown argument $1" >&2; exit 2 ;;
  esac
done

tmp=${TMPDIR:-/tmp}
tree=$tmp/trovix-bench-tree
text=$tmp/trovix-index-bench-text
work=$(mktemp -d "$tmp/trovix-index-bench-XXXXXX")
trap 'rm -rf "$work"' EXIT

[ -z "$cli" ] && cli=$(build_release_cli "$top")
build=$(dirname "$cli")
cmake --build "$build" -j2 --target index_bench >/dev/null 2>&1 || true
if ! command -v updatedb.plocate >/dev/null && ! command -v updatedb >/dev/null; then
  echo "installing plocate for the benchmark..."
  sudo_=(); [ "$(id -u)" -ne 0 ] && sudo_=(sudo)
  "${sudo_[@]}" apt-get -o DPkg::Lock::Timeout=600 install -y plocate >/dev/null
fi
updatedb=$(command -v updatedb.plocate || command -v updatedb)

[ "$contents_only" = 0 ] && python3 "$here/make_tree.py" "$tree" "${gen_args[@]}"
# The generated part of the contents tree: 40 MB unless asked otherwise.
[ ${#text_args[@]} -eq 0 ] && text_args=(--megabytes 40)
python3 "$here/make_text.py" "$text" "${text_args[@]}"

db=$work/index.db
tdb=$work/text.db
pdb=$work/plocate.db
echo "load before: $(uptime | sed 's/.*load average: //')"
if [ "$contents_only" = 0 ]; then
echo "tree: $tree ($(find "$tree" | wc -l) entries); text: $text"
find "$tree" >/dev/null  # the same warm cache for everyone


# --- building ---------------------------------------------------------------------------
read -r u_wall _ < <(time_ms "$updatedb" -l 0 -U "$tree" -o "$pdb")
"$cli" --index "$db" index add "$tree" >/dev/null
# The walk (names and facts: what updatedb does too), then the read of properties and text,
# which has no counterpart there; --read-phase times it on this tree (whose files are sparse,
# so the documents and sound files among them are mostly zeros: slow for their readers).
# The indexer's own figures from wait4: CPU (user + system) and its largest resident set.
build_line=$(/usr/bin/time -o "$work/build.rusage" -f '%M %U %S' "$cli" --index "$db" index update --names-only 2>&1)
[ "$read_phase" = 1 ] && read_line=$("$cli" --index "$db" index update)
walk_s=$(sed -n 's/.*(walk \([0-9.]*\) s, read \([0-9.]*\) s).*/\1/p' <<<"$build_line")
read_s=$(sed -n 's/.*(walk \([0-9.]*\) s, read \([0-9.]*\) s).*/\2/p' <<<"${read_line:-}")
read_s=${read_s:-"(not timed: --read-phase)"}
read -r peak_kb build_user build_sys < "$work/build.rusage"
entries=$(find "$tree" | wc -l)
build_cpu=$(awk -v u="$build_user" -v s="$build_sys" 'BEGIN { printf "%.2f", u + s }')
cpu_per_100k=$(awk -v c="$build_cpu" -v n="$entries" 'BEGIN { printf "%.2f", n ? c * 100000 / n : 0 }')

# --- unchanged update -------------------------------------------------------------------
upd=(); uupd=()
for ((r = 1; r <= reps; r++)); do
  read -r w _ < <(time_ms "$cli" --index "$db" index update --names-only); upd+=("$w")
  read -r w _ < <(time_ms "$updatedb" -l 0 -U "$tree" -o "$pdb"); uupd+=("$w")
done
upd_med=$(median "${upd[@]}"); uupd_med=$(median "${uupd[@]}")

# --- sizes ------------------------------------------------------------------------------
sqlite3 "$db" "PRAGMA wal_checkpoint(TRUNCATE);" >/dev/null
paths_bytes=$(find "$tree" | wc -c)
db_bytes=$(stat -c %s "$db")
contents_bytes=$(sqlite3 "$db" "SELECT coalesce(sum(pgsize),0) FROM dbstat WHERE name LIKE 'contents%' OR name='texts';")
names_bytes=$((db_bytes - contents_bytes))

# --- name queries -----------------------------------------------------------------------
# Whole processes, medians of 20 (bench/proc_time.py, finer than the shell's time): the
# start-up of trovix-cli alone, the indexed query, the same query walking the tree, plocate.
name_word=invoice_42
ptime() { python3 "$here/proc_time.py" --reps "$1" -- "${@:2}" | awk '{print $1}'; }
spawn_ms=$(ptime 20 /bin/true)
start_ms=$(ptime 20 "$cli" --version)
query_ms=$(ptime 20 "$cli" --index "$db" search "$tree" -r "name: $name_word")
walk_ms=$(ptime "$reps" "$cli" --index "$db" search --robust "$tree" -r "name: $name_word")
loc_ms=$(ptime 20 plocate -d "$pdb" "$name_word")
cli_count=$( { "$cli" --index "$db" search "$tree" -r "name: $name_word" -0 2>/dev/null || true; } | tr -cd '\0' | wc -c)
loc_count=$( { plocate -d "$pdb" -0 "$name_word" || true; } | tr -cd '\0' | wc -c)
inproc=$(TROVIX_BENCH_INDEX=$db TROVIX_BENCH_ROOT=$tree "$build/bench/index_bench" \
  --benchmark_filter='Name' --benchmark_format=csv 2>/dev/null | awk -F, 'NR>1 {printf "%s %.0f us; ", $1, $3}')

fi

# --- contents ---------------------------------------------------------------------------
# A tree of real text beside the generated one: the licences and the plain-text documentation
# of the installed packages (no compressed files, pictures or HTML, which rg reads as bytes and
# the index through their readers), copied so that the tree stays the same while it is timed.
ctext=$work/contents
mkdir -p "$ctext/real"
cp -r /usr/share/common-licenses "$ctext/real/licenses"
(cd /usr/share/doc && find . -type f -size -8M ! -name '*.gz' ! -name '*.png' ! -name '*.gif' ! -name '*.jpg' \
   ! -name '*.svg' ! -name '*.html' ! -name '*.pdf' ! -name '*.ico' -print0 | tar --null -T - -cf -) |
  (mkdir -p "$ctext/real/doc" && tar -C "$ctext/real/doc" -xf -)
cp -r "$text" "$ctext/generated"
# --large-text: files of 20, 50 and 80 MB of text too (the generated text over and over), where
# the read phase's memory is at stake; the generated tree has none over a few megabytes.
if [ "$large_text" = 1 ]; then
  mkdir -p "$ctext/large"
  for mb in 20 50 80; do
    f=$ctext/large/text-$mb.txt
    while [ "$(stat -c %s "$f" 2>/dev/null || echo 0)" -lt $((mb * 1000000)) ]; do
      find "$text" -type f -name '*.txt' -print0 | sort -z | xargs -0 cat >> "$f"
    done
    truncate -s $((mb * 1000000)) "$f"
  done
fi
"$cli" --index "$tdb" index add "$ctext" >/dev/null
# The indexer's largest resident set and CPU over the whole contents build, from wait4 as above
# (the extraction helpers are processes of their own, apart from it).
text_build=$(/usr/bin/time -o "$work/text.rusage" -f '%M %U %S' "$cli" --index "$tdb" index update |
  sed -n 's/.*(walk \([0-9.]*\) s, read \([0-9.]*\) s).*/\1 \2/p')
read -r text_walk_s text_read_s <<<"$text_build"
read -r text_peak_kb text_user text_sys < "$work/text.rusage"
sqlite3 "$tdb" "PRAGMA wal_checkpoint(TRUNCATE);" >/dev/null
text_bytes=$(du -sb "$ctext" | cut -f1)
tcontents=$(sqlite3 "$tdb" "SELECT coalesce(sum(pgsize),0) FROM dbstat WHERE name LIKE 'contents%' OR name='texts' OR name LIKE 'sqlite_autoindex_texts%';")
tkept=$(sqlite3 "$tdb" "SELECT coalesce(sum(pgsize),0) FROM dbstat WHERE name='texts';")

# Paired runs: the index and rg one after the other, the ratio per pair, its median. The
# index's side takes a few milliseconds: timed to the hundredth.
# timed_pair LABEL RULE RG_TEXT: prints "LABEL: trovix-cli T ms (N files), rg T ms (N files): ratio R".
timed_pair() {
  local label=$1 rule=$2 needle=$3 ratios=() ixs=() rgs=() w v r
  for ((r = 1; r <= reps; r++)); do
    w=$(time_ms_fine "$cli" --index "$tdb" search "$ctext" -r "$rule")
    v=$(time_ms_fine rg -uu -l -i -F "$needle" "$ctext")
    ixs+=("$w"); rgs+=("$v"); ratios+=("$(ratio "$w" "$v")")
  done
  local n_ix n_rg
  n_ix=$( { "$cli" --index "$tdb" search "$ctext" -r "$rule" -0 2>/dev/null || true; } | tr -cd '\0' | wc -c)
  n_rg=$( { rg -uu -l -i -F -0 "$needle" "$ctext" || true; } | tr -cd '\0' | wc -c)
  echo "$label: trovix-cli $(median "${ixs[@]}") ms ($n_ix files), rg $(median "${rgs[@]}") ms ($n_rg files): median ratio $(printf '%s\n' "${ratios[@]}" | sort -n | awk '{a[NR]=$1} END {print (NR%2) ? a[(NR+1)/2] : (a[NR/2]+a[NR/2+1])/2}') (target <= 0.05)"
}
# The same queries through the route in process (no start-up, no printing), against rg's median.
inproc() {
  TROVIX_BENCH_INDEX=$tdb TROVIX_BENCH_ROOT=$ctext TROVIX_BENCH_PHRASE=$phrase TROVIX_BENCH_WORD=$word \
    "$build/bench/index_bench" --benchmark_filter="$1" --benchmark_repetitions="$reps" \
    --benchmark_report_aggregates_only=true --benchmark_format=csv 2>/dev/null |
    awk -F, '/_median/ {printf "%.1f", $3 / 1000}'
}
phrase_inproc=$(inproc 'ContentsPhrase$'); word_inproc=$(inproc 'ContentsWord$')
phrase_line=$(timed_pair "rare phrase \"$phrase\"" "contents: \"$phrase\"" "$phrase")
word_line=$(timed_pair "rare word \"$word\"    " "contents: $word" "$word")
common_line=$(timed_pair "common phrase \"$common\"" "contents: \"$common\"" "$common")
# The floor of a whole process: starting the program and ending it, nothing asked.
startup=()
for ((r = 1; r <= reps; r++)); do startup+=("$(time_ms_fine "$cli" --version)"); done
echo "load after:  $(uptime | sed 's/.*load average: //')"

mb() { awk -v b="$1" 'BEGIN { printf "%.1f MB", b / 1e6 }'; }
echo
if [ "$contents_only" = 0 ]; then
echo "build:      updatedb $u_wall ms; trovix walk (names, metadata) ${walk_s} s; read (properties, text) ${read_s} s"
echo "            indexer CPU $build_cpu s for $entries entries: $cpu_per_100k s per 100,000 files; peak memory $((peak_kb / 1024)) MiB"
echo "            ratio walk/updatedb $(ratio "$(awk -v s="$walk_s" 'BEGIN{print s*1000}')" "$u_wall") (target <= 3)"
echo "unchanged:  trovix update $upd_med ms, updatedb $uupd_med ms: ratio $(ratio "$upd_med" "$uupd_med") (target <= 1)   runs: ${upd[*]} / ${uupd[*]}"
echo "size:       paths $(mb "$paths_bytes"); index $(mb "$db_bytes") of which names and metadata $(mb "$names_bytes") ($(ratio "$names_bytes" "$paths_bytes")x, target <= 1.5), contents $(mb "$contents_bytes"); plocate $(mb "$(stat -c %s "$pdb")")"
echo "name query: in process: $inproc"
echo "            process: trovix-cli $query_ms ms ($cli_count results), walk (--robust) $walk_ms ms: ratio $(ratio "$query_ms" "$walk_ms") (target <= 0.1)"
echo "                     plocate $loc_ms ms ($loc_count results): ratio $(ratio "$query_ms" "$loc_ms") (target <= 1)"
echo "start-up:   trovix-cli --version $start_ms ms (target < 2), spawning /bin/true $spawn_ms ms (medians of 20)"
fi
echo "contents:   $(mb "$text_bytes") of text files ($ctext: licences, /usr/share/doc's plain text, the generated tree)"
echo "            read phase $text_read_s s: $(awk -v b="$text_bytes" -v s="$text_read_s" 'BEGIN { if (s > 0) printf "%.1f", b / 1e6 / s; else printf "-" }') MB/s; walk $text_walk_s s"
echo "            indexer peak memory $((text_peak_kb / 1024)) MiB (target < 200), CPU $(awk -v u="$text_user" -v s="$text_sys" 'BEGIN { printf "%.2f", u + s }') s"
echo "            contents tables $(mb "$tcontents") (kept text, compressed: $(mb "$tkept")): $(ratio "$tcontents" "$text_bytes") MB per MB of text (target <= 1.5)"
echo "            $phrase_line"
rg_of() { sed -n 's/.*, rg \([0-9.]*\) ms.*/\1/p' <<<"$1"; }
echo "              in process: $phrase_inproc ms: ratio to rg $(ratio "$phrase_inproc" "$(rg_of "$phrase_line")")"
echo "            $word_line"
echo "              in process: $word_inproc ms: ratio to rg $(ratio "$word_inproc" "$(rg_of "$word_line")")"
echo "            $common_line (its words are everywhere: for comparison, no target)"
echo "            start-up alone (trovix-cli --version): $(median "${startup[@]}") ms"
