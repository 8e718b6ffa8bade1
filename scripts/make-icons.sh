#!/usr/bin/env bash
# Renders the application icon's PNG sizes from packaging/icons/brindle.svg
# (needs rsvg-convert from Debian's librsvg2-bin). The PNGs are committed.
set -euo pipefail
cd "$(dirname "$0")/../packaging/icons"
for size in 16 24 32 48 64 128 256 512; do
  rsvg-convert -w "$size" -h "$size" brindle.svg -o "brindle-$size.png"
done
