#!/usr/bin/env bash
# Starts corvid-deck, the two-deck example host, with two sample items it makes itself: deck A
# holds a 440 Hz item that fades to quiet, deck B one that starts after a second of quiet, so
# that playing deck A shows the automatic segue to deck B at its cue-in. Installs what is
# missing and builds first. Extra arguments replace the two samples (files or addresses).
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build --target corvid-deck

sample() { # name, tone (Hz), lead-in (s), tone (s), fade (s)
  local out="build/sample/$1"
  [ -f "$out" ] && { echo "$out"; return; }
  mkdir -p build/sample
  ffmpeg -hide_banner -loglevel error -y -f lavfi \
    -i "sine=frequency=$2:sample_rate=44100:duration=$4,volume=-12dB,afade=t=out:st=$(($4 - $5)):d=$5,adelay=$(($3 * 1000)):all=1,apad=pad_dur=2,aformat=channel_layouts=stereo" \
    -metadata artist="Corvid" -metadata title="Sample $2 Hz" -codec:a libmp3lame -b:a 192k "$out"
  echo "$out"
}
if [ $# -eq 0 ]; then
  set -- "$(sample deck-a.mp3 440 0 12 4)" "$(sample deck-b.mp3 660 1 12 4)"
fi
exec build/corvid-deck "$@"
