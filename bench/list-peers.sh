#!/usr/bin/env bash
# `fiva-cli list` and `fiva-cli categories` on a 100,000-record store, against Python's json.load of the same
# data file, in one run: the median wall time of RUNS runs of each. `categories` opens the same store and
# prints a few lines, so `list` minus `categories` is what printing the records costs.
# Usage: bench/list-peers.sh BUILD_DIR   (fiva-cli and fiva-generate-data built with FIVA_BUILD_BENCH)
# Environment: RUNS (default 11), RECORDS (default 100000), WORK (scratch folder on the disk to measure), CLI
# (another fiva-cli to time, such as one built before a change).
set -euo pipefail
build=$(cd "${1:-build-bench}" && pwd)
cli=${CLI:-$build/src/cli/fiva-cli}
generate=$build/bench/store/fiva-generate-data
runs=${RUNS:-11}
records=${RECORDS:-100000}
for tool in "$cli" "$generate"; do [ -x "$tool" ] || { echo "list-peers: missing $tool" >&2; exit 1; }; done
command -v /usr/bin/time >/dev/null || { echo "list-peers: /usr/bin/time is missing" >&2; exit 1; }
command -v python3 >/dev/null || { echo "list-peers: python3 is missing" >&2; exit 1; }
work=${WORK:-$(mktemp -d "${TMPDIR:-/tmp}/fiva-list-peers.XXXXXX")}
mkdir -p "$work/home/Fiva"
trap 'rm -rf "$work"' EXIT
data=$work/home/Fiva/FivaData.json
"$generate" "$records" "$data" >/dev/null

# Runs "$@" $runs times, stdout to /dev/null, and prints the median wall time and the median CPU time (user +
# system) in seconds. The CPU time leaves out the waits, chiefly the flush to disk of the data file that every
# start of the store rewrites, which on a busy disk varies more than anything measured here.
median() {
  local walls=() cpus=()
  for ((r = 0; r < runs; r++)); do
    /usr/bin/time -f "%e %U %S" -o "$work/time" "$@" >/dev/null 2>"$work/err" || { cat "$work/err" >&2; exit 1; }
    read -r wall user system <"$work/time"
    walls+=("$wall")
    cpus+=("$(awk -v u="$user" -v s="$system" 'BEGIN { printf "%.2f", u + s }')")
  done
  local mid='{ a[NR] = $1 } END { printf "%.2f", (NR % 2) ? a[(NR + 1) / 2] : (a[NR / 2] + a[NR / 2 + 1]) / 2 }'
  echo "$(printf '%s\n' "${walls[@]}" | sort -g | awk "$mid") $(printf '%s\n' "${cpus[@]}" | sort -g | awk "$mid")"
}

export XDG_DATA_HOME=$work/home
cat "$data" >/dev/null
load_before=$(cut -d' ' -f1-3 /proc/loadavg)
# Interleaved, so that a change of load on the machine touches every row alike.
read -r list list_cpu <<<"$(median "$cli" list)"
read -r categories categories_cpu <<<"$(median "$cli" categories)"
read -r python python_cpu <<<"$(median python3 -c 'import json, sys; json.load(open(sys.argv[1], encoding="utf-8"))' "$data")"
"$cli" list >"$work/listing.txt"
echo "| run | median wall | median CPU (user + system) |"
echo "|---|---|---|"
echo "| \`fiva-cli list > /dev/null\` | $list s | $list_cpu s |"
echo "| \`fiva-cli categories > /dev/null\` | $categories s | $categories_cpu s |"
echo "| Python \`json.load\` of the same file | $python s | $python_cpu s |"
awk -v l="$list" -v c="$categories" -v p="$python" -v lc="$list_cpu" -v cc="$categories_cpu" -v pc="$python_cpu" 'BEGIN {
  printf "\nprinting (list - categories): %.0f ms wall, %.0f ms CPU; json.load / list: %.2fx wall, %.2fx CPU\n",
    (l - c) * 1000, (lc - cc) * 1000, p / l, pc / lc }'
echo "records: $records; data file: $(stat -c %s "$data") bytes; listing: $(stat -c %s "$work/listing.txt") bytes"
echo "Load average (1, 5, 15 min) before: $load_before; after: $(cut -d' ' -f1-3 /proc/loadavg)"
