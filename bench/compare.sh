#!/usr/bin/env bash
# `make bench-compare`: the log processor against ffmpeg on the same audio, in one run.
#
# For each target it makes a recorder whose loggers record 60 one-minute segments an hour
# of 44.1 kHz stereo PCM and standardise them into the target, times
#   - knlogproc with its defaults, one cycle over the whole tree (it must convert every
#     segment: each is checked afterwards),
#   - ffmpeg, one process per segment,
#   - ffmpeg, one process over each hour (the hour's segments concatenated),
# and prints audio seconds per wall second for each and the processor's ratios to both,
# and the CPU seconds each took (user and system, the copier's and ffmpeg's included): on
# a machine that is busy with other work, wall times vary, CPU times much less.
# ffmpeg runs at the priority the processor gives itself (nice 10, idle I/O class), the
# sources are in the page cache for all three.
#
# Settings from the environment:
#   BENCH_VARIANT  short: 1 logger x 1 hour (default); large: 10 loggers x 24 hours, the
#                  hours cut down to what half the free disk holds (or to BENCH_HOURS)
#   BENCH_TARGETS  targets to run, of: ima mp3 mp2 ogg (all)
#   BENCH_SECONDS  seconds of audio in each segment (60); less for a quick trial
#   BENCH_LOWER    0: the processor keeps its priority ("LowerPriority"=0) and ffmpeg runs
#                  unniced too (1)
#   BENCH_DIR      working folder (./bench-work), removed at the end
#   KN_BUILD_DIR   build folder with bin/ (build)
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=bench/tree.sh
source bench/tree.sh
bin="$(cd "${KN_BUILD_DIR:-build}/bin" && pwd)"
variant="${BENCH_VARIANT:-short}"
targets="${BENCH_TARGETS:-ima mp3 mp2 ogg}"
seconds="${BENCH_SECONDS:-60}"
work="${BENCH_DIR:-$PWD/bench-work}"
lower="${BENCH_LOWER:-1}"
for p in ffmpeg ffprobe; do
  command -v "$p" > /dev/null || { echo "bench-compare: $p is needed (scripts/install-deps.sh installs it)" >&2; exit 1; }
done

# Bytes of one logger-hour of sources.
hour_bytes=$(( 60 * seconds * 44100 * 4 ))
case "$variant" in
  short) loggers=1; hours=1 ;;
  large)
    loggers=10
    mkdir -p "$work"
    free=$(( $(df --output=avail -B1 "$work" | tail -n 1) ))
    # Sources and outputs of the processor and of ffmpeg side by side: half the free disk.
    hours=$(( free / 2 / (loggers * hour_bytes * 2) ))
    [ "$hours" -gt "${BENCH_HOURS:-24}" ] && hours="${BENCH_HOURS:-24}"
    if [ "$hours" -lt 1 ]; then
      echo "bench-compare: not enough free disk in $work for the large variant" >&2
      exit 1
    fi ;;
  *) echo "bench-compare: BENCH_VARIANT is short or large, not $variant" >&2; exit 2 ;;
esac

