#!/usr/bin/env bash
# A private PulseAudio sound server for the playback tests: one null sink "sonvale_test" at
# 48 kHz whose monitor the tests record, reachable only through this build tree's own
# runtime directory. PortAudio reaches it through ALSA's pulse plugin, configured by
# environment variables rather than by touching system files.
#
#   scripts/sound-server.sh start DIR   starts the server (state lives in DIR) and writes DIR/env
#   scripts/sound-server.sh stop DIR    stops it
#   scripts/sound-server.sh env DIR     prints the variables a client needs (KEY=VALUE lines)
#
# With --per-run after DIR, the state lives in DIR/run-PID instead, PID being the calling
# process: ctest starts and stops the server and runs every test as its direct children, so
# each test run has a server of its own, and two runs in one build tree never share a server or
# stop each other's. Folders left by runs that are gone are cleared, their servers stopped.
#
# `start` exits 0 when the server runs. When no server can be started it says why on stderr,
# writes the reason to DIR/unavailable and still exits 0, so that the tests can skip with
# that reason instead of failing for want of a sound server.
set -uo pipefail

command=${1:-}
dir=${2:-$(cd "$(dirname "$0")/.." && pwd)/build/dev/sound-server}
mkdir -p "$dir"
dir=$(cd "$dir" && pwd)
perRun=false
if [[ ${3:-} == --per-run ]]; then
    perRun=true
    if [[ $command == start ]]; then
        for old in "$dir"/run-*; do
            [[ -d $old ]] || continue
            kill -0 "${old##*/run-}" 2>/dev/null && continue
            "$0" stop "$old" && rm -rf "$old"
        done
    fi
    dir=$dir/run-$PPID
    mkdir -p "$dir"
fi

runtime=$dir/run
home=$dir/home
socket=$runtime/pulse/native

environment() {
    echo "XDG_RUNTIME_DIR=$runtime"
    echo "PULSE_RUNTIME_PATH=$runtime/pulse"
    echo "PULSE_SERVER=unix:$socket"
    echo "PULSE_COOKIE=$home/cookie"
    echo "ALSA_CONFIG_PATH=$dir/alsa.conf"
}

unavailable() {
    echo "sound-server: $1" >&2
    echo "$1" >"$dir/unavailable"
    exit 0
}

serverPid() {
    [[ -f $dir/pid ]] || return 1
    local pid
    pid=$(cat "$dir/pid")
    [[ -n $pid ]] && kill -0 "$pid" 2>/dev/null && echo "$pid"
}

