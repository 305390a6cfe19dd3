#!/usr/bin/env python3
"""The comparison of the interface sees what would break a host: it fails for published interfaces that differ from the
one that was built in one thing each.

usage: check_changes.py PROJECT_FOLDER BUILD_FOLDER
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

PROJECT = pathlib.Path(sys.argv[1])
BUILD = sys.argv[2]
INT = r'<type-decl name="int" size-in-bits="32" id="(\w+)"'
LONG = r'<type-decl name="long int" size-in-bits="64" id="(\w+)"'


def replaced(text, pattern, by):
    changed, count = re.subn(pattern, by, text, count=1, flags=re.DOTALL)
    if count == 0:
        sys.exit(f"no such thing in the published interface: {pattern}")
    return changed


def id_of(text, pattern):
    return re.search(pattern, text).group(1)


def an_enumerator_with_another_value(text):
    return replaced(text, r'(name="ZEP_HTTP_TASK_REDIRECTED" value=")9"', r'\g<1>8"')


def an_enumerator_less(text):
    return replaced(text, r'<enumerator name="ZEP_HTTP_TASK_PROP_EXTRA_9" value="9" />', "")


def a_function_more(text):
    return replaced(text, r'(<elf-symbol name=")ZEP_HttpPool_Init("[^>]*>)', r"\g<0>\g<1>ZEP_HttpPool_Gone\2")


def a_variable_more(text):
    return replaced(text, r'(<elf-symbol name=")g_pGlobal("[^>]*>)', r"\g<0>\g<1>g_pGone\2")


def a_variable_of_another_size(text):
    return replaced(text, r'(name="IS_MONITOR_POOL" size=")1"', r'\g<1>4"')


def a_symbol_of_another_version(text):
    return replaced(text, r'(name="ZEP_HttpPool_TaskRun" version="HTTPPOOL_)1.0"', r'\g<1>2.0"')


def a_parameter_of_another_type(text):
    return replaced(text, rf'type-id="{id_of(text, INT)}" name="size"', f'type-id="{id_of(text, LONG)}" name="size"')


def a_parameter_less(text):
    return replaced(text, r'<parameter type-id="\w+" name="data" />\s*(<parameter type-id="\w+" name="size")', r"\1")


def another_result(text):
    return replaced(text, rf'(name="ZEP_HttpPool_Create".*?<return type-id=")\w+', rf"\g<1>{id_of(text, INT)}")


def another_soname(text):
    return replaced(text, r'soname="libhttpPool.so.1"', 'soname="libhttpPool.so.2"')


CHANGES = [an_enumerator_with_another_value, an_enumerator_less, a_function_more, a_variable_more, a_variable_of_another_size,
           a_symbol_of_another_version, a_parameter_of_another_type, a_parameter_less, another_result, another_soname]


def compare(folder):
    return subprocess.run([PROJECT / "packaging" / "abi.py", "compare", BUILD, "libhttpPool"], check=False,
                          capture_output=True, text=True, env={**os.environ, "HTTPPOOL_ABI_FOLDER": folder})


def main():
    failures = []
    for change in [lambda text: text] + CHANGES:
        with tempfile.TemporaryDirectory() as folder:
            published = pathlib.Path(folder) / "libhttpPool.abi"
            shutil.copy(PROJECT / "packaging" / "abi" / "libhttpPool.abi", published)
            published.write_text(change(published.read_text()))
            result = compare(folder)
            expected = 1 if change in CHANGES else 0
            said = "is not what was published" in result.stdout
            if result.returncode != expected or said != bool(expected):
                failures.append(f"{change.__name__}: status {result.returncode}\n{result.stdout}{result.stderr}")
    print("\n".join(failures) or f"{len(CHANGES)} changes were seen")
    return 1 if failures else 0


sys.exit(main())
