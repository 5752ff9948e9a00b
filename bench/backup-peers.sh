#!/usr/bin/env bash
# Backup export and restore of a 100,000-record store with 1,000 attachments (about 120 MB), timed
# against Info-ZIP's `zip -0 -r` and `unzip` on the same staging tree. Wall time and peak resident
# memory of each run. Usage: bench/backup-peers.sh BUILD_DIR (a Release build with FIVA_BUILD_BENCH).
set -euo pipefail
build=$(cd "${1:-build-bench}" && pwd)
cli=$build/src/cli/fiva-cli
generate=$build/bench/store/fiva-generate-data
for tool in "$cli" "$generate"; do [ -x "$tool" ] || { echo "missing $tool" >&2; exit 1; }; done
for tool in zip unzip python3 /usr/bin/time; do command -v "$tool" >/dev/null || { echo "missing $tool" >&2; exit 1; }; done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/home/Fiva" "$work/restored" "$work/tmp"
export TMPDIR=$work/tmp

"$generate" 100000 "$work/generated.json"
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

measure() { # label, command...
  local label=$1; shift
  /usr/bin/time -f "%e %M" -o "$work/time" "$@" >/dev/null 2>"$work/err" || { cat "$work/err" >&2; exit 1; }
  read -r seconds kib <"$work/time"
  printf '| %s | %s s | %s MiB |\n' "$label" "$seconds" "$((kib / 1024))"
}

echo "| run | wall | peak RSS |"
echo "|---|---|---|"
# Both sides start from a cold page cache as far as we can get one without root: a warm-up read.
cat "$work"/files/*/* >/dev/null
XDG_DATA_HOME=$work/home measure "fiva-cli export" "$cli" export "$work/fiva.fivabackup"
XDG_DATA_HOME=$work/restored measure "fiva-cli restore --yes" "$cli" restore "$work/fiva.fivabackup" --yes

# The same staging tree, packed and unpacked by Info-ZIP.
mkdir "$work/tree"
unzip -q "$work/fiva.fivabackup" -d "$work/tree"
top=$(ls "$work/tree")
(cd "$work/tree" && measure "zip -0 -r (same tree)" zip -0 -r -q "$work/infozip.zip" "$top")
measure "unzip (same archive)" unzip -q "$work/infozip.zip" -d "$work/unzipped"
echo
echo "archive: $(stat -c %s "$work/fiva.fivabackup") bytes; data file: $(stat -c %s "$work/home/Fiva/FivaData.json") bytes"
