#!/usr/bin/env bash
# Builds the fuzz targets and runs them side by side, each for a time. A crash fails and names the file that caused it;
# that file belongs into the corpus once the cause is mended.
# usage: fuzz.sh SECONDS [TARGET ...]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=$1
shift
targets=("$@")
packaging/build.sh fuzz
if ((${#targets[@]} == 0)); then
  mapfile -t targets <build/fuzz/fuzz/targets
fi

run() {
  local name=$1 seconds=$2 longest=70000 patience=10
  # Targets may work in folders of their own, so every path is whole.
  local log="$PWD/build/fuzz/$name.log" found="$PWD/build/fuzz/found/$name" dictionary=()
  case $name in
    operations) longest=400 patience=120 ;;  # an input waits for its requests
    job_file | trust_settings) longest=8000 ;;
  esac
  if [[ -f fuzz/$name.dict ]]; then
    dictionary=("-dict=$PWD/fuzz/$name.dict")
  fi
  mkdir -p "$found"
  if ! "build/fuzz/bin/fuzz_$name" -max_total_time="$seconds" -max_len="$longest" -timeout="$patience" -rss_limit_mb=2048 \
    -print_final_stats=1 -artifact_prefix="$PWD/build/fuzz/$name-" "${dictionary[@]}" "$found" "$PWD/fuzz/corpus/$name" >"$log" 2>&1; then
    tail -n 40 "$log" >&2
    echo "fuzz target $name failed" >&2
    return 1
  fi
  echo "fuzz: $name: $(grep -a -o 'number_of_executed_units: .*' "$log")"
}
export -f run
printf '%s\n' "${targets[@]}" | xargs -P "$(nproc)" -I{} bash -euo pipefail -c "run {} $seconds"
