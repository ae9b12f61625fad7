# shellcheck shell=bash
# Sourced by the benchmarks (compare.sh, memory.sh): a recorder's tree for the processor.
#
# bench_tree BIN ROOT LOGGERS HOURS SECONDS FORMATS STANDARD_AFTER [VALUE ...]
#   makes in ROOT the hours 00 .. HOURS-1 of 2026-01-01 of LOGGERS loggers, 60 segments of
#   SECONDS s of 44.1 kHz stereo PCM an hour (tones), standardised to FORMATS (the
#   kncapture-sim --format of the standard and archive outputs, e.g. "ima:22050:1/none")
#   STANDARD_AFTER hours after recording, never archived or deleted. The processor runs
#   with its own pacing defaults (no timer values in its key); each VALUE is one more line
#   of its key, e.g. '"LowerPriority"=dword:00000000'.
# BENCH_SIM_ARGS (an array) holds more options of kncapture-sim, e.g. another logger's
# --format.
# bench_segments ROOT: the tree's segments, one a line, sorted.
bench_tree() {
  local bin="$1" root="$2" loggers="$3" hours="$4" seconds="$5" formats="$6" after="$7"
  shift 7
  "$bin/kncapture-sim" make -q --root "$root" --loggers "$loggers" --start 2026-01-01 --days 1 \
    --until "2026-01-01 $(printf %02d $(( hours - 1 ))):59" --segments 60 --seconds "$seconds" \
    --audio tones --seed 16 --format "wav:44100:2/$formats" --hours "$after,0,0" \
    ${BENCH_SIM_ARGS[@]+"${BENCH_SIM_ARGS[@]}"}
  sed -i '/"PrepareTimerInterval"\|"ProcessTimerInterval"\|"PrepareHoursPerPing"/d' "$root/registry.reg"
  if [ "$#" -gt 0 ]; then
    printf '\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Kestrane v4\\Log Processor]\r\n' >> "$root/registry.reg"
    printf '%s\r\n' "$@" >> "$root/registry.reg"
  fi
}

bench_segments() {
  find "$1" -name '*.wav' -path '*/[0-9][0-9]00/*' | sort
}
