#!/usr/bin/env bash
# The main job: builds Corvid and plays a sample it makes itself on the default output device
# (the silent device when no sound server is reachable). Extra arguments go to corvid-play,
# e.g. `bash scripts/play.sh --log` or `bash scripts/play.sh --device NAME`.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build --target corvid-play

sample="${CORVID_SAMPLE:-build/sample/corvid-sample.mp3}"
if [ ! -f "$sample" ]; then
  mkdir -p "$(dirname "$sample")"
  # Two seconds of lead-in silence, then a 440 Hz tone at -12 dBFS for eight seconds.
  ffmpeg -hide_banner -loglevel error -y \
    -f lavfi -i "anullsrc=r=44100:cl=stereo:d=2" \
    -f lavfi -i "sine=frequency=440:sample_rate=44100:duration=8,volume=-12dB,aformat=channel_layouts=stereo" \
    -filter_complex "[0:a][1:a]concat=n=2:v=0:a=1" -codec:a libmp3lame -b:a 192k "$sample"
fi
exec build/corvid-play "$@" "$sample"
