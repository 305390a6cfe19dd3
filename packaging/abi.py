#!/usr/bin/env python3
"""The interface of the two libraries, as libabigail reads it from what was built: symbols, their versions, and the types
of functions and enumerations. packaging/abi holds what was published.

usage: abi.py compare BUILD_FOLDER [LIBRARY ...]   fails on every difference
       abi.py record BUILD_FOLDER                  writes packaging/abi anew
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as xml

PROJECT = pathlib.Path(__file__).resolve().parent.parent
# Of each library: its public header.
LIBRARIES = {"libhttpPool": "httpPool/ZEP_HttpPool.h", "libzepfoundation": "foundation/ZEP_Foundation.h"}
# Symbols of this version are for the other library of the same build: they change as they like.
PRIVATE = "ZEP_FOUNDATION_PRIVATE"


def published_folder():
    return pathlib.Path(os.environ.get("HTTPPOOL_ABI_FOLDER", PROJECT / "packaging" / "abi"))


def run(*command):
    result = subprocess.run(command, capture_output=True, text=True, check=False)
    return result.returncode, result.stdout + result.stderr


def dump(library, header):
    """What abidw writes, in a file of nobody's machine."""
    with tempfile.TemporaryDirectory() as folder:
        output = os.path.join(folder, "abi")
        # Types of other headers are nobody's business.
        shutil.copy(PROJECT / header, folder)
        status, text = run("abidw", "--exported-interfaces-only", "--no-corpus-path", "--no-comp-dir-path", "--no-show-locs",
                           "--type-id-style", "hash", "--headers-dir", folder, "--drop-private-types",
                           "--no-elf-needed", "--drop-undefined-syms", "--out-file", output, str(library))
        if status != 0:
            sys.exit(f"abidw cannot read {library}:\n{text}")
        return xml.parse(output)


def is_private(node):
    return node.get("version") == PRIVATE or node.get("elf-symbol-id", "").endswith("@@" + PRIVATE)


def without_private(tree):
    """Leaves the units that define public functions and variables."""
    corpus = tree.getroot()
    for part in list(corpus):
        for node in [node for node in part if is_private(node)]:
            part.remove(node)
        if part.tag == "abi-instr" and not part.findall("function-decl") and not part.findall("var-decl"):
            corpus.remove(part)
    defined = {node.get("id") for node in corpus.iter() if node.get("id")}
    used = {node.get("type-id") for node in corpus.iter() if node.get("type-id")}
    if not used <= defined:
        sys.exit(f"types of the interface are not described: {sorted(used - defined)}")
    return tree


def interface(build, name):
    tree = without_private(dump(build / "lib" / f"{name}.so", LIBRARIES[name]))
    functions = [node for node in tree.getroot().iter("function-decl")]
    if not functions or any(node.find("return") is None for node in functions):
        sys.exit(f"{name}: compiled without its types")
    if "enum " in (PROJECT / LIBRARIES[name]).read_text() and tree.getroot().find(".//enumerator") is None:
        sys.exit(f"{name}: its enumerations are not described")
    for unit in tree.getroot().iter("abi-instr"):
        unit.set("path", re.sub(r".*/((httpPool|foundation)/)", r"\1", unit.get("path")))
    xml.indent(tree)
    return xml.tostring(tree.getroot(), encoding="unicode") + "\n"


def record(build):
    for name in LIBRARIES:
        (published_folder() / f"{name}.abi").write_text(interface(build, name))


def differs(build, name):
    with tempfile.TemporaryDirectory() as folder:
        built = pathlib.Path(folder) / f"{name}.abi"
        built.write_text(interface(build, name))
        status, text = run("abidiff", "--harmless", str(published_folder() / f"{name}.abi"), str(built))
        if status != 0:
            print(f"{name}: its interface is not what was published.\n\n{text}\n"
                  "What was published stays. Additions are recorded: packaging/abi.py record BUILD_FOLDER")
        return status != 0


def compare(build, names):
    changed = [name for name in names if differs(build, name)]
    return 1 if changed else 0


def main(arguments):
    if len(arguments) >= 2 and arguments[0] == "compare":
        return compare(pathlib.Path(arguments[1]), arguments[2:] or list(LIBRARIES))
    if len(arguments) == 2 and arguments[0] == "record":
        return record(pathlib.Path(arguments[1]))
    sys.exit(__doc__)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
