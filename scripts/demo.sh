#!/usr/bin/env bash
# The demo behind `make demo`: a small recorder in ./demo-root, the processor's plan for
# it, one headless run of the log processor over it, a summary of what the run did,
# worked out from the disk, and the processor's own status file.
#
# Settings from the environment (the end-to-end test uses them):
#   KN_BUILD_DIR        build folder with bin/ (build)
#   KN_DEMO_ROOT        machine root to make (./demo-root); removed and made afresh
#   KN_DEMO_SKIP_BUILD  1: use the programs as they are, install and build nothing
#   KN_DEMO_DAYS        days recorded (2)
#   KN_DEMO_SEGMENTS    segments an hour (4)
#   KN_DEMO_TIMEOUT     seconds the processor may run before it is stopped (240)
#   KN_DEMO_CLOCK       "yyyy-mm-dd hh:nn:ss": every program's clock starts there (default:
#                       the real time)
set -euo pipefail
cd "$(dirname "$0")/.."
src="$PWD"
build="${KN_BUILD_DIR:-build}"
root="${KN_DEMO_ROOT:-$src/demo-root}"
days="${KN_DEMO_DAYS:-2}"
segments="${KN_DEMO_SEGMENTS:-4}"
timeout="${KN_DEMO_TIMEOUT:-240}"
bin="$build/bin"

if [ "${KN_DEMO_SKIP_BUILD:-0}" != 1 ]; then
  bash scripts/install-deps.sh
  cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DKN_TESTS=OFF > /dev/null
  cmake --build "$build" -j "$(nproc)" --target knlogproc SoundShuttle kncapture-sim kndemo-report knmsg
fi
bin="$(cd "$bin" && pwd)"

# A fresh machine root each time; the processor and the tools find it through KESTRANE_ROOT.
rm -rf "$root"
mkdir -p "$root"
root="$(cd "$root" && pwd)"
export KESTRANE_ROOT="$root"
unset DISPLAY WAYLAND_DISPLAY QT_QPA_PLATFORM
if [ -n "${KN_DEMO_CLOCK:-}" ]; then export KESTRANE_CLOCK_START="$KN_DEMO_CLOCK"; fi

echo "== Making a recorder in $root"
# Three loggers, $segments segments an hour (2 s of audio each, to keep it small),
# $days days up to now. Each logger deletes its hours within a day, so with two days
# or more all three actions fall due.
#  1  WAV PCM 44.1 kHz stereo -> IMA ADPCM 22.05 kHz stereo -> IMA ADPCM mono
#  2  MP2 192 kbit/s -> MP3 128 kbit/s -> MP3 22.05 kHz mono 32 kbit/s
#  3  output A: WAV 22.05 kHz mono -> Ogg Vorbis 48 kbit/s -> WMA profile 7;
#     output B: WAV 8 kHz mono -> IMA ADPCM -> no archive (removed when archived)
"$bin/kncapture-sim" make --days "$days" --segments "$segments" --seconds 2 --audio speech --seed 2026 \
  --loggers 3 \
  --name "1=Studio 1" --hours 1=2,6,20 \
  --name "2=News" --hours 2=3,9,22 \
  --format "2=mp2:44100:2:192/mp3:44100:2:128/mp3:22050:1:32" \
  --name "3=Talk" --hours 3=4,12,23 \
  --format "3=wav:22050:1/ogg:22050:1:48/wma:7+wav:8000:1/ima:8000:1/none" \
  --prepare-interval 10 --process-interval 0 --hours-per-ping 50

"$bin/kndemo-report" snapshot "$root/before.snapshot"

echo "== The plan: knlogproc /PLAN lists what a run would do, and changes nothing"
"$bin/knlogproc" /PLAN > "$root/plan.txt"
rows=$(( $(wc -l < "$root/plan.txt") - 2 ))
if [ "$rows" -gt 12 ]; then
  head -n 13 "$root/plan.txt"
  echo "   ... ($rows rows in all, in $root/plan.txt)"
  tail -n 1 "$root/plan.txt"
else
  cat "$root/plan.txt"
fi
echo

# Stand in for the capture process: collect what the processor tells it.
"$bin/kncapture-sim" listen > "$root/capture-messages.txt" 2> /dev/null &
listener=$!
trap 'kill "$listener" 2> /dev/null || true' EXIT
for _ in $(seq 50); do [ -S "$root/run/msg/KNCaptureMsgHandler" ] && break; sleep 0.1; done

echo "== Running knlogproc /DEBUG once over it (headless)"
start=$(date +%s)
# Without /KEEPALIVE the processor ends by itself after one cycle; if it overruns, it is
# stopped with SIGTERM as a service manager would stop it.
status=0
timeout -s TERM "$timeout" "$bin/knlogproc" /DEBUG || status=$?
echo "   knlogproc ended with status $status after $(( $(date +%s) - start )) s"
sleep 0.3
kill "$listener" 2> /dev/null || true
wait "$listener" 2> /dev/null || true

"$bin/kndemo-report" snapshot "$root/after.snapshot"

echo
echo "== What the run did, from the disk before and after"
"$bin/kndemo-report" summary "$root/before.snapshot" "$root/after.snapshot" | tee "$root/summary.txt"
"$bin/kndemo-report" summary "$root/before.snapshot" "$root/after.snapshot" --tsv > "$root/summary.tsv"
echo "Messages to the capture process ($root/capture-messages.txt):"
cut -d' ' -f3- "$root/capture-messages.txt" | sort | uniq -c | sed 's/^ */  /'

echo
echo "== The processor's own status file ($root/run/status.json), through knmsg status"
"$bin/knmsg" status || true
