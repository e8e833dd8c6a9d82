#!/usr/bin/env bash
# Search speed: trovix-cli against fd and GNU find on one large generated tree, in one run,
# the three tools taking turns so that a change of machine load hits them alike.
#
#   bench/search_speed.sh [--cli PATH] [--reps N] [--threads T] [--hidden] [--tree DIR]
#                         [--files N] [--folders M] [--seed S]
#
# Without --cli it configures and builds a Release trovix-cli in $BUILD_DIR (default
# build-release/ beside the sources). The tree is made by make_tree.py under $TMPDIR (default
# /tmp) and reused while its parameters match. Every command runs once untimed first (warm
# cache; that run's output also gives the result counts), then N timed times each.
#
# Three questions, asked the same way of every tool:
#   name        names matching *.txt, case-blind (trovix-cli's name rules are case-blind;
#               fd's smart case is case-blind for an all-lower-case pattern; find -iname)
#   size+date   size > 100 KB (KiB) and modified in the last 30 days
#   ext+type+size  files with the extension h of at least 10,000 bytes, in fd's own words
#               (-t f --ext h -S +10k): a name decides most items, and a tool that asks every
#               item's status for the size pays for it here
# Hidden items (names beginning with ".") are skipped, and hidden folders not entered, by all
# three; --hidden includes them in all three. fd runs with --no-ignore so that no .gitignore
# or .ignore file is consulted (trovix-cli and find know nothing of them), and --threads T is
# given to trovix-cli as --threads and to fd as -j; find has one thread. Symbolic links are
# not followed by any of them. find runs with LC_ALL=C so that names that are not UTF-8 are
# matched bytewise.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
top=$(cd "$here/.." && pwd)
# shellcheck source=bench/timing.sh
. "$here/timing.sh"

cli=""
reps=7
threads=2
hidden=0
tree=""
gen_args=()
while [ $# -gt 0 ]; do
  case "$1" in
    --cli) cli=$2; shift 2 ;;
    --reps) reps=$2; shift 2 ;;
    --threads) threads=$2; shift 2 ;;
    --hidden) hidden=1; shift ;;
    --tree) tree=$2; shift 2 ;;
    --files|--folders|--seed) gen_args+=("$1" "$2"); shift 2 ;;
    -h|--help) sed -n '2,22p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) echo "search_speed.sh: unknown argument $1" >&2; exit 2 ;;
  esac
done

tmp=${TMPDIR:-/tmp}
tree=${tree:-$tmp/trovix-bench-tree}

# --- the programs ---------------------------------------------------------------------
[ -z "$cli" ] && cli=$(build_release_cli "$top")
[ -x "$cli" ] || { echo "search_speed.sh: no trovix-cli at $cli" >&2; exit 2; }

if ! command -v fdfind >/dev/null; then
  echo "installing fd (Debian package fd-find)..."
  sudo_=(); [ "$(id -u)" -ne 0 ] && sudo_=(sudo)
  "${sudo_[@]}" apt-get -o DPkg::Lock::Timeout=600 install -y fd-find >/dev/null
fi

# --- the tree -------------------------------------------------------------------------
python3 "$here/make_tree.py" "$tree" "${gen_args[@]}"

# --- the questions --------------------------------------------------------------------
since=$(date -d '30 days ago' +%F)  # trovix-cli takes a day; the tree has no dates near it
cli_hidden=(); fd_hidden=(); find_prune=(-name '.*' -prune -o)
if [ "$hidden" = 1 ]; then
  cli_hidden=(--hidden); fd_hidden=(--hidden); find_prune=()
fi

run_cli_name()  { "$cli" search "$tree" -r 'name: *.txt' --threads "$threads" "${cli_hidden[@]}" "$@"; }
run_find_name() { LC_ALL=C find "$tree" "${find_prune[@]}" -iname '*.txt' "${@:--print}"; }

run_cli_sd()  { "$cli" search "$tree" -r 'size: > 100 KB' -r "DateModified: >= $since" --threads "$threads" \
                  "${cli_hidden[@]}" "$@"; }
run_find_sd() { LC_ALL=C find "$tree" "${find_prune[@]}" -size +100k -mtime -30 "${@:--print}"; }

# fd takes its pattern and then the folder; the empty pattern matches every name.
run_fd_name() { fdfind --no-ignore "${fd_hidden[@]}" -j "$threads" "$@" --glob '*.txt' "$tree"; }
run_fd_sd()   { fdfind --no-ignore "${fd_hidden[@]}" -j "$threads" --size +100ki --changed-within 30d "$@" '' "$tree"; }

