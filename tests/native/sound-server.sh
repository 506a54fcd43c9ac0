#!/bin/sh
# The private PulseAudio server of the native tests: three null sinks (two stereo, one 7.1) on a
# socket in the tests' work folder, each kept awake by a silent player (an idle null sink runs
# seconds ahead of real time, and a new stream would wait that long for its first request).
# ctest starts it once before the native tests and stops it after them; a test binary run by
# hand starts its own.
#
#   sound-server.sh start|stop WORKDIR
set -u
dir="$2/pulse"
export HOME="$dir/home" XDG_RUNTIME_DIR="$dir/runtime" XDG_STATE_HOME="$dir/state" \
       XDG_CONFIG_HOME="$dir/config" PULSE_SERVER="unix:$dir/native"

stop() {
    for pidfile in "$dir"/*.pid; do
        [ -f "$pidfile" ] || continue
        kill "$(cat "$pidfile")" 2>/dev/null
        rm -f "$pidfile"
    done
}

[ "$1" = stop ] && { stop; exit 0; }
stop
rm -rf "$dir"
mkdir -p "$HOME" "$XDG_RUNTIME_DIR" "$XDG_STATE_HOME" "$XDG_CONFIG_HOME"
chmod 700 "$XDG_RUNTIME_DIR"
cat > "$dir/server.pa" <<PA
load-module module-native-protocol-unix socket=$dir/native auth-anonymous=1
load-module module-null-sink sink_name=corvid_a channels=2 rate=48000 sink_properties=device.description=Corvid_Test_A
load-module module-null-sink sink_name=corvid_b channels=2 rate=48000 sink_properties=device.description=Corvid_Test_B
load-module module-null-sink sink_name=corvid_8ch channels=8 rate=48000 channel_map=front-left,front-right,rear-left,rear-right,front-center,lfe,side-left,side-right sink_properties=device.description=Corvid_Test_8ch
set-default-sink corvid_a
PA
# Detached, with every descriptor on files, so that whoever started us need not wait for it.
setsid pulseaudio -n --daemonize=no --exit-idle-time=-1 --use-pid-file=no --disallow-exit \
    -F "$dir/server.pa" < /dev/null > "$dir/server.log" 2>&1 &
echo $! > "$dir/server.pid"
tries=0
until timeout 5 pactl list short sinks 2>/dev/null | grep -q corvid_8ch; do
    tries=$((tries + 1))
    [ "$tries" -ge 100 ] && { echo "the sound server did not start: $dir/server.log" >&2; exit 1; }
    sleep 0.1
done
for sink in corvid_a corvid_b corvid_8ch; do
    setsid pacat --playback --device="$sink" --raw --latency-msec=20 --format=s16le --channels=1 \
        --rate=8000 /dev/zero < /dev/null > /dev/null 2>&1 &
    echo $! > "$dir/awake-$sink.pid"
done
sleep 2.5
