#!/usr/bin/env bash
# Builds the Debian packages into build/packages.
set -euo pipefail
cd "$(dirname "$0")/.."
packaging/install-dependencies.sh build
packaging/build.sh release -DBUILD_TESTING=OFF
log=build/release/package.log
rm -rf build/packages
if ! cpack --config build/release/CPackConfig.cmake -B "$PWD/build/packages" >"$log" 2>&1; then
  tail -n 40 "$log" >&2
  echo "the packages were not made; the whole log is $log" >&2
  exit 1
fi
rm -rf build/packages/_CPack_Packages
ls build/packages/*.deb