# fd's "+10k" is at least 10,000 bytes, as trovix-cli's; find's -size +9999c says the same.
run_cli_ets()  { "$cli" search "$tree" -t f --ext h -S +10k --threads "$threads" "${cli_hidden[@]}" "$@"; }
run_fd_ets()   { fdfind --no-ignore "${fd_hidden[@]}" -j "$threads" -t f -e h -S +10k "$@" '' "$tree"; }
run_find_ets() { LC_ALL=C find "$tree" "${find_prune[@]}" -type f -iname '*.h' -size +9999c "${@:--print}"; }

# Counts: NUL-separated output, so any name counts as one result. A tool that finds nothing
# may exit with 1 (trovix-cli does); that is a count of 0, not a failure of the script.
count() {  # tool query
  case $1 in
    trovix) "run_cli_$2" -0 2>/dev/null || true ;;
    fd) "run_fd_$2" -0 || true ;;
    find) "run_find_$2" -print0 || true ;;
  esac | tr -cd '\0' | wc -c
}

timed() { time_ms "run_$(fn "$1")_$2"; }  # tool query
fn() { case $1 in trovix) echo cli ;; *) echo "$1" ;; esac; }

tools=(trovix fd find)
queries=(name sd ets)
declare -A label=([name]="name *.txt" [sd]="size > 100 KiB and modified in the last 30 days"
                  [ets]="files *.h of at least 10,000 bytes (-t f --ext h -S +10k)")
declare -A counts times cpus

echo
echo "tree: $tree ($(python3 -c 'import json,sys; p=json.load(open(sys.argv[1]))["params"]; print("%d files, %d folders, seed %d" % (p["files"], p["folders"], p["seed"]))' "$tree/.make_tree-stamp"))"
echo "trovix-cli: $cli; fd: $(fdfind --version); find: $(find --version | head -n 1)"
echo "threads: $threads (trovix-cli --threads, fd -j); hidden items: $([ "$hidden" = 1 ] && echo included || echo skipped); repetitions: $reps"
echo "load before: $(uptime | sed 's/.*load average: //')"

# Warm-up and counts.
for q in "${queries[@]}"; do
  for t in "${tools[@]}"; do counts[$t.$q]=$(count "$t" "$q"); done
done

for ((r = 1; r <= reps; r++)); do
  for q in "${queries[@]}"; do
    for t in "${tools[@]}"; do
      read -r wall cpu < <(timed "$t" "$q")
      times[$t.$q]+="$wall "
      cpus[$t.$q]+="$cpu "
    done
  done
done
echo "load after:  $(uptime | sed 's/.*load average: //')"

status=0
for q in "${queries[@]}"; do
  echo
  echo "${label[$q]}"
  declare -A med=() cmed=()
  for t in "${tools[@]}"; do
    # shellcheck disable=SC2086
    med[$t]=$(median ${times[$t.$q]})
    # shellcheck disable=SC2086
    cmed[$t]=$(median ${cpus[$t.$q]})
    printf '  %-7s median %6d ms wall %6d ms CPU   results %7d   wall runs: %s\n' \
      "$t" "${med[$t]}" "${cmed[$t]}" "${counts[$t.$q]}" "${times[$t.$q]}"
  done
  ratios() { awk -v a="$1" -v b="$2" -v c="$3" -v what="$4" \
    'BEGIN { printf "  %-5s trovix/fd %.2f   trovix/find %.2f\n", what, (b ? a / b : 0), (c ? a / c : 0) }'; }
  ratios "${med[trovix]}" "${med[fd]}" "${med[find]}" wall
  ratios "${cmed[trovix]}" "${cmed[fd]}" "${cmed[find]}" CPU
  if [ "${counts[trovix.$q]}" != "${counts[fd.$q]}" ] || [ "${counts[trovix.$q]}" != "${counts[find.$q]}" ]; then
    echo "  the counts differ"
    status=1
  fi
done
# Peak memory (maximum resident set) of one whole walk with each query, output discarded.
echo
peak_file=$(mktemp)
for q in "${queries[@]}"; do
  case $q in
    name) args=(search "$tree" -r 'name: *.txt') ;;
    sd) args=(search "$tree" -r 'size: > 100 KB' -r "DateModified: >= $since") ;;
    ets) args=(search "$tree" -t f --ext h -S +10k) ;;
  esac
  /usr/bin/time -f '%M' -o "$peak_file" "$cli" "${args[@]}" --threads "$threads" "${cli_hidden[@]}" >/dev/null 2>&1 || true
  echo "peak memory of trovix-cli, ${label[$q]}: $(tail -n 1 "$peak_file") KiB"
done
rm -f "$peak_file"
exit $status
