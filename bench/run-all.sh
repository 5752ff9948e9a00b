#!/usr/bin/env bash
# Runs every benchmark of a bench build. Usage: bench/run-all.sh BUILD_DIR
set -euo pipefail
build=${1:-build-bench}
here=$(cd "$(dirname "$0")" && pwd)
for b in "$build"/bench/*/bench_*; do
  [ -x "$b" ] || continue
  echo "== $(basename "$b")"
  "$b"
done
for s in "$here"/*.sh; do
  [ "$(basename "$s")" = run-all.sh ] && continue
  echo "== $(basename "$s")"
  "$s" "$build"
done
