#!/usr/bin/env bash
# Contents speed: a contents rule (a quoted phrase) walked over three trees, trovix-cli beside
# ripgrep, medians of paired runs in one call, with the sets of files found compared.
#
#   bench/contents_speed.sh [--cli PATH] [--reps N] [--only text|doc|pdf]...
#                           [--megabytes N] [--files N] [--seed S] [--doc DIR] [--pdfs DIR]
#
#   text  plain text made by make_text.py (100 MB in about 24,000 files by default) under
#         $TMPDIR: the phrase "quiet harbour lantern", planted in mixed case.
#   doc   a tree of HTML, text and .gz files (default /usr/share/doc), "GNU General Public
#         License": without and with --search-zip (rg -z).
#   html  the HTML pages of the doc tree alone, copied (where the page parser's time shows),
#         "GNU General Public License" and a word no page holds.
#   pdf   the PDF files of DIR (default: the test corpus beside the source tree) copied 5
#         times, beside the HTML and text files of the doc tree's first 40 folders.
#
# The contents rule ignores case (its default), so each run of trovix-cli is paired with
# rg -uu -l -i -F (-uu: no ignore files, hidden files too; trovix-cli runs with -H). The text
# tree is also searched by a case-sensitive rg (the cheaper question rg answers with its rare-
# byte memchr), for that ratio. Every command runs once untimed first (warm cache; its output
# gives the sets of files, which are compared), then the commands take turns N times (default
# 5), so that a change of machine load hits them alike.
#
# Times: wall and CPU, the CPU of every process a run starts (the extraction helpers too) when
# perf is installed, else of the processes it waits for. "MB/s" is the tree's bytes over
# trovix-cli's median wall time.
#
# Hits: the text tree must give the same files (exit 1 otherwise). The other trees differ where
# the two read different text, and the differences are printed by extension: trovix-cli reads
# the text of HTML (no markup; entities decoded; white space, line breaks included, read as one
# blank) and of PDF, and decodes legacy encodings; rg reads raw bytes, passes over binary files,
# and reads PDFs only through pdftotext (--pre), which the pdf tree runs for the comparison.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
top=$(cd "$here/.." && pwd)
# shellcheck source=bench/timing.sh
. "$here/timing.sh"

cli=""
reps=5
only=()
gen_args=()
doc=/usr/share/doc
pdfs=$top/../shared/corpus/documents
megabytes=100
files=24000
seed=11
while [ $# -gt 0 ]; do
  case "$1" in
    --cli) cli=$2; shift 2 ;;
    --reps) reps=$2; shift 2 ;;
    --only) only+=("$2"); shift 2 ;;
    --megabytes) megabytes=$2; shift 2 ;;
    --files) files=$2; shift 2 ;;
    --seed) seed=$2; shift 2 ;;
    --doc) doc=$2; shift 2 ;;
    --pdfs) pdfs=$2; shift 2 ;;
    -h|--help) sed -n '2,33p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) echo "contents_speed.sh: unknown argument $1" >&2; exit 2 ;;
  esac
