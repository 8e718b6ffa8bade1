#!/usr/bin/env bash
# Installs the Debian packages Brindle needs to build, test and run.
# Idempotent: only missing packages are installed.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config
  qt6-base-dev qt6-base-dev-tools libqt6svg6 qt6-image-formats-plugins
  libgl-dev libxkbcommon-dev
  clang libclang-rt-14-dev
  xvfb xauth xdotool imagemagick
  ffmpeg python3 python3-numpy python3-opencv python3-yaml
  fonts-dejavu-core fonts-symbola
  dpkg-dev file desktop-file-utils
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then
  SUDO="sudo"
fi

echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
