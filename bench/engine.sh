#!/usr/bin/env bash
# The engine benchmark: makes its media, starts a private PulseAudio server with null sinks on
# its own socket, and runs corvid_bench_engine and the dropout run side by side with their
# anchors, printing ratios.
#
#   bash bench/engine.sh [BUILD_DIR] [DROPOUT_SECONDS]     (defaults: build, 300)
#
# The dropout run plays one continuous 997 Hz tone through corvid-play to one null sink and
# through paplay to another, at the same time, while this script keeps both cores busy with
# normal-priority shell loops started from the same session; both monitors are recorded with
# parec and searched for gaps (corvid_bench_engine gaps: a stretch of 1 ms or more below a
# tenth of the tone's level, or a period between zero crossings more than 10 % off).
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD=${1:-build}
DROPOUT_SECONDS=${2:-300}
BENCH="$BUILD/corvid_bench_engine"
PLAY="$BUILD/corvid-play"
WORK=$(mktemp -d /tmp/corvid-engine-bench.XXXXXX)
PIDS=()
cleanup() {
  for p in "${PIDS[@]}"; do kill "$p" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$WORK"
}
trap cleanup EXIT

echo "== media"
FF="ffmpeg -nostdin -loglevel error -y"
TONE="aevalsrc=0.5*sin(2*PI*1000*t)|0.5*sin(2*PI*1000*t):s=44100:d=${TONE_SECONDS:-20}"
$FF -f lavfi -i "$TONE" -c:a pcm_s16le "$WORK/tone.wav"
$FF -f lavfi -i "$TONE" -c:a libmp3lame -b:a 192k "$WORK/tone.mp3"
$FF -f lavfi -i "$TONE" -c:a libvorbis -q:a 6 "$WORK/tone.ogg"
$FF -f lavfi -i "$TONE" -c:a flac "$WORK/tone.flac"
$FF -f lavfi -i "$TONE" -c:a aac -b:a 192k "$WORK/tone.m4a"
$FF -f lavfi -i "$TONE" -c:a wmav2 -b:a 192k "$WORK/tone.wma"
$FF -f lavfi -i "aevalsrc=0.5*sin(2*PI*997*t)|0.5*sin(2*PI*997*t):s=48000:d=$DROPOUT_SECONDS" -c:a pcm_s16le "$WORK/long.wav"

echo "== private sound server"
mkdir -p "$WORK/home" "$WORK/runtime" "$WORK/state" "$WORK/config"
chmod 700 "$WORK/runtime"
export HOME="$WORK/home" XDG_RUNTIME_DIR="$WORK/runtime" XDG_STATE_HOME="$WORK/state" XDG_CONFIG_HOME="$WORK/config"
export PULSE_SERVER="unix:$WORK/native"
cat > "$WORK/server.pa" <<EOF
load-module module-native-protocol-unix socket=$WORK/native auth-anonymous=1
load-module module-null-sink sink_name=bench_a channels=2 rate=48000 sink_properties=device.description=Bench_A
load-module module-null-sink sink_name=bench_b channels=2 rate=48000 sink_properties=device.description=Bench_B
set-default-sink bench_a
EOF
pulseaudio -n --daemonize=no --exit-idle-time=-1 --use-pid-file=no --disallow-exit -F "$WORK/server.pa" \
  > "$WORK/server.log" 2>&1 &
PIDS+=($!)
for _ in $(seq 100); do pactl info > /dev/null 2>&1 && break; sleep 0.1; done
# An idle null sink runs ahead of real time; silent streams keep both awake.
for sink in bench_a bench_b; do
  pacat --playback --device=$sink --raw --latency-msec=20 --format=s16le --channels=1 --rate=8000 /dev/zero &
  PIDS+=($!)
done
sleep 2

echo "== playback CPU"
"$BENCH" cpu "$WORK"/tone.{wav,mp3,ogg,flac,m4a,wma}
echo
echo "== start"
"$BENCH" start "$WORK/tone.wav" bench_a Bench_A
echo
echo "== idle and ticking players"
"$BENCH" idle "$WORK/tone.wav" 10
echo
echo "== dropouts: ${DROPOUT_SECONDS} s of tone under load (corvid-play on bench_a, paplay on bench_b)"
parec --device=bench_a.monitor --format=float32le --rate=48000 --channels=2 --raw > "$WORK/corvid.raw" &
REC_A=$!
parec --device=bench_b.monitor --format=float32le --rate=48000 --channels=2 --raw > "$WORK/paplay.raw" &
REC_B=$!
PIDS+=($REC_A $REC_B)
LOAD=()
for _ in 1 2 3 4; do (while :; do :; done) & LOAD+=($!); PIDS+=($!); done
sleep 0.5
"$PLAY" --quiet --device Bench_A "$WORK/long.wav" > "$WORK/play.log" 2>&1 &
CORVID=$!
paplay --device=bench_b "$WORK/long.wav" &
PAPLAY=$!
wait $CORVID || echo "corvid-play exited with $?"
wait $PAPLAY || echo "paplay exited with $?"
for p in "${LOAD[@]}"; do kill "$p" 2>/dev/null || true; done
sleep 0.5
kill $REC_A $REC_B 2>/dev/null || true
sleep 0.5
"$BENCH" gaps "$WORK/corvid.raw" 997
"$BENCH" gaps "$WORK/paplay.raw" 997
grep -i "underrun" "$WORK/play.log" | tail -3 || true
