#!/usr/bin/env bash
# The Debian package, made by CPack from this build into a temporary folder, checked
# with the platform's own tools: its name, file list and dependencies (dpkg-deb),
# lintian without errors, the man pages rendered by man, the maintainer scripts
# parsed, and its sysusers and tmpfiles entries applied to a scratch root.
#   check_package.sh BUILD_DIR
set -euo pipefail
build="$1"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

cpack -G DEB --config "$build/CPackConfig.cmake" -B "$work/out" > "$work/cpack.log" 2>&1 ||
  { cat "$work/cpack.log"; fail "cpack did not make the package"; }
arch="$(dpkg --print-architecture)"
deb="$work/out/kestrane-logproc_4.0-1_${arch}.deb"
[ -f "$deb" ] || { ls "$work/out"; fail "no $deb"; }

files="$(dpkg-deb -c "$deb" | awk '{print $6}' | sed 's|^\./|/|')"
for f in /usr/bin/knlogproc /usr/bin/SoundShuttle /usr/bin/knmsg /usr/bin/kncapture-sim \
         /lib/systemd/system/knlogproc.service \
         /usr/lib/sysusers.d/kestrane-logproc.conf /usr/lib/tmpfiles.d/kestrane-logproc.conf \
         /usr/share/kestrane-logproc/nvkn4.prx \
         /usr/share/man/man8/knlogproc.8.gz /usr/share/man/man1/SoundShuttle.1.gz \
         /usr/share/man/man1/knmsg.1.gz /usr/share/man/man1/kncapture-sim.1.gz \
         /usr/share/doc/kestrane-logproc/README.md /usr/share/doc/kestrane-logproc/copyright \
         /usr/share/doc/kestrane-logproc/changelog.Debian.gz; do
  grep -qxF "$f" <<< "$files" || fail "the package lacks $f"
done
# Nothing outside the places a package may use; in particular no machine root.
if grep -vE '^/(usr|lib)(/|$)|^/$' <<< "$files"; then fail "files outside /usr and /lib"; fi

depends="$(dpkg-deb -f "$deb" Depends)"
for d in libqt6core6 libsystemd0 libavcodec libfmt systemd; do
  grep -q "$d" <<< "$depends" || fail "Depends lacks $d: $depends"
done

if command -v lintian > /dev/null; then
  lintian --fail-on error "$deb" > "$work/lintian.txt" 2>&1 || { cat "$work/lintian.txt"; fail "lintian reports errors"; }
else
  echo "lintian not installed: not run"
fi

dpkg-deb -x "$deb" "$work/root"
dpkg-deb -e "$deb" "$work/control"
for page in man8/knlogproc.8 man1/SoundShuttle.1 man1/knmsg.1 man1/kncapture-sim.1; do
  out="$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings=w -l "$work/root/usr/share/man/$page.gz" 2> "$work/man.err")"
  [ -s "$work/man.err" ] && { cat "$work/man.err"; fail "man warns about $page"; }
  grep -q "^NAME" <<< "$out" || fail "$page renders without a NAME section"
done
for s in postinst prerm postrm; do
  [ -x "$work/control/$s" ] || fail "$s is missing or not executable"
  sh -n "$work/control/$s" || fail "$s does not parse"
done

# The account and the machine root, as the postinst makes them, in a scratch root.
sys="$work/sysroot"
mkdir -p "$sys/etc"
touch "$sys/etc/passwd" "$sys/etc/group" "$sys/etc/shadow" "$sys/etc/gshadow"
systemd-sysusers --root="$sys" "$work/root/usr/lib/sysusers.d/kestrane-logproc.conf" > /dev/null 2>&1 ||
  fail "systemd-sysusers refuses the entry"
grep -q '^kestrane:x:[0-9]*:[0-9]*:.*:/var/lib/kestrane:' "$sys/etc/passwd" || fail "no kestrane account"
systemd-tmpfiles --root="$sys" --create "$work/root/usr/lib/tmpfiles.d/kestrane-logproc.conf" ||
  fail "systemd-tmpfiles refuses the entry"
uid="$(awk -F: '$1 == "kestrane" {print $3}' "$sys/etc/passwd")"
[ "$(stat -c %u "$sys/var/lib/kestrane")" = "$uid" ] || fail "the machine root is not the service's"
[ "$(stat -c %u "$sys/var/lib/kestrane/drive_c/DebugFiles")" = "$uid" ] || fail "DebugFiles is not the service's"
common="$sys/var/lib/kestrane/drive_c/Program Files/Common Files/Norvane Shared"
[ "$(readlink "$common/Sound Shuttle/SoundShuttle")" = /usr/bin/SoundShuttle ] || fail "no link to the copier"
[ "$(readlink "$common/Kestrane v4/nvkn4.prx")" = /usr/share/kestrane-logproc/nvkn4.prx ] || fail "no link to nvkn4.prx"
grep -q '^Type=notify' "$work/root/lib/systemd/system/knlogproc.service" || fail "the unit is not Type=notify"
grep -q '^WatchdogSec=' "$work/root/lib/systemd/system/knlogproc.service" || fail "the unit has no watchdog"
echo "package $(basename "$deb") checked"