start() {
    rm -f "$dir/unavailable"
    if serverPid >/dev/null &&
        env $(environment) pactl info >/dev/null 2>&1; then
        environment >"$dir/env"
        return 0
    fi
    stop # whatever is left of an earlier run
    command -v pulseaudio >/dev/null || unavailable "pulseaudio is not installed (package pulseaudio)"
    command -v pactl >/dev/null || unavailable "pactl is not installed (package pulseaudio-utils)"
    [[ -f /usr/lib/x86_64-linux-gnu/alsa-lib/libasound_module_pcm_pulse.so ||
       -n $(find /usr/lib -name libasound_module_pcm_pulse.so -print -quit 2>/dev/null) ]] ||
        unavailable "ALSA's pulse plugin is missing (package libasound2-plugins)"

    mkdir -p "$runtime/pulse" "$home"
    chmod 700 "$runtime" "$runtime/pulse"
    rm -f "$socket" "$runtime/pulse/pid"

    # The system configuration first (it defines the plugin types), then the default
    # device routed to the pulse plugin.
    cat >"$dir/alsa.conf" <<EOF
</usr/share/alsa/alsa.conf>
pcm.!default { type pulse }
ctl.!default { type pulse }
EOF
    cat >"$dir/default.pa" <<EOF
load-module module-native-protocol-unix socket=$socket auth-anonymous=1
load-module module-null-sink sink_name=sonvale_test rate=48000 channels=2 sink_properties=device.description=Sonvale_test
load-module module-always-sink
set-default-sink sonvale_test
set-default-source sonvale_test.monitor
EOF
    mkdir -p "$home/.config/pulse"
    cat >"$home/.config/pulse/daemon.conf" <<EOF
default-sample-rate = 48000
alternate-sample-rate = 44100
default-sample-format = float32le
default-fragments = 4
default-fragment-size-msec = 10
resample-method = speex-float-5
flat-volumes = no
high-priority = yes
realtime-scheduling = yes
realtime-priority = 9
EOF

    # Root needs --system=no spelled out, a private HOME for the cookie and --disallow-exit
    # so that nothing but `stop` ends the server.
    env -i PATH="$PATH" HOME="$home" XDG_RUNTIME_DIR="$runtime" \
        PULSE_RUNTIME_PATH="$runtime/pulse" XDG_CONFIG_HOME="$home/.config" \
        pulseaudio --daemonize=yes --system=no -n --exit-idle-time=-1 --disallow-exit \
        --use-pid-file=yes --disable-shm=yes --log-target="file:$dir/pulseaudio.log" \
        --log-level=notice -F "$dir/default.pa" 2>"$dir/start.err" ||
        unavailable "pulseaudio did not start: $(tail -n 3 "$dir/start.err" "$dir/pulseaudio.log" 2>/dev/null | tr '\n' ' ')"

    set -a
    eval "$(environment | sed 's/^/export /')"
    set +a
    for _ in $(seq 50); do
        [[ -S $socket ]] && pactl info >/dev/null 2>&1 && break
        sleep 0.1
    done
    pactl info >/dev/null 2>&1 || unavailable "pulseaudio started but does not answer on $socket"
    cp "$runtime/pulse/pid" "$dir/pid" 2>/dev/null ||
        pgrep -n -f "pulseaudio.*$dir/default.pa" >"$dir/pid"
    pactl set-default-sink sonvale_test >/dev/null
    pactl set-default-source sonvale_test.monitor >/dev/null
    # A silent client asking for 10 ms keeps the null sink waking as a sound card would; left
    # alone it sleeps up to two seconds between wake-ups, and a new stream would stall that long.
    pacat --playback --latency-msec=10 --raw --format=float32le --rate=48000 --channels=2 \
        --stream-name=keep-awake /dev/zero >/dev/null 2>&1 &
    echo $! >"$dir/keepalive.pid"
    environment >"$dir/env"
    echo "sound-server: running (pid $(cat "$dir/pid"), sink sonvale_test)" >&2
}

stop() {
    local pid
    if [[ -f $dir/keepalive.pid ]]; then
        pid=$(cat "$dir/keepalive.pid")
        [[ -n $pid ]] && kill "$pid" 2>/dev/null
        rm -f "$dir/keepalive.pid"
    fi
    # The server's own pid file too, in case ours was lost; only a pulseaudio of this directory.
    local own
    own=$(cat "$runtime/pulse/pid" 2>/dev/null || true)
    if [[ -n $own ]] && grep -qs "$dir/default.pa" "/proc/$own/cmdline" &&
        [[ $own != "$(cat "$dir/pid" 2>/dev/null)" ]]; then
        kill "$own" 2>/dev/null
    fi
    if pid=$(serverPid); then
        kill "$pid" 2>/dev/null
        for _ in $(seq 50); do
            kill -0 "$pid" 2>/dev/null || break
            sleep 0.1
        done
        kill -0 "$pid" 2>/dev/null && kill -9 "$pid" 2>/dev/null
    fi
    rm -f "$dir/pid" "$dir/env" "$socket"
    if $perRun; then rm -rf "$dir"; fi
    return 0
}

case $command in
start) start ;;
stop) stop ;;
env) environment ;;
*) echo "usage: $0 start|stop|env [DIR [--per-run]]" >&2; exit 2 ;;
esac
