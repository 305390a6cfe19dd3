#!/usr/bin/env bash
# Builds the fuzz targets and runs each for a time. A crash fails and names the file that caused it; that file
# belongs into the corpus once the cause is mended.
# usage: fuzz.sh SECONDS
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=$1
packaging/build.sh fuzz
for corpus in fuzz/corpus/*/; do
  name=$(basename "$corpus")
  found="build/fuzz/found/$name"
  mkdir -p "$found"
  if ! "build/fuzz/bin/fuzz_$name" -max_total_time="$seconds" -max_len=70000 -timeout=10 -rss_limit_mb=2048 \
    -print_final_stats=1 -artifact_prefix="build/fuzz/$name-" "$found" "$corpus" >"build/fuzz/$name.log" 2>&1; then
    tail -n 40 "build/fuzz/$name.log" >&2
    echo "fuzz target $name failed" >&2
    exit 1
  fi
  echo "fuzz: $name: $(grep -o 'number_of_executed_units: .*' "build/fuzz/$name.log")"
done
