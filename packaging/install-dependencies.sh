#!/usr/bin/env bash
# Installs the packages of the named parts of debian-packages.txt that are missing, and says which.
# usage: install-dependencies.sh PART [PART ...]
set -euo pipefail

list="$(dirname "$0")/debian-packages.txt"
missing=()
for part in "$@"; do
  grep -qx "\[$part\]" "$list" || { echo "$0: no part [$part] in $list" >&2; exit 2; }
  while read -r package; do
    [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=("$package")
  done < <(awk -v part="[$part]" '/^\[/ { on = ($0 == part); next } on && NF && !/^#/ { print $1 }' "$list")
done

[ ${#missing[@]} -eq 0 ] && exit 0

as_root=()
[ "$(id -u)" -eq 0 ] || as_root=(sudo)
echo "Installing missing packages: ${missing[*]}"

# A package that brings a service must not start it: the tests start their own on free ports.
policy=/usr/sbin/policy-rc.d
made_policy=no
if [ ! -e "$policy" ]; then
  printf '#!/bin/sh\nexit 101\n' | "${as_root[@]}" tee "$policy" >/dev/null
  "${as_root[@]}" chmod 755 "$policy"
  made_policy=yes
fi
cleanup() { [ "$made_policy" = no ] || "${as_root[@]}" rm -f "$policy"; }
trap cleanup EXIT

"${as_root[@]}" apt-get update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
  -o Dpkg::Options::=--force-confold "${missing[@]}"
