#!/usr/bin/env bash
# Configures and builds one preset; prints the log only when something fails.
# usage: build.sh PRESET [cmake configure arguments ...]
set -euo pipefail
cd "$(dirname "$0")/.."
preset=$1
shift
mkdir -p "build/$preset"
log="build/$preset/build.log"
# What the compiler cache has of another checkout serves here as well.
export CCACHE_BASEDIR="${CCACHE_BASEDIR:-$PWD}" CCACHE_NOHASHDIR=1
start=$SECONDS
if ! { cmake --preset "$preset" "$@" && cmake --build --preset "$preset"; } >"$log" 2>&1; then
  tail -n 80 "$log" >&2
  echo "build of preset $preset failed; the whole log is $log" >&2
  exit 1
fi
echo "built preset $preset in $((SECONDS - start)) s"
