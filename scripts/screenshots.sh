#!/usr/bin/env bash
# Pictures of the window for the README: builds knscreens and runs it on a virtual X
# display, writing docs/window-closed.png, docs/window-open.png and docs/manual-list.png.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD=${BUILD:-build}
cmake -S . -B "$BUILD" -DCMAKE_BUILD_TYPE=Release -DKN_TESTS=OFF > /dev/null
cmake --build "$BUILD" -j "$(nproc)" --target knscreens
unset QT_QPA_PLATFORM WAYLAND_DISPLAY
xvfb-run -a -s "-screen 0 1280x1024x24" "$BUILD/bin/knscreens" docs
