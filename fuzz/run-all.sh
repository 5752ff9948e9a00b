#!/usr/bin/env bash
# Runs every fuzz target of a fuzz build for SECONDS each, starting from its seed corpus.
# Usage: fuzz/run-all.sh BUILD_DIR SECONDS
set -euo pipefail
build=${1:-build-fuzz}
seconds=${2:-60}
here=$(cd "$(dirname "$0")" && pwd)
status=0
for bin in "$build"/fuzz/fuzz_*; do
  # Only programs: the build also leaves folders named after the targets.
  [ -f "$bin" ] && [ -x "$bin" ] || continue
  name=$(basename "$bin")
  target=${name#fuzz_}
  # New inputs go to a scratch corpus so the seeds in the repository stay small.
  work=$(mktemp -d)
  artifacts="$build/fuzz/artifacts-$target/"
  mkdir -p "$artifacts"
  echo "== $name for ${seconds}s"
  if ! "$bin" -max_total_time="$seconds" -max_len=16384 -timeout=20 -rss_limit_mb=2048 \
       -artifact_prefix="$artifacts" -print_final_stats=1 "$work" "$here/corpus/$target" 2>"$work.log"; then
    status=1
    echo "!! $name found a failure; artifacts in $artifacts"
  fi
  grep -E "stat::number_of_executed_units|stat::peak_rss_mb|ERROR|SUMMARY" "$work.log" || true
  rm -rf "$work" "$work.log"
done
exit $status
