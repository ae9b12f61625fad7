#!/usr/bin/env bash
# Fails when a source under <src> includes a header of an area above its own.
#   check_includes.sh <src folder>
# The areas, lowest first: support < audio < config < hours < engine < ui. A file may
# include its own area and those below it; the files at the top of <src> (the program's
# entry point) may include any area. Each offence is printed as "<file>:<line>: ...".
set -euo pipefail
src=$(realpath "${1:?usage: check_includes.sh <src folder>}")
areas=(support audio config hours engine ui)

rank() {  # the layer of an area name, or nothing when it isn't one
  local i
  for i in "${!areas[@]}"; do
    if [ "${areas[$i]}" = "$1" ]; then echo "$i"; return; fi
  done
}

bad=0
checked=0
while IFS= read -r -d '' file; do
  rel=${file#"$src"/}
  own=${rel%%/*}
  own_rank=$(rank "$own")
  [ -n "$own_rank" ] || continue  # the entry point at the top sees every area
  checked=$((checked + 1))
  while IFS=: read -r line target; do
    if [[ $target == ../* || $target == ./* ]]; then
      # A relative include: the area is where it lands.
      resolved=$(realpath -m "$(dirname "$file")/$target")
      case $resolved in
        "$src"/*) target=${resolved#"$src"/} ;;
        *) continue ;;
      esac
    fi
    [[ $target == */* ]] || continue  # a header beside the file
    inc=${target%%/*}
    inc_rank=$(rank "$inc")
    [ -n "$inc_rank" ] || continue
    if [ "$inc_rank" -gt "$own_rank" ]; then
      echo "$rel:$line: the $own area includes \"$target\" of the $inc area above it" \
           "(order: ${areas[*]})" >&2
      bad=$((bad + 1))
    fi
  done < <(grep -n -E '^[[:space:]]*#[[:space:]]*include[[:space:]]*"' "$file" \
             | sed -E 's/^([0-9]+):[^"]*"([^"]*)".*/\1:\2/')
done < <(find "$src" -type f \( -name '*.h' -o -name '*.hpp' -o -name '*.cpp' \) -print0 | sort -z)

if [ "$checked" -eq 0 ]; then
  echo "check_includes: no sources of any area under $src" >&2
  exit 2
fi
if [ "$bad" -gt 0 ]; then
  echo "check_includes: $bad include(s) reach up a layer; move the code down or pass it" \
       "through an interface of the lower area" >&2
  exit 1
fi
echo "check_includes: $checked files, every include stays within its layer or below"
