#!/usr/bin/env bash
# The include check on a small tree with one upward include per kind (a header, a source,
# a relative path), beside includes that are allowed: it must fail and name each offence
# by file and line, and nothing else.
set -uo pipefail
here=$(dirname "$(realpath "$0")")
out=$(bash "$here/check_includes.sh" "$here/upward" 2>&1)
rc=$?
found=$(grep -oE '^[a-z/]+/Reach\.(h|cpp):[0-9]+: the [a-z]+ area includes "[^"]+"' <<<"$out" | sort)
expected='audio/codec/Reach.cpp:3: the audio area includes "config/CLog.h"
engine/Reach.cpp:5: the engine area includes "ui/QtMsgBox.h"
support/Reach.h:4: the support area includes "audio/Wfx.h"'
if [ $rc -ne 1 ] || [ "$found" != "$expected" ]; then
  echo "check_includes on the upward tree: exit $rc, output:" >&2
  echo "$out" >&2
  echo "expected exit 1 with exactly:" >&2
  echo "$expected" >&2
  exit 1
fi
echo "check_includes names the three upward includes and passes the rest"
