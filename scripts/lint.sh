#!/usr/bin/env bash
# Checks the C++ files changed against a base: the format of the changed lines
# (git clang-format, .clang-format) and clang-tidy's checks (.clang-tidy) on the sources.
#   scripts/lint.sh [build folder with compile_commands.json]
# LINT_BASE: the commit to compare with; default the merge-base with main, or HEAD~1 when
# HEAD is on main. Changes not yet committed count too.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build-asan}

if [ -n "${LINT_BASE:-}" ]; then
  base=$LINT_BASE
elif git rev-parse -q --verify main > /dev/null && [ "$(git rev-parse HEAD)" != "$(git rev-parse main)" ]; then
  base=$(git merge-base HEAD main)
else
  base=HEAD~1
fi
if ! git rev-parse -q --verify "$base^{commit}" > /dev/null; then
  # A shallow clone has no parent to compare with: check the format of every file instead.
  [ -n "${LINT_BASE:-}" ] && { echo "lint: no commit \"$base\" (set LINT_BASE)" >&2; exit 2; }
  echo "lint: no commit before HEAD here; checking the format of every C++ file"
  git ls-files -z '*.cpp' '*.h' ':!:tests/layers/upward/*' | xargs -0 clang-format --dry-run -Werror
  echo "lint: clean"
  exit 0
fi

# Changed, added or renamed C++ files that still exist (tests/layers/upward is a fixture
# tree of wrong includes, never compiled).
mapfile -t files < <(git diff --name-only --diff-filter=ACMR "$base" -- '*.cpp' '*.h' \
                       | grep -v '^tests/layers/upward/' | sort -u)
if [ ${#files[@]} -eq 0 ]; then
  echo "lint: no C++ file changed since $(git rev-parse --short "$base")"
  exit 0
fi
echo "lint: ${#files[@]} C++ file(s) changed since $(git rev-parse --short "$base")"

status=0
# The format of the lines changed since the base (the rest of a file is left as it is).
format_diff=$(git clang-format --diff "$base" -- "${files[@]}" 2>&1 || true)
if grep -q '^diff --git' <<<"$format_diff"; then
  echo "$format_diff" >&2
  echo "lint: the changed lines above are not formatted; run \`git clang-format $(git rev-parse --short "$base")\`" >&2
  status=1
fi

# The build's compile_commands.json, brought up to date with the tree (a new source appears
# in it only once the build is configured again).
if [ -f "$build/CMakeCache.txt" ]; then
  cmake -S . -B "$build" > /dev/null
else
  echo "lint: configuring $build for its compile_commands.json"
  cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Debug -DKN_SANITIZE=ON -DKN_WERROR=ON > /dev/null
fi
# clang-tidy runs on the sources the build compiles; a changed header is checked through
# the source of the same name beside it and through changed sources that include it
# (HeaderFilterRegex). Warnings are the compiler's business in the build, not here.
mapfile -t sources < <(for f in "${files[@]}"; do
  case $f in
    *.h) f=${f%.h}.cpp ;;
    *.cpp) ;;
    *) continue ;;
  esac
  grep -qF "\"file\": \"$PWD/$f\"" "$build/compile_commands.json" && echo "$f"
done | sort -u)
if [ ${#sources[@]} -gt 0 ]; then
  echo "lint: clang-tidy on ${#sources[@]} source(s)"
  log=$(mktemp)
  if ! clang-tidy -p "$build" --quiet --extra-arg=-Wno-error "${sources[@]}" > "$log" 2>&1; then
    status=1
  fi
  grep -v -E '^[0-9]+ warnings? (and [0-9]+ errors? )?generated\.$|^Suppressed [0-9]+ warnings|^Use -header-filter|^Use -system-headers' \
    "$log" >&2 || true
  rm -f "$log"
fi
if [ $status -ne 0 ]; then
  echo "lint: failed" >&2
else
  echo "lint: clean"
fi
exit $status