now() { echo "${EPOCHREALTIME/,/.}"; }
# CPU seconds (user + system) of all the children this shell has waited for so far, into
# CPU. It must run in this shell, not in $(...): a subshell counts its own children only.
cpu() {
  times > "$work/times"
  CPU=$(tail -n 1 "$work/times" | awk '{ n = 0; for (i = 1; i <= 2; i++) { split($i, a, /[ms]/); n += a[1] * 60 + a[2] } print n }')
}
since() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", b - a }'; }
# Audio seconds per wall second of a run of $2 s over $1 s of audio.
speed() { awk -v a="$1" -v t="$2" 'BEGIN { printf "%.0f", a / t }'; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", b / a }'; }

# target -> the logger's standard format, ffmpeg's options, the output's extension and codec
declare -A fmt ffopts ext codec
fmt[ima]="ima:22050:1";        ffopts[ima]="-ar 22050 -ac 1 -c:a adpcm_ima_wav"; ext[ima]=wav; codec[ima]=adpcm_ima_wav
fmt[mp3]="mp3:44100:2:128";    ffopts[mp3]="-c:a libmp3lame -b:a 128k";          ext[mp3]=mp3; codec[mp3]=mp3
fmt[mp2]="mp2:44100:2:128";    ffopts[mp2]="-c:a mp2 -b:a 128k";                 ext[mp2]=mp2; codec[mp2]=mp2
fmt[ogg]="ogg:44100:2:128";    ffopts[ogg]="-c:a libvorbis -b:a 128k";           ext[ogg]=ogg; codec[ogg]=vorbis
declare -A label=([ima]="IMA ADPCM 22.05 kHz mono" [mp3]="MP3 128 kbit/s stereo" \
                  [mp2]="MP2 128 kbit/s stereo" [ogg]="Ogg Vorbis 128 kbit/s stereo")

audio=$(( loggers * hours * 60 * seconds ))
echo "bench-compare: $variant variant, $loggers logger(s) x $hours hour(s) of 60 segments of $seconds s" \
     "(44.1 kHz stereo PCM), $audio s of audio a target"
echo "machine: $(nproc) cores, $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ //')"
results=()
trap 'rm -rf "$work"' EXIT

# One cycle of the processor over $root: its wall time into t_proc, its CPU into c_proc.
run_processor() {
  cpu; c0=$CPU
  t0=$(now)
  status=0
  KESTRANE_CLOCK_START="2026-01-02 12:00:00" timeout -s TERM 3600 "$bin/knlogproc" > "$work/knlogproc.out" 2>&1 || status=$?
  t_proc=$(since "$t0" "$(now)")
  cpu; c_proc=$(since "$c0" "$CPU")
  if [ "$status" -ne 0 ]; then
    echo "bench-compare: knlogproc ended with status $status:" >&2
    cat "$work/knlogproc.out" >&2
    exit 1
  fi
}

# A fresh recorder tree for target $t in $work/root; each argument is one more value of
# the processor's key.
make_tree() {
  rm -rf "$work"
  root="$work/root"
  mkdir -p "$root" "$work/ff"
  export KESTRANE_ROOT="$root"
  unset DISPLAY WAYLAND_DISPLAY QT_QPA_PLATFORM
  # The hours 00 .. hours-1 of 2026-01-01, standardised one hour after recording, never
  # archived or deleted; the processor's clock is a day later, so that all are due. The
  # processor's own defaults: no pacing values in its key; each argument is one more value.
  local values=("$@")
  if [ "$lower" = 0 ]; then values+=('"LowerPriority"=dword:00000000'); fi
  bench_tree "$bin" "$root" "$loggers" "$hours" "$seconds" "${fmt[$t]}/none" 1 ${values[@]+"${values[@]}"}
}

for t in $targets; do
  [ -n "${fmt[$t]:-}" ] || { echo "bench-compare: unknown target $t (ima mp3 mp2 ogg)" >&2; exit 2; }
  make_tree
  mapfile -t segs < <(bench_segments "$root")
  [ "${#segs[@]}" -eq $(( loggers * hours * 60 )) ] ||
    { echo "bench-compare: the tree holds ${#segs[@]} segments, not $(( loggers * hours * 60 ))" >&2; exit 1; }
  cat "${segs[@]}" > /dev/null  # into the page cache, for all three runs alike
  ff=(ffmpeg -nostdin -hide_banner -loglevel error -y)
  [ "$lower" = 0 ] || ff=(nice -n 10 ionice -c 3 "${ff[@]}")

  # ffmpeg, one process per segment.
  cpu; c0=$CPU
  t0=$(now)
  i=0
  for s in "${segs[@]}"; do
    "${ff[@]}" -i "$s" ${ffopts[$t]} "$work/ff/s$i.${ext[$t]}"
    i=$(( i + 1 ))
  done
  t_seg=$(since "$t0" "$(now)")
  cpu; c_seg=$(since "$c0" "$CPU")
  rm -f "$work"/ff/*

  # ffmpeg, one process over each hour.
  for d in $(printf '%s\n' "${segs[@]}" | xargs -n 1 dirname | sort -u); do
    printf "file '%s'\n" "$d"/*.wav > "$work/ff/$(echo "$d" | tr / _).txt"
  done
  cpu; c0=$CPU
  t0=$(now)
  for l in "$work"/ff/*.txt; do
    "${ff[@]}" -f concat -safe 0 -i "$l" ${ffopts[$t]} "${l%.txt}.${ext[$t]}"
  done
  t_hour=$(since "$t0" "$(now)")
  cpu; c_hour=$(since "$c0" "$CPU")
  rm -f "$work"/ff/*

  # The processor converting one file at a time, on a tree of its own, for the ideal of
  # several at once: the cores times this speed.
  make_tree '"ConcurrentConversions"=dword:00000001'
  cat "${segs[@]}" > /dev/null
  run_processor
  t_one=$t_proc
  make_tree
  cat "${segs[@]}" > /dev/null

  # The processor, with its defaults, one cycle.
  run_processor
  # Every segment converted: its target there, of the target's codec, its source gone.
  bad=0
  for s in "${segs[@]}"; do
    out="${s%.wav}.${ext[$t]}"
    got=$(ffprobe -v error -select_streams a:0 -show_entries stream=codec_name -of csv=p=0 "$out" 2> /dev/null || true)
    if [ "$got" != "${codec[$t]}" ] || { [ "$out" != "$s" ] && [ -e "$s" ]; }; then bad=$(( bad + 1 )); fi
  done
  if [ "$bad" -ne 0 ]; then
    echo "bench-compare: $bad of ${#segs[@]} segments were not converted to ${label[$t]}" >&2
    exit 1
  fi
  # A cycle with nothing due: what every cycle costs beside its conversions (the load and
  # preparation timers' ticks, the start and the end of the program).
  t_keep=$t_proc c_keep=$c_proc
  run_processor
  t_empty=$t_proc
  t_proc=$t_keep c_proc=$c_keep

  results+=("$(printf '| %s | %.1f s (%sx) | %.1f s (%sx) | %.1f s (%sx) | %s | %s | %.1f s (%sx) | %s | %s / %s / %s |' \
    "${label[$t]}" "$t_proc" "$(speed "$audio" "$t_proc")" "$t_seg" "$(speed "$audio" "$t_seg")" \
    "$t_hour" "$(speed "$audio" "$t_hour")" "$(ratio "$t_proc" "$t_seg")" "$(ratio "$t_proc" "$t_hour")" \
    "$t_one" "$(speed "$audio" "$t_one")" \
    "$(awk -v a="$t_one" -v b="$t_proc" -v e="$t_empty" -v n="$(nproc)" 'BEGIN { printf "%.2f (%.2f)", a / b / n, (a - e) / (b - e) / n }')" \
    "$c_proc" "$c_seg" "$c_hour")")
  echo "  ${label[$t]}: knlogproc ${t_proc} s (CPU ${c_proc} s; one file at a time ${t_one} s; a cycle with" \
       "nothing due ${t_empty} s), ffmpeg per segment ${t_seg} s (CPU ${c_seg} s), ffmpeg per hour ${t_hour} s (CPU ${c_hour} s)"
done

echo
echo "| Target | knlogproc | ffmpeg, one a segment | ffmpeg, one an hour | vs one a segment | vs one an hour | knlogproc, one file at a time | of the ideal | CPU s: knlogproc / a segment / an hour |"
echo "| --- | --- | --- | --- | --- | --- | --- | --- | --- |"
printf '%s\n' "${results[@]}"
echo "(wall time, audio seconds per wall second in brackets; the ratios are the processor's speed over ffmpeg's;"
echo " of the ideal: its speed with its defaults over $(nproc) cores times its speed one file at a time, and in"
echo " brackets the same for the conversions alone, less the time of a cycle with nothing due;"
echo " load average at the end: $(cut -d' ' -f1-3 /proc/loadavg))"
