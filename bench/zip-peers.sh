#!/usr/bin/env bash
# Packs and unpacks three data sets with fiva-cli and with Info-ZIP, bsdtar and 7z (all storing, no
# compression), with `cp -r` as the floor, and prints the median wall time of RUNS runs as a Markdown table.
# Usage: bench/zip-peers.sh [BUILD_DIR]   (fiva-cli is taken from BUILD_DIR/src/cli/fiva-cli)
# Environment: RUNS (default 5), WORK (scratch folder, default under TMPDIR: put it on the disk to measure, such
# as the project's folder for ext4 or /dev/shm for tmpfs), SETS (default "docs many big").
set -euo pipefail
build=${1:-build-bench}
cli=$(cd "$build" && pwd)/src/cli/fiva-cli
runs=${RUNS:-5}
sets=${SETS:-docs many big}
for tool in zip unzip bsdtar 7z python3; do
  command -v "$tool" >/dev/null || { echo "zip-peers: $tool is missing (scripts/install-deps installs it)" >&2; exit 1; }
done
[ -x "$cli" ] || { echo "zip-peers: $cli is not built" >&2; exit 1; }
work=${WORK:-$(mktemp -d "${TMPDIR:-/tmp}/fiva-zip-peers.XXXXXX")}
mkdir -p "$work"
trap 'rm -rf "$work"' EXIT

make_set() {
  local name=$1 root=$work/src-$1/Data
  rm -rf "$work/src-$name"
  mkdir -p "$root"
  case $name in
    docs|a) # 1,000 files of 40 to 200 kB, about 120 MB, in 20 folders
      python3 - "$root" <<'PY'
import os, random, sys
root = sys.argv[1]
random.seed(1)
block = os.urandom(1 << 20)
for i in range(1000):
    folder = os.path.join(root, "f%02d" % (i % 20))
    os.makedirs(folder, exist_ok=True)
    size = random.randint(40_000, 200_000)
    start = random.randint(0, len(block) - size)
    with open(os.path.join(folder, "file%04d.bin" % i), "wb") as f:
        f.write(block[start:start + size])
PY
      ;;
    many|b) # 20,000 files of 100 to 3,000 bytes in 200 folders
      python3 - "$root" <<'PY'
import os, random, sys
root = sys.argv[1]
random.seed(2)
for i in range(20000):
    folder = os.path.join(root, "d%03d" % (i % 200))
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, "note%05d.txt" % i), "wb") as f:
        f.write(os.urandom(random.randint(100, 3000)))
PY
      ;;
    big|c) # one file of 1 GiB
      head -c $((1 << 30)) /dev/urandom > "$root/big.bin"
      ;;
  esac
}

# Median wall time in seconds of running "$@" $runs times; $prepare runs before each, untimed.
median() {
  local prepare=$1; shift
  local times=()
  for ((r = 0; r < runs; r++)); do
    eval "$prepare"
    sync
    local start end
    start=$(date +%s.%N)
    "$@" >/dev/null 2>&1 || { echo "zip-peers: failed: $*" >&2; exit 1; }
    end=$(date +%s.%N)
    times+=("$(awk -v a="$start" -v b="$end" 'BEGIN { printf "%.6f", b - a }')")
  done
  printf '%s\n' "${times[@]}" | sort -g | awk '{ a[NR] = $1 } END { printf "%.3f", (NR % 2) ? a[(NR + 1) / 2] : (a[NR / 2] + a[NR / 2 + 1]) / 2 }'
}

load_before=$(cut -d' ' -f1-3 /proc/loadavg)
echo "File system of $work: $(stat -f -c %T "$work"); $runs runs each"
echo
echo "| set | operation | fiva-cli | Info-ZIP | bsdtar | 7z | cp -r |"
echo "|---|---|---|---|---|---|---|"
for set in $sets; do
  make_set "$set"
  src=$work/src-$set
  out=$work/out
  # Warm the page cache with one untimed pass over the data.
  find "$src" -type f -exec cat {} + > /dev/null
  a=$work/a.zip
  pack_fiva=$(median "rm -f $a" "$cli" zip "$src/Data" "$a" --keep-parent)
  pack_zip=$(median "rm -f $a" sh -c "cd '$src' && zip -0 -r -q '$a' Data")
  pack_bsdtar=$(median "rm -f $a" sh -c "cd '$src' && bsdtar --format zip --options zip:compression=store -cf '$a' Data")
  pack_7z=$(median "rm -f $a" sh -c "cd '$src' && 7z a -tzip -mx=0 '$a' Data")
  pack_cp=$(median "rm -rf $out" cp -r "$src/Data" "$out")
  rm -rf "$out" "$a"
  (cd "$src" && zip -0 -r -q "$a" Data)
  unpack_fiva=$(median "rm -rf $out" "$cli" unzip "$a" "$out")
  unpack_zip=$(median "rm -rf $out; mkdir -p $out" unzip -q "$a" -d "$out")
  unpack_bsdtar=$(median "rm -rf $out; mkdir -p $out" bsdtar -xf "$a" -C "$out")
  unpack_7z=$(median "rm -rf $out" 7z x "$a" "-o$out")
  unpack_cp=$(median "rm -rf $out" cp -r "$src/Data" "$out")
  rm -rf "$out" "$a" "$src"
  label=$(case $set in docs|a) echo "docs: 1,000 files, 120 MB";; many|b) echo "many: 20,000 small files";; big|c) echo "big: one 1 GiB file";; esac)
  echo "| $label | pack | $pack_fiva | $pack_zip | $pack_bsdtar | $pack_7z | $pack_cp |"
  echo "| $label | unpack | $unpack_fiva | $unpack_zip | $unpack_bsdtar | $unpack_7z | $unpack_cp |"
done
echo
echo "Load average (1, 5, 15 min) before: $load_before; after: $(cut -d' ' -f1-3 /proc/loadavg)"
