#!/usr/bin/env bash
# `make bench-memory`: the processor's memory, by the number of files it converts at once
# and over many cycles of one process.
#
# Peak: for each target and each "ConcurrentConversions" count, one cycle of knlogproc over
# one hour of 60 segments of 44.1 kHz stereo PCM (the tree of bench/compare.sh). Printed:
# the processor's peak RSS (VmHWM in /proc/<pid>/status, read every 20 ms while it runs),
# the largest peak of one copier it ran, and the largest RSS of the processor and its
# copiers together; then the growth of the processor's peak per extra worker beside an
# estimate of one conversion's buffers, from the sizes the conversion and its two audio
# files allocate (src/engine/FileConversion.cpp, src/audio/CAudioACM.cpp), in seconds of
# the memory format (16-bit PCM at the source's rate and channels, 176,400 bytes a second
# here): filled at the start, the transfer buffer (2 s) and the reader's and the writer's
# two buffers (2 s each, 8 s); reserved and filled as the work needs, their work storage
# (5 s each, 10 s); and about 64 kB of resampler and encoder state. So 10 s to 20 s of
# audio: 1.7 to 3.4 MB.
#
# Leak: one processor (/KEEPALIVE) through MEM_CYCLES cycles, with a fresh hour due at each:
# two loggers, one standardised to IMA ADPCM in the process, one to MP2 by the copier.
# Its wall clock runs MEM_SPEED times fast (libfaketime; the monotonic clock, which its
# timers and the copier's time-out use, keeps real time), so that its hourly cycles come
# every few seconds. Its RSS (VmRSS) is read at the end of each cycle (when
# run/knlogproc.prom says it waits after one more cycle), and each cycle must have
# converted 120 files.
#
# Settings from the environment:
#   BENCH_TARGETS  targets of the peak runs, of: ima mp3 (both)
#   BENCH_SECONDS  seconds of audio in each segment of the peak runs (60)
#   MEM_COUNTS     "ConcurrentConversions" values of the peak runs (1 2 4)
#   MEM_CYCLES     cycles of the leak run (20); 0: no leak run
#   MEM_SPEED      how many times faster than real time the leak run's clock goes (360)
#   MEM_LEAK_SECONDS seconds of audio in each segment of the leak run (5)
#   BENCH_DIR      working folder (./bench-work-memory), removed at the end
#   KN_BUILD_DIR   build folder with bin/ (build)
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=bench/tree.sh
source bench/tree.sh
bin="$(cd "${KN_BUILD_DIR:-build}/bin" && pwd)"
targets="${BENCH_TARGETS:-ima mp3}"
seconds="${BENCH_SECONDS:-60}"
counts="${MEM_COUNTS:-1 2 4}"
cycles="${MEM_CYCLES:-20}"
speed="${MEM_SPEED:-360}"
leak_seconds="${MEM_LEAK_SECONDS:-5}"
work="${BENCH_DIR:-$PWD/bench-work-memory}"
faketime_lib=""
for l in /usr/lib/*/faketime/libfaketime.so.1 /usr/lib/faketime/libfaketime.so.1; do
  [ -e "$l" ] && faketime_lib="$l" && break
done
command -v ffprobe > /dev/null || { echo "bench-memory: ffprobe is needed (scripts/install-deps.sh installs it)" >&2; exit 1; }
if [ "$cycles" -gt 0 ] && [ -z "$faketime_lib" ]; then
  echo "bench-memory: libfaketime is needed for the leak run (scripts/install-deps.sh installs it), or MEM_CYCLES=0" >&2
  exit 1
fi
unset DISPLAY WAYLAND_DISPLAY QT_QPA_PLATFORM
trap 'rm -rf "$work"' EXIT

# One look at the process $1: its state letter, VmHWM and VmRSS (kB) into P_STATE, P_HWM
# and P_RSS ("" and 0 when it is gone). Shell built-ins only, so that sampling costs little.
look() {
  P_STATE="" P_HWM=0 P_RSS=0
  local k v rest
  { while read -r k v rest; do
      case "$k" in
        State:) P_STATE="$v" ;;
        VmHWM:) P_HWM="$v" ;;
        VmRSS:) P_RSS="$v" ;;
      esac
    done < "/proc/$1/status"; } 2> /dev/null || true
}

# The children of the process $1 (its copiers) into KIDS, from the parent in each
# /proc/<pid>/stat ("pid (name) state ppid ...").
children() {
  KIDS=()
  local parent="$1" d line rest
  for d in /proc/[0-9]*; do
    { read -r line < "$d/stat"; } 2> /dev/null || continue
    rest="${line##*) }"
    rest="${rest#* }"
    [ "${rest%% *}" = "$parent" ] && KIDS+=("${d#/proc/}")
  done
  return 0
}

# Samples the process $1 every 20 ms until it ends: PEAK_PROC (its VmHWM), PEAK_COPIER (the
# largest VmHWM of one child), PEAK_TOTAL (the largest RSS of it and its children at once), kB.
watch_run() {
  local pid="$1" total c
  PEAK_PROC=0 PEAK_COPIER=0 PEAK_TOTAL=0
  while :; do
    look "$pid"
    if [ -z "$P_STATE" ] || [ "$P_STATE" = Z ]; then break; fi
    [ "$P_HWM" -gt "$PEAK_PROC" ] && PEAK_PROC=$P_HWM
    total=$P_RSS
    children "$pid"
    for c in "${KIDS[@]}"; do
      look "$c"
      total=$(( total + P_RSS ))
      [ "$P_HWM" -gt "$PEAK_COPIER" ] && PEAK_COPIER=$P_HWM
    done
    [ "$total" -gt "$PEAK_TOTAL" ] && PEAK_TOTAL=$total
    sleep 0.02
  done
}

mb() { awk -v k="$1" 'BEGIN { printf "%.1f", k / 1024 }'; }

# Every segment of the tree $1 converted: its target of extension $2 and codec $3 there,
# its source gone unless the target has the source's name. Prints how many are not.
unconverted() {
  local s out got bad=0
  while read -r s; do
    out="${s%.wav}.$2"
    got=$(ffprobe -v error -select_streams a:0 -show_entries stream=codec_name -of csv=p=0 "$out" 2> /dev/null || true)
    if [ "$got" != "$3" ] || { [ "$out" != "$s" ] && [ -e "$s" ]; }; then bad=$(( bad + 1 )); fi
  done < "$work/segments"
  echo "$bad"
}

declare -A fmt ext codec label
fmt[ima]="ima:22050:1"; ext[ima]=wav; codec[ima]=adpcm_ima_wav; label[ima]="IMA ADPCM 22.05 kHz mono (in the process)"
fmt[mp3]="mp3:44100:2:128"; ext[mp3]=mp3; codec[mp3]=mp3; label[mp3]="MP3 128 kbit/s stereo (copier)"

echo "bench-memory: peak RSS, one hour of 60 segments of $seconds s (44.1 kHz stereo PCM) a run"
echo "machine: $(nproc) cores, $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ //'), build $bin"
# One conversion's buffers for 44.1 kHz stereo sources (see above), kB.
second=$(( 44100 * 2 * 2 ))
buffers_low=$(( (10 * second + 1023) / 1024 + 64 ))
buffers_high=$(( (20 * second + 1023) / 1024 + 64 ))
rows=()
for t in $targets; do
  [ -n "${fmt[$t]:-}" ] || { echo "bench-memory: unknown target $t (ima mp3)" >&2; exit 2; }
  declare -A peak=()
  for n in $counts; do
    rm -rf "$work"
    root="$work/root"
    mkdir -p "$root"
    bench_tree "$bin" "$root" 1 1 "$seconds" "${fmt[$t]}/none" 1 "$(printf '"ConcurrentConversions"=dword:%08x' "$n")"
    bench_segments "$root" > "$work/segments"
    xargs cat < "$work/segments" > /dev/null  # into the page cache
    t0="${EPOCHREALTIME/,/.}"
    KESTRANE_ROOT="$root" KESTRANE_CLOCK_START="2026-01-02 12:00:00" "$bin/knlogproc" > "$work/knlogproc.out" 2>&1 &
    pid=$!
    watch_run "$pid"
    status=0
    wait "$pid" || status=$?
    wall=$(awk -v a="$t0" -v b="${EPOCHREALTIME/,/.}" 'BEGIN { printf "%.1f", b - a }')
    if [ "$status" -ne 0 ]; then
      echo "bench-memory: knlogproc ended with status $status:" >&2
      cat "$work/knlogproc.out" >&2
      exit 1
    fi
    bad=$(unconverted "$root" "${ext[$t]}" "${codec[$t]}")
    [ "$bad" -eq 0 ] || { echo "bench-memory: $bad of 60 segments were not converted to ${label[$t]}" >&2; exit 1; }
    peak[$n]=$PEAK_PROC
    echo "  ${label[$t]}, $n at once: knlogproc peak $(mb "$PEAK_PROC") MB, largest copier $(mb "$PEAK_COPIER") MB," \
         "all together at most $(mb "$PEAK_TOTAL") MB ($wall s)"
    rows+=("| ${label[$t]} | $n | $(mb "$PEAK_PROC") | $(mb "$PEAK_COPIER") | $(mb "$PEAK_TOTAL") |")
  done
  first=$(echo "$counts" | awk '{ print $1 }')
  for n in $counts; do
    [ "$n" -gt "$first" ] || continue
    growth=$(( (peak[$n] - peak[$first]) / (n - first) ))
    echo "  ${label[$t]}: the processor's peak grows by $growth kB per worker from $first to $n at once" \
         "(one conversion's buffers: $buffers_low to $buffers_high kB)"
  done
  unset peak
done
echo
echo "| Target | at once | knlogproc peak MB | largest copier MB | processor and copiers MB |"
echo "| --- | --- | --- | --- | --- |"
printf '%s\n' "${rows[@]}"

[ "$cycles" -gt 0 ] || exit 0
echo
echo "bench-memory: leak run, $cycles cycles of one knlogproc /KEEPALIVE, each with a fresh hour of 2 loggers" \
     "(60 segments of $leak_seconds s: IMA ADPCM in the process, MP2 by the copier), clock x$speed"
rm -rf "$work"
root="$work/root"
mkdir -p "$root"
BENCH_SIM_ARGS=(--format "2=wav:44100:2/mp2:44100:2:128/none")
bench_tree "$bin" "$root" 2 $(( cycles + 1 )) "$leak_seconds" "ima:22050:1/none" 1
BENCH_SIM_ARGS=()
prom="$root/run/knlogproc.prom"
# From the metrics file: cycles started, whether it waits, files converted and hours failed
# in the last cycle.
figures() {
  awk '$1 == "kestrane_logproc_cycles_total" { c = $2 }
       $1 == "kestrane_logproc_state{state=\"waiting\"}" { w = $2 }
       $1 ~ /^kestrane_logproc_files_converted[{]/ { f += $NF }
       $1 ~ /^kestrane_logproc_actions_failed[{]/ { x += $NF }
       END { print c + 0, w + 0, f + 0, x + 0 }' "$prom" 2> /dev/null || echo 0 0 0 0
}
# Hour 00 is due from 01:00, hour 01 from 02:00, and so on: each cycle (from minute 5 of
# the hour on) finds one new hour of each logger.
KESTRANE_ROOT="$root" KESTRANE_CLOCK_START="2026-01-01 01:04:50" LD_PRELOAD="$faketime_lib" FAKETIME="+0 x$speed" \
  DONT_FAKE_MONOTONIC=1 "$bin/knlogproc" /KEEPALIVE > "$work/knlogproc.out" 2>&1 &
pid=$!
done_cycles=0
rss=()
deadline=$(( SECONDS + cycles * (3600 / speed + 60) + 60 ))
while [ "$done_cycles" -lt "$cycles" ]; do
  look "$pid"
  if [ -z "$P_STATE" ] || [ "$P_STATE" = Z ]; then
    echo "bench-memory: knlogproc ended during the leak run:" >&2
    cat "$work/knlogproc.out" >&2
    exit 1
  fi
  if [ "$SECONDS" -gt "$deadline" ]; then
    echo "bench-memory: only $done_cycles of $cycles cycles in time" >&2
    kill -TERM "$pid"
    exit 1
  fi
  read -r started waiting converted failed < <(figures)
  if [ "$waiting" = 1 ] && [ "$started" -gt "$done_cycles" ]; then
    done_cycles=$started
    look "$pid"
    rss+=("$P_RSS")
    echo "  cycle $done_cycles: RSS $P_RSS kB ($converted files converted, $failed hours failed)"
    if [ "$converted" -lt 120 ] || [ "$failed" != 0 ]; then
      echo "bench-memory: cycle $done_cycles did not convert a fresh hour of each logger" >&2
      kill -TERM "$pid"
      exit 1
    fi
  fi
  sleep 0.1
done
kill -TERM "$pid"
wait "$pid" || { echo "bench-memory: knlogproc did not end cleanly on SIGTERM" >&2; exit 1; }
# Growth after the first few cycles, when the caches and pools have their size. The RSS
# at a cycle's end varies by a few MB with what the allocator keeps of that cycle; a leak
# of what the cycles handle (120 files each) raises the floor: the least of the last five
# cycles against the least of the five after the first few.
settle=$(( cycles >= 15 ? 5 : 1 ))
floor() { printf '%s\n' "$@" | sort -n | head -n 1; }
early=$(floor "${rss[@]:$settle:5}")
late=$(floor "${rss[@]: -5}")
most=$(printf '%s\n' "${rss[@]:$settle}" | sort -n | tail -n 1)
echo "  RSS after cycle $(( settle + 1 )) on: least $early kB in cycles $(( settle + 1 ))-$(( settle + 5 )), least $late kB" \
     "in the last five, most $most kB"
if [ $(( late - early )) -le 1024 ]; then
  echo "  no leak: the least RSS of the last five cycles is within 1 MB of the early cycles' ($(( late - early )) kB)"
else
  echo "  the RSS grows: the least of the last five cycles is $(( late - early )) kB above the early cycles'"
fi
