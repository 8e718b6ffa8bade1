#!/usr/bin/env bash
# Builds the Debian package, unpacks it into a scratch root and starts the installed
# program from there, far from the build folder.
set -euo pipefail
build=$(realpath "$1")
samples=$(realpath "$2")
scratch=$(mktemp -d)
trap '[ -z "${pid:-}" ] || kill "$pid" 2>/dev/null || true; rm -rf "$scratch"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

cpack --config "$build/CPackConfig.cmake" -G DEB -B "$scratch/pkg" >"$scratch/cpack.log" 2>&1 \
  || { cat "$scratch/cpack.log"; fail "cpack"; }
deb=$(ls "$scratch"/pkg/brindle_*.deb)
info=$(dpkg-deb --field "$deb" Depends Recommends)
for dep in libqt6widgets6 qt6-qpa-plugins ffmpeg 'libc6 (>='; do
  grep -q "^Depends:.*$dep" <<<"$info" || fail "Depends lacks $dep: $info"
done
grep -q '^Recommends:.*python3-opencv' <<<"$info" || fail "Recommends lacks python3-opencv"

root=$scratch/root
dpkg -x "$deb" "$root"
for program in brindle brindle-convert; do
  [ "$(readlink -f "$root/usr/bin/$program")" = "$root/usr/lib/brindle/$program" ] \
    || fail "usr/bin/$program does not lead to usr/lib/brindle/$program"
done
for f in usr/share/applications/brindle.desktop usr/share/icons/hicolor/scalable/apps/brindle.svg \
         usr/share/icons/hicolor/48x48/apps/brindle.png usr/share/man/man1/brindle.1.gz \
         usr/share/man/man1/brindle-convert.1.gz; do
  [ -s "$root/$f" ] || fail "missing $f"
done
for f in $(cd "$build" && ls *.py *.sh 2>/dev/null); do
  [ -s "$root/usr/lib/brindle/$f" ] || fail "helper $f is not next to the executable"
done
desktop-file-validate "$root/usr/share/applications/brindle.desktop" || fail "desktop entry"

cd "$scratch"
"$root/usr/bin/brindle" --help | grep -q '^Usage: brindle' || fail "--help"

# Open a one-image dataset headless; the background scan writes the label file when it
# has read the annotations, which proves the installed program loaded the dataset.
mkdir -p data/images
cp "$samples/images/street_01.png" data/images/
mkdir data/images/annotations
cp "$samples/annotations/street_01.xml" data/images/annotations/
label=$(grep -o -m1 '<name>[^<]*</name>' data/images/annotations/street_01.xml | sed 's/<[^>]*>//g')
QT_QPA_PLATFORM=offscreen "$root/usr/bin/brindle" "$scratch/data/images" >brindle.log 2>&1 &
pid=$!
for _ in $(seq 100); do
  [ -s data/images/annotations/label_colors.json ] && break
  kill -0 "$pid" 2>/dev/null || { cat brindle.log; fail "the installed program exited"; }
  sleep 0.2
done
grep -q "\"$label\"" data/images/annotations/label_colors.json 2>/dev/null \
  || { cat brindle.log; fail "the dataset was not opened (no label file with \"$label\")"; }
# The installed converter exports the same dataset without a display.
env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM "$root/usr/bin/brindle-convert" \
  export ultralytics-detect data/images data/images/annotations out --val 0 >convert.log 2>&1 \
  || { cat convert.log; fail "the installed brindle-convert failed"; }
[ -s out/data.yaml ] && [ -s out/labels/train/street_01.txt ] \
  || { cat convert.log; fail "brindle-convert wrote no data.yaml or label file"; }
echo "package OK: $(basename "$deb")"
