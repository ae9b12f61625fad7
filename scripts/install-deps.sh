#!/usr/bin/env bash
# Installs every Debian package that the build, the tests and the demo need.
# Idempotent and non-interactive; uses sudo when not run as root.
set -euo pipefail

PACKAGES=(
  build-essential cmake pkg-config make git
  qt6-base-dev libgl-dev
  libavformat-dev libavcodec-dev libswresample-dev libavutil-dev
  libfmt-dev libgtest-dev libgmock-dev libbenchmark-dev
  clang libclang-rt-14-dev clang-format clang-tidy
  sox ffmpeg
  xvfb xauth
  locales
  libsystemd-dev
  dpkg-dev lintian man-db
  prometheus  # promtool, for the check of the metrics file
  faketime  # bench/memory.sh: a fast clock, for many cycles in one run
)

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive

if [ ${#missing[@]} -eq 0 ]; then
  echo "install-deps: all packages present"
else
  echo "install-deps: installing ${missing[*]}"
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# A locale whose decimal sign is a comma, for the tests that check that numbers read and
# print the same under any locale.
TEST_LOCALE=de_DE.UTF-8
if ! locale -a 2>/dev/null | grep -qix 'de_DE\.utf-\?8'; then
  echo "install-deps: generating the locale $TEST_LOCALE"
  if ! grep -q "^$TEST_LOCALE UTF-8" /etc/locale.gen 2>/dev/null; then
    if grep -q "^# *$TEST_LOCALE UTF-8" /etc/locale.gen 2>/dev/null; then
      $SUDO sed -i "s/^# *$TEST_LOCALE UTF-8/$TEST_LOCALE UTF-8/" /etc/locale.gen
    else
      echo "$TEST_LOCALE UTF-8" | $SUDO tee -a /etc/locale.gen > /dev/null
    fi
  fi
  $SUDO locale-gen > /dev/null
fi
