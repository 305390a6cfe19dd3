#!/usr/bin/env bash
# The reference is made without a warning, and has every function that the libraries export and what C++ hosts use.
# usage: check_reference.sh PROJECT_FOLDER FOLDER
set -euo pipefail
cd "$1"
packaging/docs.sh "$2"
pages=$2/html
missing=0
functions=$(sed -nE 's/^ +(ZEP_[A-Za-z_]+);$/\1/p' httpPool/httpPool.map foundation/zepfoundation.map)
[ "$(wc -l <<<"$functions")" -ge 21 ] || { echo "the libraries export hardly any function"; missing=1; }
for name in $functions; do
  grep -q "$name()" "$pages/globals_func.html" || { echo "the reference lacks $name"; missing=1; }
done
for name in Pool Task Run Outcome SignInObserver TrustPanel; do
  [ -e "$pages/classhttpPool_1_1v1_1_1$name.html" ] || { echo "the reference lacks the class $name"; missing=1; }
done
for name in runUntil snapshot answerSignIn setExceptionHandler; do
  grep -q "$name()" "$pages/namespacemembers_func.html" || { echo "the reference lacks $name"; missing=1; }
done
exit $missing
