#!/usr/bin/env bash
# Python's json module on the same generated data files, as the reference for bench_data.
# Usage: bench/data-peers.sh BUILD_DIR
set -euo pipefail
build=${1:-build-bench}
generator="$build/bench/store/fiva-generate-data"
[ -x "$generator" ] || { echo "missing $generator (configure with -DFIVA_BUILD_BENCH=ON)" >&2; exit 1; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

for count in 10000 100000; do
  file="$work/FivaData-$count.json"
  "$generator" "$count" "$file"
  python3 - "$file" "$count" <<'PY'
import json, os, sys, time
path, count = sys.argv[1], int(sys.argv[2])
out = path + ".out"

def best(f, runs=5):
    times = []
    for _ in range(runs):
        t = time.perf_counter()
        f()
        times.append(time.perf_counter() - t)
    return min(times) * 1000

def load():
    with open(path, "rb") as fh:
        return json.loads(fh.read())

data = load()
def save():
    with open(out, "wb") as fh:
        fh.write(json.dumps(data, ensure_ascii=False, separators=(",", ":")).encode())

size = os.path.getsize(path) / 1e6
print(f"python json {count:>6} records {size:6.1f} MB: read+loads {best(load):7.1f} ms, "
      f"dumps+write {best(save):7.1f} ms")
PY
done
