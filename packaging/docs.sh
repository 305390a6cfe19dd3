#!/usr/bin/env bash
# Makes the reference of the public headers; fails when something in them is not documented.
# usage: docs.sh [FOLDER]   (build/docs; the first page is FOLDER/html/index.html)
set -euo pipefail
cd "$(dirname "$0")/.."
folder=$(realpath -m "${1-build/docs}")
rm -rf "$folder/html"
mkdir -p "$folder"
version=$(sed -nE 's/^project\(httpPool VERSION ([0-9.]+).*/\1/p' CMakeLists.txt)
doxygen - <<END
@INCLUDE = docs/Doxyfile
PROJECT_NUMBER = $version
OUTPUT_DIRECTORY = "$folder"
END
echo "$folder/html/index.html"
