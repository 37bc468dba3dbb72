#!/usr/bin/env bash
# Checks the module's include graph: every quoted include runs down the
# layers hal -> device -> protocol -> link -> core (platform/ sits beside
# core, under everything), never up, and no file includes itself through
# others. Calls that must go upward at run time go through hooks registered
# at start-up (hal/wiring.cpp), so they do not show here.
# usage: check_layers.sh SOURCE_DIR
set -euo pipefail
cd "$1"

rank() {
  case $1 in
  core | platform) echo 0 ;;
  link) echo 1 ;;
  protocol) echo 2 ;;
  device) echo 3 ;;
  hal) echo 4 ;;
  *) echo -1 ;;  # the client's header and system headers: usable from every layer
  esac
}

edges=$(mktemp)
trap 'rm -f "$edges"' EXIT
bad=0
files=0
for f in core/* link/* protocol/* device/* hal/* platform/*.h platform/*/*.cpp platform/*/*.h; do
  [ -f "$f" ] || continue
  files=$((files + 1))
  from=${f%%/*}
  while read -r inc; do
    to=${inc%%/*}
    [ "$inc" = "$to" ] && continue  # no folder: the client's header
    echo "$f $inc" >>"$edges"
    if [ "$(rank "$to")" -gt "$(rank "$from")" ]; then
      echo "upward include: $f includes $inc ($from is below $to)" >&2
      bad=1
    fi
  done < <(sed -n 's/^#include "\([^"]*\)".*/\1/p' "$f")
done

if ! tsort "$edges" >/dev/null 2>"$edges.err"; then
  cat "$edges.err" >&2
  echo "the include graph has a cycle (tsort's loop above)" >&2
  bad=1
fi
rm -f "$edges.err"
[ $bad -eq 0 ] || exit 1
echo "$files files, $(wc -l <"$edges") includes between them: all run down the layers, no cycle"
