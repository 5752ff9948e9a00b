#!/usr/bin/env bash
# Backup export and restore of a 100,000-record store with 1,000 attachments of 120 KiB, against Info-ZIP's
# `zip -0 -r` of the same tree already laid out (the archive's own content, unpacked) and `unzip` of that
# archive, in one run: median wall time of RUNS runs of each, interleaved, and the peak resident memory of
# the last run. Usage: bench/backup-peers.sh BUILD_DIR (fiva-cli and fiva-generate-data, FIVA_BUILD_BENCH).
# Environment: RUNS (default 5), WORK (scratch folder on the disk to measure, default under TMPDIR).
set -euo pipefail
build=$(cd "${1:-build-bench}" && pwd)
cli=$build/src/cli/fiva-cli
generate=$build/bench/store/fiva-generate-data
runs=${RUNS:-5}
for tool in "$cli" "$generate"; do [ -x "$tool" ] || { echo "missing $tool" >&2; exit 1; }; done
for tool in zip unzip python3 /usr/bin/time; do command -v "$tool" >/dev/null || { echo "missing $tool" >&2; exit 1; }; done

work=${WORK:-$(mktemp -d "${TMPDIR:-/tmp}/fiva-backup-peers.XXXXXX")}
mkdir -p "$work"
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/home/Fiva" "$work/tmp"
export TMPDIR=$work/tmp

"$generate" 100000 "$work/generated.json" >/dev/null
# Point the first 1,000 attachments at real files of 120 KiB; a third share the name rapport.pdf.
python3 - "$work/generated.json" "$work/home/Fiva/FivaData.json" "$work/files" <<'PY'
import json, os, random, sys
source, target, folder = sys.argv[1:]
data = json.load(open(source, encoding='utf-8'))
random.seed(5)
count = 0
for item in data['items']:
    for attachment in item.get('attachments', []):
        if count == 1000:
            break
        name = 'rapport.pdf' if count % 3 == 0 else f'pièce {count}.bin'
        path = os.path.join(folder, f'd{count}', name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, 'wb') as f:
            f.write(random.randbytes(120 * 1024))
        attachment['filePath'], attachment['fileName'] = path, name
        count += 1
assert count == 1000, count
json.dump(data, open(target, 'w', encoding='utf-8'), ensure_ascii=False, separators=(',', ':'))
PY
rm "$work/generated.json"

# One timed run: "label" prepare command...; appends the wall time to $work/times-label and the CPU time
# (user + system) to $work/cpu-label, and keeps the peak memory of the last run in $work/rss-label.
timed() {
  local label=$1 prepare=$2; shift 2
  eval "$prepare"
  sync
  /usr/bin/time -f "%e %M %U %S" -o "$work/time" "$@" >/dev/null 2>"$work/err" || { cat "$work/err" >&2; exit 1; }
  read -r seconds kib user system <"$work/time"
  echo "$seconds" >>"$work/times-$label"
  awk -v u="$user" -v s="$system" 'BEGIN { printf "%.2f\n", u + s }' >>"$work/cpu-$label"
  echo "$((kib / 1024))" >"$work/rss-$label"
}
median() { # label [times|cpu]
  sort -g "$work/${2:-times}-$1" | awk '{ a[NR] = $1 } END { printf "%.2f", (NR % 2) ? a[(NR + 1) / 2] : (a[NR / 2] + a[NR / 2 + 1]) / 2 }'
}

# The tree zip packs: what the export puts in its archive, laid out on disk once.
XDG_DATA_HOME=$work/home "$cli" export "$work/first.fivabackup" >/dev/null
mkdir "$work/tree"
unzip -q "$work/first.fivabackup" -d "$work/tree"
top=$(ls "$work/tree")
cat "$work"/files/*/* "$work/home/Fiva/FivaData.json" >/dev/null

load_before=$(cut -d' ' -f1-3 /proc/loadavg)
for ((r = 0; r < runs; r++)); do
  XDG_DATA_HOME=$work/home timed export "rm -f '$work/fiva.fivabackup'" "$cli" export "$work/fiva.fivabackup"
  (cd "$work/tree" && timed zip "rm -f '$work/infozip.zip'" zip -0 -r -q "$work/infozip.zip" "$top")
  XDG_DATA_HOME=$work/restored timed restore "rm -rf '$work/restored'; mkdir -p '$work/restored'" \
    "$cli" restore "$work/fiva.fivabackup" --yes
  timed unzip "rm -rf '$work/unzipped'" unzip -q "$work/infozip.zip" -d "$work/unzipped"
done
echo "File system of $work: $(stat -f -c %T "$work"); $runs runs each, interleaved"
echo
echo "| run | median wall | median CPU (user + system) | peak RSS |"
echo "|---|---|---|---|"
for label in export zip restore unzip; do
  case $label in
    export) name="\`fiva-cli export\`" ;;
    zip) name="\`zip -0 -r\` of the same tree, laid out" ;;
    restore) name="\`fiva-cli restore --yes\`" ;;
    unzip) name="\`unzip\` of that archive" ;;
  esac
  echo "| $name | $(median "$label") s | $(median "$label" cpu) s | $(cat "$work/rss-$label") MiB |"
done
awk -v e="$(median export)" -v z="$(median zip)" -v ec="$(median export cpu)" -v zc="$(median zip cpu)" \
  'BEGIN { printf "\nexport / zip -0 -r: %.2f wall, %.2f CPU\n", e / z, ec / zc }'
echo "archive: $(stat -c %s "$work/fiva.fivabackup") bytes; data file: $(stat -c %s "$work/home/Fiva/FivaData.json") bytes"
echo "Load average (1, 5, 15 min) before: $load_before; after: $(cut -d' ' -f1-3 /proc/loadavg)"
