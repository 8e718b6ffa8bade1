#!/bin/bash
# Installs what Brindle's AI tools need -- ultralytics, opencv-python and numpy<2.0 --
# for the Python interpreter Brindle will use: the first of "python" and "python3" on the
# search path that runs, the same order the AI windows try. Works on macOS and Linux.
#
# Lines starting with "INFO:" and "ERROR:" are shown in colour in Brindle's log; pip's own
# output appears as it comes. Exit codes: 0 done, 1 no usable Python, 2 no pip or no way
# to create an environment, 3 no network, 4 the installation failed.
#
# A Python that refuses system-wide pip installs (PEP 668, e.g. Debian's and Ubuntu's
# /usr/bin/python3 or Homebrew's) is never forced: the packages go into a private virtual
# environment instead, and "python" in ~/.local/bin points at it.

set -u

PACKAGES=(ultralytics opencv-python "numpy<2.0")

info() { echo "INFO:$*"; }
fail() { echo "ERROR:$2"; exit "$1"; }

case "${OSTYPE:-}" in
  darwin*) platform=macOS; venv_dir="$HOME/Library/Application Support/Brindle/python-env" ;;
  *) platform=Linux; venv_dir="${XDG_DATA_HOME:-$HOME/.local/share}/brindle/python-env" ;;
esac
link_dir="$HOME/.local/bin"

info "Step 1/4: looking for Python 3 ($platform)..."
python=""
for name in python python3; do
  if command -v "$name" >/dev/null 2>&1 && "$name" --version >/dev/null 2>&1; then
    python="$name"
    break
  fi
done
if [ -z "$python" ]; then
  if [ "$platform" = macOS ] && command -v xcode-select >/dev/null 2>&1; then
    xcode-select --install >/dev/null 2>&1
    fail 1 "Python 3 is not installed. macOS now offers to install the Command Line Tools, which include Python 3; run Install AI Dependencies again when they are installed (or install Python from https://www.python.org/downloads/)."
  fi
  fail 1 "Python 3 was not found. Install it with your package manager (for example: sudo apt install python3 python3-venv python3-pip) or from https://www.python.org/downloads/, then run Install AI Dependencies again."
fi
if ! "$python" -c 'import sys; sys.exit(0 if sys.version_info >= (3, 8) else 1)' >/dev/null 2>&1; then
  fail 1 "'$python' is $("$python" --version 2>&1); the AI tools need Python 3.8 or newer as '$python' on the search path."
fi
info "Using $(command -v "$python") ($("$python" --version 2>&1))"

info "Step 2/4: checking the connection to the Python Package Index..."
if ! "$python" -c 'import urllib.request; urllib.request.urlopen("https://pypi.org/simple/pip/", timeout=15)' >/dev/null 2>&1; then
  fail 3 "Cannot reach pypi.org. Check the internet connection (and proxy settings) and try again."
fi

# How this interpreter takes packages: "env" (a virtual or conda environment, or a
# writable installation), "managed" (refuses pip, PEP 668) or "user" (pip --user).
mode=$("$python" -c '
import os, sys, sysconfig
if sys.prefix != getattr(sys, "base_prefix", sys.prefix) or os.path.isdir(os.path.join(sys.prefix, "conda-meta")):
    print("env")
elif os.path.exists(os.path.join(sysconfig.get_path("stdlib"), "EXTERNALLY-MANAGED")):
    print("managed")
elif os.access(sysconfig.get_path("purelib"), os.W_OK):
    print("env")
else:
    print("user")' 2>/dev/null)

target="$python"
pip_flags=()
case "$mode" in
  managed)
    info "This Python is managed by the system and refuses pip installs into it (PEP 668)."
    info "Installing into a private environment instead: $venv_dir"
    info "Step 3/4: creating the environment..."
    if [ ! -x "$venv_dir/bin/python" ]; then
      mkdir -p "$(dirname "$venv_dir")" || fail 2 "Cannot create $(dirname "$venv_dir")."
      if ! "$python" -m venv "$venv_dir"; then
        fail 2 "Could not create a Python environment. Install the venv module (for example: sudo apt install python3-venv) and try again."
      fi
    fi
    target="$venv_dir/bin/python"
    ;;
  user)
    info "Step 3/4: this Python's packages folder is not writable; installing for your user only (pip --user)."
    pip_flags=(--user)
    ;;
  *)
    info "Step 3/4: installing into this Python's own packages folder."
    ;;
esac
if ! "$target" -m pip --version >/dev/null 2>&1; then
  fail 2 "pip is not available for $target. Install it (for example: sudo apt install python3-pip) and try again."
fi

info "Step 4/4: installing ${PACKAGES[*]} (this can take 5-15 minutes)..."
if ! "$target" -m pip install ${pip_flags[@]+"${pip_flags[@]}"} --upgrade --progress-bar off "${PACKAGES[@]}"; then
  fail 4 "pip could not install the packages; see the messages above."
fi
if ! "$target" -c 'import cv2, numpy, ultralytics' >/dev/null 2>&1; then
  fail 4 "The packages were installed but $target cannot import them."
fi

if [ "$mode" = managed ]; then
  mkdir -p "$link_dir"
  if [ -e "$link_dir/python" ] && [ "$(readlink "$link_dir/python")" != "$venv_dir/bin/python" ]; then
    info "$link_dir/python already exists and was left alone. To use the AI tools, make 'python' on your search path run $venv_dir/bin/python."
  else
    ln -sfn "$venv_dir/bin/python" "$link_dir/python"
    if [ "$(command -v python)" = "$link_dir/python" ]; then
      info "Brindle will use $link_dir/python (the new environment) from now on."
    else
      info "Linked $link_dir/python to the new environment. Put $link_dir first on your search path (for example in ~/.profile), log in again and restart Brindle so the AI tools use it."
    fi
  fi
fi
info "All AI dependencies are installed for $target."
exit 0
