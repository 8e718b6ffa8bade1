#!/usr/bin/env bash
# Exports a dataset for training with N brindle-convert processes on one machine, one
# shard each, then merges the shards: the result is byte for byte the one of a single
# run. Usage:
#   scripts/convert-sharded.sh N LAYOUT IMAGES ANNOTATIONS OUT [export options...]
# The export options (--val, --test, --seed, --images, --classes, --kp-order) are passed
# to every shard unchanged. BRINDLE_CONVERT names the program (default: brindle-convert
# on PATH).
set -euo pipefail

usage() { sed -n '2,9p' "$0" | sed 's/^# \{0,1\}//' >&2; exit 2; }
[ $# -ge 5 ] || usage
n=$1 layout=$2 images=$3 annotations=$4 out=$5
shift 5
[[ $n =~ ^[1-9][0-9]*$ ]] || { echo "convert-sharded: N must be a positive number, not \"$n\"" >&2; exit 2; }
[ -d "$images" ] || { echo "convert-sharded: $images: no such folder" >&2; exit 2; }
convert=${BRINDLE_CONVERT:-brindle-convert}
command -v "$convert" >/dev/null || { echo "convert-sharded: $convert not found" >&2; exit 2; }

lists=$(mktemp -d)
trap 'rm -rf "$lists"' EXIT

# The images the program lists: plain files directly in IMAGES with an image extension.
# Which shard an image goes to does not matter; the split follows from its name alone.
find -L "$images" -mindepth 1 -maxdepth 1 -type f ! -name '.*' \
     \( -iname '*.jpg' -o -iname '*.jpeg' -o -iname '*.png' -o -iname '*.bmp' \
        -o -iname '*.gif' -o -iname '*.tiff' \) -printf '%f\n' | LC_ALL=C sort >"$lists/all"
[ -s "$lists/all" ] || { echo "convert-sharded: no images in $images" >&2; exit 2; }
(cd "$lists" && split -n "r/$n" -d -a 4 all shard-)

pids=()
for list in "$lists"/shard-*; do
  [ -s "$list" ] || continue
  name=$(basename "$list")
  "$convert" export "$layout" "$images" "$annotations" "$out" "$@" \
    --files "$list" --shard "$name" --json >"$lists/$name.json" 2>"$lists/$name.log" &
  pids+=("$!:$name")
done
status=0
for entry in "${pids[@]}"; do
  if ! wait "${entry%%:*}"; then
    echo "convert-sharded: shard ${entry#*:} failed:" >&2
    cat "$lists/${entry#*:}.log" >&2
    status=2
  fi
done
[ $status -eq 0 ] || exit $status
"$convert" merge "$out"
