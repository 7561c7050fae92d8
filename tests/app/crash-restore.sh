#!/usr/bin/env bash
# The real program under a private X server and a private data folder: open a file of
# silence, tone and silence, trim the silence with its keyboard shortcut, wait for the
# automatic store, kill the program with SIGKILL, start it again and find the track back
# with the edit.
# Usage: crash-restore.sh SONVALE_BINARY
set -euo pipefail
sonvale=${1:?usage: crash-restore.sh SONVALE_BINARY}
for tool in xvfb-run xdotool sox; do
    command -v "$tool" >/dev/null || { echo "SKIP: $tool is not installed"; exit 77; }
done

work=$(mktemp -d)
pid=
cleanup() {
    [[ -n $pid ]] && kill -9 "$pid" 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT

sox -n -r 48000 -c 2 "$work/silence.wav" trim 0 1
sox -n -r 48000 -c 2 "$work/tone.wav" synth 1 sine 440 vol 0.5
sox "$work/silence.wav" "$work/tone.wav" "$work/silence.wav" "$work/take.wav"
frames=$(soxi -s "$work/take.wav")

export HOME=$work/home XDG_DATA_HOME=$work/data XDG_CONFIG_HOME=$work/config \
       XDG_RUNTIME_DIR=$work/runtime NO_AT_BRIDGE=1
mkdir -p "$HOME" "$XDG_RUNTIME_DIR" && chmod 700 "$XDG_RUNTIME_DIR"
store=$XDG_DATA_HOME/Sonvale/Session.json

# The first run, killed after the edit has reached the store.
cat >"$work/first.sh" <<EOF
#!/usr/bin/env bash
"$sonvale" "$work/take.wav" >"$work/first.log" 2>&1 &
echo \$! >"$work/pid"
window=\$(xdotool search --sync --onlyvisible --class sonvale | head -n 1)
for _ in \$(seq 100); do
    grep -q '"path"' "$store" 2>/dev/null && break
    sleep 0.1
done
xdotool windowfocus --sync "\$window"
xdotool key --clearmodifiers ctrl+shift+t
for _ in \$(seq 100); do
    grep -q '/Sonvale/Audio/' "$store" 2>/dev/null && break
    sleep 0.1
done
kill -9 \$(cat "$work/pid")
EOF
chmod +x "$work/first.sh"
timeout 60 xvfb-run -a "$work/first.sh"
grep -q '/Sonvale/Audio/' "$store" || { echo "FAIL: the trim never reached $store"; cat "$work/first.log"; exit 1; }

# The second run reports its tracks once they are drawn, and quits.
out=$(QT_QPA_PLATFORM=offscreen SONVALE_EXIT_WHEN_DRAWN=1 timeout 60 "$sonvale" 2>&1)
echo "$out"
restored=$(sed -n 's/^track .*: \([0-9]*\) frames$/\1/p' <<<"$out")
[[ $(wc -l <<<"$restored") -eq 1 && -n $restored ]] || { echo "FAIL: expected one restored track"; exit 1; }
# Trimming keeps the second of tone and 10 ms on each side.
if (( restored >= frames || restored < 48000 || restored > 48000 + 2 * 480 + 10 )); then
    echo "FAIL: restored track has $restored frames; the file has $frames, the trim keeps about 48960"
    exit 1
fi
echo "PASS: restored the trimmed track ($restored of $frames frames)"
