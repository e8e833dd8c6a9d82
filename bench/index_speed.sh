#!/usr/bin/env bash
# Index speed, in one run: building the index of the benchmark tree against plocate's updatedb,
# an update of the unchanged tree, name queries (in process, and as whole processes against
# plocate), a contents query against rg on the text tree, and the database's size against the
# raw path list.
#
#   bench/index_speed.sh [--cli PATH] [--reps N] [--files N] [--folders M] [--megabytes N]
#                        [--tokenizer trigram|words] [--read-phase]
#
# Targets: build (names and metadata) at most 3x updatedb; unchanged update at most 1x; a
# name query under 1 ms in process and no slower than plocate as a process; a contents query
# at least 50x faster than rg; names and metadata at most 1.5x the raw path list (the contents
# tables are reported apart). The index's second phase (reading properties and text through
# the handlers and the extraction helper) has no counterpart in updatedb and is reported apart.
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
tokenizer=trigram
read_phase=0
gen_args=()
text_args=()
while [ $# -gt 0 ]; do
  case "$1" in
    --cli) cli=$2; shift 2 ;;
    --reps) reps=$2; shift 2 ;;
    --files|--folders) gen_args+=("$1" "$2"); shift 2 ;;
    --megabytes) text_args+=("$1" "$2"); shift 2 ;;
    --tokenizer) tokenizer=$2; shift 2 ;;
    --read-phase) read_phase=1; shift ;;
    -h|--help) sed -n '2,18p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) echo "index_speed.sh: unknown argument $1" >&2; exit 2 ;;
  esac
done

tmp=${TMPDIR:-/tmp}
tree=$tmp/trovix-bench-tree
text=$tmp/trovix-bench-text
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

python3 "$here/make_tree.py" "$tree" "${gen_args[@]}"
python3 "$here/make_text.py" "$text" "${text_args[@]}"
export TROVIX_INDEX_TOKENIZER=$( [ "$tokenizer" = words ] && echo words || echo trigram )

db=$work/index.db
tdb=$work/text.db
pdb=$work/plocate.db
find "$tree" >/dev/null  # the same warm cache for everyone

echo "tree: $tree ($(find "$tree" | wc -l) entries); text: $text; contents tokenizer: $tokenizer"
echo "load before: $(uptime | sed 's/.*load average: //')"

# --- building ---------------------------------------------------------------------------
read -r u_wall _ < <(time_ms "$updatedb" -l 0 -U "$tree" -o "$pdb")
"$cli" --index "$db" index add "$tree" >/dev/null
# The walk (names and facts: what updatedb does too), then the read of properties and text,
# which has no counterpart there; --read-phase times it on this tree (whose files are sparse,
# so the documents and sound files among them are mostly zeros: slow for their readers).
build_line=$( { /usr/bin/time -f '%e %M' "$cli" --index "$db" index update --names-only; } 2>&1 | tail -n 2 | tr '\n' ' ')
[ "$read_phase" = 1 ] && read_line=$("$cli" --index "$db" index update)
walk_s=$(sed -n 's/.*(walk \([0-9.]*\) s, read \([0-9.]*\) s).*/\1/p' <<<"$build_line")
read_s=$(sed -n 's/.*(walk \([0-9.]*\) s, read \([0-9.]*\) s).*/\2/p' <<<"${read_line:-}")
read_s=${read_s:-"(not timed: --read-phase)"}
peak_kb=$(awk '{print $NF}' <<<"$build_line")

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
contents_bytes=$(sqlite3 "$db" "SELECT coalesce(sum(pgsize),0) FROM dbstat WHERE name LIKE 'contents%';")
names_bytes=$((db_bytes - contents_bytes))

# --- name queries -----------------------------------------------------------------------
word=invoice_42
cli_q=(); loc_q=()
for ((r = 1; r <= reps; r++)); do
  read -r w _ < <(time_ms "$cli" --index "$db" search "$tree" -r "name: $word"); cli_q+=("$w")
  read -r w _ < <(time_ms plocate -d "$pdb" "$word"); loc_q+=("$w")
