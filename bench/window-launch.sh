#!/usr/bin/env bash
# Time from process start to the first paint of the main window's record list, launching the real
# fiva (offscreen) again and again, with 100,000 generated records and with an empty data folder.
# Usage: bench/window-launch.sh BUILD_DIR [RUNS]   (default 21 runs each; median and worst in ms)
set -euo pipefail
build=${1:-build-bench}
runs=${2:-21}
fiva="$build/src/app/fiva"
generator="$build/bench/store/fiva-generate-data"
for tool in "$fiva" "$generator"; do
  [ -x "$tool" ] || { echo "missing $tool (configure with -DFIVA_BUILD_BENCH=ON)" >&2; exit 1; }
done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/full/data/Fiva" "$work/empty/data" "$work/full/config" "$work/empty/config"
"$generator" 100000 "$work/full/data/Fiva/FivaData.json"

python3 - "$fiva" "$work" "$runs" <<'PY'
import os, statistics, subprocess, sys, time
fiva, work, runs = sys.argv[1], sys.argv[2], int(sys.argv[3])

def launch(folder):
    env = dict(os.environ, QT_QPA_PLATFORM="offscreen", FIVA_FIRST_PAINT_PROBE="1",
               XDG_DATA_HOME=f"{work}/{folder}/data", XDG_CONFIG_HOME=f"{work}/{folder}/config")
    start = time.monotonic_ns()
    out = subprocess.run([fiva], env=env, capture_output=True, text=True, timeout=60).stdout
    for line in out.splitlines():
        if line.startswith("first-paint "):
            fields = line.split()
            return (int(fields[1]) - start) / 1e6, int(fields[3])
    sys.exit(f"no first paint reported ({folder}): {out!r}")

for folder, expected in (("empty", 0), ("full", 100000)):
    times = []
    for _ in range(runs):
        ms, rows = launch(folder)
        if rows != expected:
            sys.exit(f"{folder}: the first paint listed {rows} rows, not {expected}")
        times.append(ms)
    print(f"{folder:5} data folder: {runs} launches, median {statistics.median(times):.0f} ms, "
          f"worst {max(times):.0f} ms, best {min(times):.0f} ms")
PY
