#!/usr/bin/env bash
# `fiva-cli list` and `fiva-cli categories` on a 100,000-record store, against Python's json.load of the same
# data file, in one run: the median wall time of RUNS runs of each. `categories` opens the same store and
# prints a few lines, so `list` minus `categories` is what printing the records costs.
# Usage: bench/list-peers.sh BUILD_DIR   (fiva-cli and fiva-generate-data built with FIVA_BUILD_BENCH)
# Environment: RUNS (default 11), RECORDS (default 100000), WORK (scratch folder on the disk to measure).
set -euo pipefail
build=$(cd "${1:-build-bench}" && pwd)
cli=$build/src/cli/fiva-cli
generate=$build/bench/store/fiva-generate-data
runs=${RUNS:-11}
records=${RECORDS:-100000}
for tool in "$cli" "$generate"; do [ -x "$tool" ] || { echo "list-peers: missing $tool" >&2; exit 1; }; done
command -v python3 >/dev/null || { echo "list-peers: python3 is missing" >&2; exit 1; }
work=${WORK:-$(mktemp -d "${TMPDIR:-/tmp}/fiva-list-peers.XXXXXX")}
mkdir -p "$work/home/Fiva"
trap 'rm -rf "$work"' EXIT
data=$work/home/Fiva/FivaData.json
"$generate" "$records" "$data" >/dev/null

# Median wall time in seconds of running "$@" $runs times, stdout to /dev/null.
median() {
  local times=()
  for ((r = 0; r < runs; r++)); do
    local start end
    start=$(date +%s.%N)
    "$@" >/dev/null 2>&1 || { echo "list-peers: failed: $*" >&2; exit 1; }
    end=$(date +%s.%N)
    times+=("$(awk -v a="$start" -v b="$end" 'BEGIN { printf "%.6f", b - a }')")
  done
  printf '%s\n' "${times[@]}" | sort -g | awk '{ a[NR] = $1 } END { printf "%.3f", (NR % 2) ? a[(NR + 1) / 2] : (a[NR / 2] + a[NR / 2 + 1]) / 2 }'
}

export XDG_DATA_HOME=$work/home
cat "$data" >/dev/null
load_before=$(cut -d' ' -f1-3 /proc/loadavg)
# Interleaved, so that a change of load on the machine touches every row alike.
list=$(median "$cli" list)
categories=$(median "$cli" categories)
python=$(median python3 -c 'import json, sys; json.load(open(sys.argv[1], encoding="utf-8"))' "$data")
list_file=$(median sh -c "'$cli' list > '$work/listing.txt'")
echo "| run | median wall |"
echo "|---|---|"
echo "| \`fiva-cli list > /dev/null\` | $list s |"
echo "| \`fiva-cli list > file\` | $list_file s |"
echo "| \`fiva-cli categories > /dev/null\` | $categories s |"
echo "| Python \`json.load\` of the same file | $python s |"
awk -v l="$list" -v c="$categories" -v p="$python" -v f="$list_file" 'BEGIN {
  printf "\nprinting (list - categories): %.0f ms; to a file: %.0f ms; json.load / list: %.2fx\n", (l - c) * 1000, (f - c) * 1000, p / l }'
echo "records: $records; data file: $(stat -c %s "$data") bytes; listing: $(stat -c %s "$work/listing.txt") bytes"
echo "Load average (1, 5, 15 min) before: $load_before; after: $(cut -d' ' -f1-3 /proc/loadavg)"
