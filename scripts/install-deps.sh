#!/usr/bin/env bash
# Installs every Debian package that the build, the tests and the demo need.
# Idempotent and non-interactive; uses sudo when not run as root.
set -euo pipefail

PACKAGES=(
  build-essential cmake pkg-config make git
  qt6-base-dev libgl-dev
  libavformat-dev libavcodec-dev libswresample-dev libavutil-dev
  libfmt-dev libgtest-dev libgmock-dev libbenchmark-dev
  clang libclang-rt-14-dev
  sox ffmpeg
  xvfb xauth
  libsystemd-dev
  dpkg-dev lintian man-db
  prometheus  # promtool, for the check of the metrics file
)

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "install-deps: all packages present"
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
echo "install-deps: installing ${missing[*]}"
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
