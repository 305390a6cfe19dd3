#!/usr/bin/env bash
# Every test that docs/behaviour.md names is defined in the sources.
# usage: check_behaviour.sh PROJECT_FOLDER
set -euo pipefail
cd "$1"
missing=0
names=$(grep -oE '`[A-Za-z0-9]+\.[A-Za-z0-9]+`' docs/behaviour.md | tr -d '`' | grep -vE '\.(sh|md)$' | sort -u)
defined=$(grep -rhoE --include='*.cpp' -A1 'TEST(_[FP])?\($|TEST(_[FP])?\([A-Za-z0-9]+, *[A-Za-z0-9]+\)' tests |
  sed -nE 's/.*TEST(_[FP])?\(([A-Za-z0-9]+), *([A-Za-z0-9]+)\).*/\2.\3/p' | sort -u)
defined+=$'\n'$(grep -rhoE --include=CMakeLists.txt 'add_test\(NAME [A-Za-z0-9.]+' tests | cut -d' ' -f2)
for name in $names; do
  if ! grep -qx "$name" <<<"$defined"; then
    echo "docs/behaviour.md names $name, which no test defines"
    missing=1
  fi
done
[ "$(wc -l <<<"$names")" -gt 100 ] || { echo "docs/behaviour.md names hardly any test"; missing=1; }
exit $missing
