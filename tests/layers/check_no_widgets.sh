#!/usr/bin/env bash
# Checks which programs load Qt Widgets:
#   check_no_widgets.sh --with <program>... --without <program>...
# A program after --with must need libQt6Widgets (so the check is known to see it), one
# after --without must not.
set -euo pipefail
mode=""
bad=0
for arg in "$@"; do
  case $arg in
    --with|--without) mode=$arg; continue ;;
  esac
  [ -n "$mode" ] || { echo "check_no_widgets: --with or --without first" >&2; exit 2; }
  if ! needed=$(readelf -d "$arg" 2>&1); then
    echo "check_no_widgets: cannot read $arg: $needed" >&2
    exit 2
  fi
  if grep -q 'NEEDED.*libQt6Widgets' <<<"$needed"; then has=yes; else has=no; fi
  name=$(basename "$arg")
  if [ "$mode" = --with ] && [ $has = no ]; then
    echo "check_no_widgets: $name should show a window but needs no libQt6Widgets" >&2
    bad=1
  elif [ "$mode" = --without ] && [ $has = yes ]; then
    echo "check_no_widgets: $name shows no window but needs libQt6Widgets; link a lower area library" >&2
    bad=1
  else
    echo "$name: Qt Widgets $has"
  fi
done
exit $bad