done
cli_count=$( { "$cli" --index "$db" search "$tree" -r "name: $word" -0 2>/dev/null || true; } | tr -cd '\0' | wc -c)
loc_count=$( { plocate -d "$pdb" -0 "$word" || true; } | tr -cd '\0' | wc -c)
inproc=$(TROVIX_BENCH_INDEX=$db TROVIX_BENCH_ROOT=$tree "$build/bench/index_bench" \
  --benchmark_filter='Name' --benchmark_format=csv 2>/dev/null | awk -F, 'NR>1 {printf "%s %.0f us; ", $1, $3}')

# --- contents ---------------------------------------------------------------------------
"$cli" --index "$tdb" index add "$text" >/dev/null
text_build=$("$cli" --index "$tdb" index update | sed -n 's/.*(walk \([0-9.]*\) s, read \([0-9.]*\) s).*/walk \1 s, read \2 s/p')
sqlite3 "$tdb" "PRAGMA wal_checkpoint(TRUNCATE);" >/dev/null
text_bytes=$(du -sb "$text" | cut -f1)
tcontents=$(sqlite3 "$tdb" "SELECT coalesce(sum(pgsize),0) FROM dbstat WHERE name LIKE 'contents%';")
phrase='quiet harbour lantern'
ix=(); rgq=()
for ((r = 1; r <= reps; r++)); do
  read -r w _ < <(time_ms "$cli" --index "$tdb" search "$text" -r "contents: \"$phrase\""); ix+=("$w")
  read -r w _ < <(time_ms rg -i -l -F "$phrase" "$text"); rgq+=("$w")
done
# The same phrase through the route in process (no start-up, no printing).
ix_inproc=$(TROVIX_BENCH_INDEX=$tdb TROVIX_BENCH_ROOT=$text "$build/bench/index_bench" \
  --benchmark_filter='Contents' --benchmark_format=csv 2>/dev/null | awk -F, 'NR>1 {printf "%.1f ms", $3 / 1000}')
ix_count=$( { "$cli" --index "$tdb" search "$text" -r "contents: \"$phrase\"" -0 2>/dev/null || true; } | tr -cd '\0' | wc -c)
rg_count=$( { rg -i -l -F -0 "$phrase" "$text" || true; } | tr -cd '\0' | wc -c)
echo "load after:  $(uptime | sed 's/.*load average: //')"

mb() { awk -v b="$1" 'BEGIN { printf "%.1f MB", b / 1e6 }'; }
echo
echo "build:      updatedb $u_wall ms; trovix walk (names, metadata) ${walk_s} s, peak $((peak_kb / 1024)) MiB; read (properties, text) ${read_s} s"
echo "            ratio walk/updatedb $(ratio "$(awk -v s="$walk_s" 'BEGIN{print s*1000}')" "$u_wall") (target <= 3)"
echo "unchanged:  trovix update $upd_med ms, updatedb $uupd_med ms: ratio $(ratio "$upd_med" "$uupd_med") (target <= 1)   runs: ${upd[*]} / ${uupd[*]}"
echo "size:       paths $(mb "$paths_bytes"); index $(mb "$db_bytes") of which names and metadata $(mb "$names_bytes") ($(ratio "$names_bytes" "$paths_bytes")x, target <= 1.5), contents $(mb "$contents_bytes"); plocate $(mb "$(stat -c %s "$pdb")")"
echo "name query: in process: $inproc"
echo "            process: trovix-cli $(median "${cli_q[@]}") ms ($cli_count results), plocate $(median "${loc_q[@]}") ms ($loc_count results): ratio $(ratio "$(median "${cli_q[@]}")" "$(median "${loc_q[@]}")") (target <= 1)"
echo "contents:   text $(mb "$text_bytes") indexed in $text_build, contents tables $(mb "$tcontents") ($tokenizer)"
echo "            \"$phrase\" (all three words are in every file): trovix-cli $(median "${ix[@]}") ms ($ix_count files), rg $(median "${rgq[@]}") ms ($rg_count files): rg/trovix $(ratio "$(median "${rgq[@]}")" "$(median "${ix[@]}")") (target >= 50)"
echo "            in process: $ix_inproc. (A word in no file is not worth timing: a search the index answers with nothing goes on to read the folders, as it must.)"
