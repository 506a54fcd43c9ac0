#!/usr/bin/env bash
# Makes the analysis benchmark's files (once) and runs it:
#   bash bench/analysis.sh [MEDIA_FOLDER]     (default build/bench-media)
# Files: every format at 4 and 60 minutes, each 1.5 s of silence, a chord with a little noise,
# a 6 s fade and 1.5 s of silence; and a library folder of 200 four-minute items.
set -euo pipefail
cd "$(dirname "$0")/.."
media=${1:-build/bench-media}
mkdir -p "$media/library"

ff="ffmpeg -nostdin -loglevel error -y"
declare -A codec=([wav]="pcm_s16le" [flac]="flac" [mp3]="libmp3lame -b:a 192k"
                  [ogg]="libvorbis -q:a 6" [m4a]="aac -b:a 192k" [wma]="wmav2 -b:a 192k")
for minutes in 4 60; do
  length=$((minutes * 60))
  master="$media/${minutes}min.wav"
  if [ ! -s "$master" ]; then
    end="$length-1.5"
    $ff -f lavfi -i "aevalsrc='(0.25*sin(2*PI*440*t)+0.2*sin(2*PI*554.37*t)+0.15*sin(2*PI*659.25*t))\
*between(t,1.5,$end)*min(1,($end-t)/6)':s=44100:d=$length" \
      -f lavfi -i "anoisesrc=c=pink:a=0.01:r=44100:d=$length" \
      -filter_complex "[0][1]amix=inputs=2:normalize=0,aformat=channel_layouts=stereo" \
      -c:a pcm_s16le "$master"
  fi
  for ext in flac mp3 ogg m4a wma; do
    out="$media/${minutes}min.$ext"
    [ -s "$out" ] || $ff -i "$master" -c:a ${codec[$ext]} "$out"
  done
done

exts=(wav flac mp3 ogg m4a wma)
for i in $(seq -w 1 200); do
  ext=${exts[$((10#$i % 6))]}
  [ -e "$media/library/item-$i.$ext" ] || cp "$media/4min.$ext" "$media/library/item-$i.$ext"
done

[ "${MAKE_ONLY:-0}" = 1 ] || build/corvid_bench_analysis "$media"
