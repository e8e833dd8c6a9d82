#!/usr/bin/env bash
# Contents speed: a case-blind phrase over a tree of text files, trovix-cli against ripgrep
# (rg -l -i -F) and GNU grep (grep -rliF), with the floor of reading the same bytes with cat
# into /dev/null, in one run, the tools taking turns so that a change of machine load hits
# them alike.
#
#   bench/contents_speed.sh [--cli PATH] [--reps N] [--tree DIR] [--megabytes N] [--seed S]
#
# Without --cli it builds a Release trovix-cli in $BUILD_DIR (default build-release/). The tree
# is made by make_text.py under $TMPDIR (default /tmp), 300 MB by default, and reused while its
# parameters match. Every command runs once untimed first (warm cache; that run's output also
# gives the result counts, which must agree), then N timed times each.
#
# The phrase is "quiet harbour lantern", planted in mixed case. trovix-cli reads a quoted
# phrase as a phrase and ignores case; rg and grep take it as a fixed string with -i. Hidden
# files (the tree's stamp) are passed over by trovix-cli and rg and read by grep and cat; the
# stamp holds no phrase. rg runs with --no-ignore and its default threads (one per core), and
# trovix-cli with its default threads; grep and cat have one.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
top=$(cd "$here/.." && pwd)
# shellcheck source=bench/timing.sh
. "$here/timing.sh"

cli=""
reps=7
tree=""
gen_args=()
while [ $# -gt 0 ]; do
  case "$1" in
    --cli) cli=$2; shift 2 ;;
    --reps) reps=$2; shift 2 ;;
    --tree) tree=$2; shift 2 ;;
    --megabytes|--seed) gen_args+=("$1" "$2"); shift 2 ;;
    -h|--help) sed -n '2,18p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) echo "contents_speed.sh: unknown argument $1" >&2; exit 2 ;;
  esac
done
tree=${tree:-${TMPDIR:-/tmp}/trovix-bench-text}

[ -z "$cli" ] && cli=$(build_release_cli "$top")
[ -x "$cli" ] || { echo "contents_speed.sh: no trovix-cli at $cli" >&2; exit 2; }
if ! command -v rg >/dev/null; then
  echo "installing ripgrep..."
  sudo_=(); [ "$(id -u)" -ne 0 ] && sudo_=(sudo)
  "${sudo_[@]}" apt-get -o DPkg::Lock::Timeout=600 install -y ripgrep >/dev/null
fi

python3 "$here/make_text.py" "$tree" "${gen_args[@]}"
phrase="quiet harbour lantern"

run_trovix() { "$cli" search "$tree" -r "System.Search.Contents: \"$phrase\"" --settings /dev/null "$@"; }
run_rg()     { rg -l -i -F --no-ignore "$@" "$phrase" "$tree"; }
run_grep()   { grep -rliF "$@" "$phrase" "$tree"; }
run_cat()    { find "$tree" -type f -print0 | xargs -0 cat; }

count() {  # tool: the number of files found, NUL-separated so any name counts once
  case $1 in
    trovix) run_trovix -0 2>/dev/null || true ;;
    rg) run_rg -0 || true ;;
    grep) run_grep -Z || true ;;
  esac | tr -cd '\0' | wc -c
}

tools=(trovix rg grep cat)
declare -A counts times cpus med cmed
echo
echo "tree: $tree ($(python3 -c 'import json,sys; s=json.load(open(sys.argv[1])); print("%d files, %d MB, the phrase planted in %d" % (s["files"], s["bytes"] >> 20, s["planted"]))' "$tree/.make_text-stamp"))"
echo "trovix-cli: $cli; $(rg --version | head -n 1); $(grep --version | head -n 1)"
echo "repetitions: $reps; load before: $(uptime | sed 's/.*load average: //')"

for t in trovix rg grep; do counts[$t]=$(count "$t"); done
run_cat >/dev/null
for ((r = 1; r <= reps; r++)); do
  for t in "${tools[@]}"; do
    read -r wall cpu < <(time_ms "run_$t")
    times[$t]+="$wall "
    cpus[$t]+="$cpu "
  done
done
echo "load after:  $(uptime | sed 's/.*load average: //')"
echo
for t in "${tools[@]}"; do
  # shellcheck disable=SC2086
  med[$t]=$(median ${times[$t]})
  # shellcheck disable=SC2086
  cmed[$t]=$(median ${cpus[$t]})
  printf '  %-7s median %6d ms wall %6d ms CPU   files %6s   wall runs: %s\n' \
    "$t" "${med[$t]}" "${cmed[$t]}" "${counts[$t]:--}" "${times[$t]}"
done
echo "  wall  trovix/rg $(ratio "${med[trovix]}" "${med[rg]}")   trovix/grep $(ratio "${med[trovix]}" "${med[grep]}")   trovix/cat $(ratio "${med[trovix]}" "${med[cat]}")"
echo "  CPU   trovix/rg $(ratio "${cmed[trovix]}" "${cmed[rg]}")   trovix/grep $(ratio "${cmed[trovix]}" "${cmed[grep]}")   trovix/cat $(ratio "${cmed[trovix]}" "${cmed[cat]}")"
if [ "${counts[trovix]}" != "${counts[rg]}" ] || [ "${counts[trovix]}" != "${counts[grep]}" ]; then
  echo "  the counts differ"
  exit 1
fi