done
[ ${#only[@]} -eq 0 ] && only=(text doc html pdf)
wants() { [[ " ${only[*]} " == *" $1 "* ]]; }

if ! command -v rg >/dev/null; then
  echo "contents_speed.sh: skipped: ripgrep (rg, Debian package ripgrep) is not installed"
  exit 0
fi
[ -z "$cli" ] && cli=$(build_release_cli "$top")
[ -x "$cli" ] || { echo "contents_speed.sh: no trovix-cli at $cli" >&2; exit 2; }
work=${TMPDIR:-/tmp}
gen_args=(--megabytes "$megabytes" --files "$files" --seed "$seed")

# time_run COMMAND...: "wall_ms cpu_ms", the CPU of every process the command starts when perf
# can count it.
if perf stat -x, -e task-clock true >/dev/null 2>&1; then
  cpu_note="CPU: task-clock of all processes (perf)"
  time_run() {
    perf stat -x, -e task-clock,duration_time -- "$@" 2>&1 >/dev/null |
      awk -F, '$3 == "task-clock" { cpu = $1 } $3 == "duration_time" { wall = $1 / 1e6 }
               END { printf "%d %d\n", wall, cpu }'
  }
else
  cpu_note="CPU: user + system of waited-for processes (no perf: helpers not counted)"
  time_run() { time_ms "$@"; }
fi

# The commands of one comparison: trovix-cli's arguments, then rg's, as arrays named by the
# caller; run_pair times both, takes their file sets and prints one line.
status=0
declare -a row_names=()
declare -A row_lines=()
tree_bytes() { du -sb "$1" | cut -f1; }

# compare_sets NAME TROVIX_FILE RG_FILE STRICT: prints how the sets differ (by extension).
compare_sets() {
  local name=$1 a=$2 b=$3 strict=$4 only_t only_r
  only_t=$(comm -23 "$a" "$b" | wc -l)
  only_r=$(comm -13 "$a" "$b" | wc -l)
  if [ "$only_t" -eq 0 ] && [ "$only_r" -eq 0 ]; then
    echo "    $name: the same $(wc -l <"$a") files"
    return
  fi
  by_ext() { sed -E 's/.*\/[^/]*\.([A-Za-z0-9]+)$/.\1/; t; s/.*/(none)/' | sort | uniq -c | sort -rn |
               awk '{ printf "%s %s, ", $1, $2 }' | sed 's/, $//'; }
  echo "    $name: trovix $(wc -l <"$a"), rg $(wc -l <"$b"); only trovix: $only_t ($(comm -23 "$a" "$b" | by_ext));" \
       "only rg: $only_r ($(comm -13 "$a" "$b" | by_ext))"
  if [ "$strict" = strict ]; then
    echo "    the sets must be equal here"
    status=1
  fi
}

# measure LABEL BYTES STRICT -- TROVIX_ARGS... -- RG_ARGS...
measure() {
  local label=$1 bytes=$2 strict=$3 t_args=() r_args=() t_times="" r_times="" t_cpus="" r_cpus=""
  shift 4
  while [ "$1" != "--" ]; do t_args+=("$1"); shift; done
  shift
  r_args=("$@")
  local set_t set_r
  set_t=$(mktemp) set_r=$(mktemp)
  "$cli" search "${t_args[@]}" --settings /dev/null -0 2>/dev/null | tr '\0' '\n' | LC_ALL=C sort >"$set_t" || true
  rg "${r_args[@]}" -0 2>/dev/null | tr '\0' '\n' | LC_ALL=C sort >"$set_r" || true
  for ((r = 1; r <= reps; r++)); do
    read -r w c < <(time_run "$cli" search "${t_args[@]}" --settings /dev/null)
    t_times+="$w " t_cpus+="$c "
    read -r w c < <(time_run rg "${r_args[@]}")
    r_times+="$w " r_cpus+="$c "
  done
  # shellcheck disable=SC2086
  local tw tc rw rc
  tw=$(median $t_times) tc=$(median $t_cpus) rw=$(median $r_times) rc=$(median $r_cpus)
  printf '  %-34s trovix %6d / %6d ms   rg %6d / %6d ms   wall %5s  CPU %5s  %6s MB/s\n' \
    "$label" "$tw" "$tc" "$rw" "$rc" "$(ratio "$tw" "$rw")" "$(ratio "$tc" "$rc")" \
    "$(awk -v b="$bytes" -v t="$tw" 'BEGIN { if (t) printf "%.0f", b / 1048576 / (t / 1000); else print "-" }')"
  echo "    wall runs: trovix $t_times| rg $r_times"
  compare_sets "files found" "$set_t" "$set_r" "$strict"
  rm -f "$set_t" "$set_r"
}

echo "trovix-cli: $cli; $(rg --version 2>/dev/null | head -n 1); repetitions: $reps; $cpu_note"
echo "load before: $(uptime | sed 's/.*load average: //')"
echo "columns: median wall / CPU of each, the ratios trovix/rg, the read rate of trovix-cli"

if wants text; then
  tree=$work/trovix-bench-text-$megabytes-$files
  python3 "$here/make_text.py" "$tree" "${gen_args[@]}" >/dev/null
  phrase="quiet harbour lantern"
  echo
  echo "text: $tree ($(python3 -c 'import json,sys; s=json.load(open(sys.argv[1])); print("%d files, %d MB, the phrase planted in %d" % (s["files"], s["bytes"] >> 20, s["planted"]))' "$tree/.make_text-stamp"))"
  bytes=$(tree_bytes "$tree")
  measure "phrase, ignoring case (rg -i)" "$bytes" strict -- \
    "$tree" -H -r "System.Search.Contents: \"$phrase\"" -- -uu -l -i -F "$phrase" "$tree"
  measure "against case-sensitive rg" "$bytes" loose -- \
    "$tree" -H -r "System.Search.Contents: \"$phrase\"" -- -uu -l -F "$phrase" "$tree"
fi

if wants doc; then
  echo
  if [ -d "$doc" ]; then
    phrase="GNU General Public License"
    echo "doc: $doc ($(find "$doc" -type f | wc -l) files, $(($(tree_bytes "$doc") >> 20)) MB; by type:" \
         "$(find "$doc" -type f | sed -E 's/.*\.([A-Za-z0-9]+)$/\1/; t; s/.*/-/' | sort | uniq -c | sort -rn | sed -n "1,4p" |
            awk '{ printf "%s .%s, ", $1, $2 }' | sed 's/, $//'))"
    bytes=$(tree_bytes "$doc")
    measure "phrase (rg -i)" "$bytes" loose -- \
      "$doc" -H -r "System.Search.Contents: \"$phrase\"" -- -uu -l -i -F "$phrase" "$doc"
    measure "phrase, --search-zip (rg -i -z)" "$bytes" loose -- \
      "$doc" -H -z -r "System.Search.Contents: \"$phrase\"" -- -uu -l -i -F -z "$phrase" "$doc"
  else
    echo "doc: skipped: no folder $doc"
  fi
