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
# Doxygen itself does not miss the values of enumerations.
printf '%s\n' '@INCLUDE = docs/Doxyfile' 'GENERATE_HTML = NO' 'GENERATE_XML = YES' "OUTPUT_DIRECTORY = \"$2\"" | doxygen -
python3 - "$2/xml" <<'END' || missing=1
import pathlib, sys
import xml.etree.ElementTree as tree
values = {}
for page in pathlib.Path(sys.argv[1]).glob("*.xml"):
    for value in tree.parse(page).iterfind(".//memberdef[@kind='enum'][@prot='public']/enumvalue"):
        words = "".join("".join(value.find(part).itertext()) for part in ("briefdescription", "detaileddescription"))
        values[value.get("id")] = (value.findtext("name"), words.strip())
bare = [name for name, words in values.values() if not words]
sys.exit(f"without a word: {bare}" if bare or len(values) < 40 else 0)
END
exit $missing
