#!/usr/bin/env bash
# Installs every Debian package Corvid needs to build, test and run. Safe to run twice:
# apt-get skips what is already installed.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config
  libgtest-dev libgmock-dev libbenchmark-dev
  libavformat-dev libavcodec-dev libavutil-dev libswresample-dev
  libpulse-dev libsoundtouch-dev libtag1-dev libssl-dev libdbus-1-dev
  pulseaudio pulseaudio-utils icecast2 ffmpeg sox openssl ca-certificates
  qt6-base-dev xvfb xauth libgl-dev
  pybind11-dev python3-dev python3-pytest
)

if [ "$(id -u)" -ne 0 ]; then sudo=sudo; else sudo=; fi
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update
  $sudo apt-get install -y --no-install-recommends "${missing[@]}"
fi