fi

if wants html; then
  echo
  if [ -d "$doc" ]; then
    tree=$work/trovix-bench-html
    rm -rf "$tree"
    mkdir -p "$tree"
    (cd "$doc" && find . -type f \( -name '*.html' -o -name '*.htm' \) -exec cp --parents {} "$tree/" \; 2>/dev/null) || true
    echo "html: $tree ($(find "$tree" -type f | wc -l) pages, $(($(tree_bytes "$tree") >> 20)) MB)"
    bytes=$(tree_bytes "$tree")
    phrase="GNU General Public License"
    measure "phrase (rg -i)" "$bytes" loose -- \
      "$tree" -H -r "System.Search.Contents: \"$phrase\"" -- -uu -l -i -F "$phrase" "$tree"
    measure "a word no page holds (rg -i)" "$bytes" loose -- \
      "$tree" -H -r "System.Search.Contents: zephyrine" -- -uu -l -i -F "zephyrine" "$tree"
  else
    echo "html: skipped: no folder $doc"
  fi
fi

if wants pdf; then
  echo
  if [ -d "$pdfs" ] && ls "$pdfs"/*.pdf >/dev/null 2>&1 && command -v pdftotext >/dev/null && [ -d "$doc" ]; then
    tree=$work/trovix-bench-pdf
    rm -rf "$tree"
    mkdir -p "$tree"
    for i in $(seq 1 5); do
      mkdir -p "$tree/copy$i"
      cp "$pdfs"/*.pdf "$tree/copy$i/"
    done
    # The HTML and text of a few of the doc tree's folders, so that PDFs are not all there is.
    find "$doc" -mindepth 1 -maxdepth 1 -type d | sort | sed -n "1,40p" | while read -r d; do
      mkdir -p "$tree/doc/$(basename "$d")"
      (cd "$d" && find . -type f \( -name '*.html' -o -name '*.txt' -o -name 'copyright' -o -name '*.md' \) \
         -exec cp --parents {} "$tree/doc/$(basename "$d")/" \; 2>/dev/null) || true
    done
    pre=$tree.pdftotext
    printf '#!/bin/sh\nexec pdftotext -q "$1" - 2>/dev/null\n' >"$pre"
    chmod +x "$pre"
    phrase="lorem ipsum"
    echo "pdf: $tree ($(find "$tree" -name '*.pdf' | wc -l) PDF, $(find "$tree" -type f ! -name '*.pdf' | wc -l) others," \
         "$(($(tree_bytes "$tree") >> 20)) MB); rg reads PDFs through pdftotext (--pre)"
    bytes=$(tree_bytes "$tree")
    measure "phrase (rg -i --pre pdftotext)" "$bytes" loose -- \
      "$tree" -H -r "System.Search.Contents: \"$phrase\"" -- -uu -l -i -F --pre "$pre" --pre-glob '*.pdf' "$phrase" "$tree"
  else
    echo "pdf: skipped: no PDF files in $pdfs (--pdfs DIR), or no pdftotext (poppler-utils), or no doc tree"
  fi
fi

echo
echo "load after:  $(uptime | sed 's/.*load average: //')"
exit $status
