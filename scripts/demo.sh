#!/usr/bin/env bash
# Runs the log processor headless on a fresh machine root in ./demo-root for a few
# seconds, stops it as a service manager would (SIGTERM) and shows its debug file.
set -euo pipefail
cd "$(dirname "$0")/.."
root="$PWD/demo-root"
rm -rf "$root"
mkdir -p "$root"
export KESTRANE_ROOT="$root"
unset DISPLAY WAYLAND_DISPLAY QT_QPA_PLATFORM
build/bin/knlogproc /DEBUG &
pid=$!
sleep 3
kill -TERM "$pid"
wait "$pid" || true
echo "---- debug file ----"
cat "$root"/drive_c/DebugFiles/knlogproc.*.log
