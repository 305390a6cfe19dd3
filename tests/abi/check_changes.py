#!/usr/bin/env python3
"""The comparison of the interfaces sees what would break a host: it fails for published interfaces that differ from those
that were built in one thing each.

usage: check_changes.py PROJECT_FOLDER BUILD_FOLDER
"""

import contextlib
import functools
import io
import os
import pathlib
import re
import sys
import tempfile

PROJECT = pathlib.Path(sys.argv[1])
BUILD = pathlib.Path(sys.argv[2])
sys.path.insert(0, str(PROJECT / "packaging"))
sys.dont_write_bytecode = True
import abi

# The same built libraries are compared each time.
abi.interface = functools.cache(abi.interface)
INT = r'<type-decl name="int" size-in-bits="32" id="(\w+)"'
LONG = r'<type-decl name="long int" size-in-bits="64" id="(\w+)"'


def replaced(text, pattern, by):
    changed, count = re.subn(pattern, by, text, count=1, flags=re.DOTALL)
    if count == 0:
        sys.exit(f"no such thing in the published interface: {pattern}")
    return changed


def id_of(text, pattern):
    return re.search(pattern, text).group(1)


def callback(text, name):
    """The identity of the function type behind the type of a pointer to it."""
    pointer = id_of(text, rf'<typedef-decl name="{name}" type-id="(\w+)"')
    return id_of(text, rf'<pointer-type-def type-id="(\w+)" size-in-bits="64" id="{pointer}"')


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


def a_callback_with_a_parameter_less(text):
    return replaced(text, rf'(<function-type [^>]*id="{callback(text, "ZEP_HttpPool_NotifyProc")}">\s*)<parameter [^>]*/>', r"\1")


def an_observer_with_a_parameter_less(text):
    return replaced(text, rf'(<function-type [^>]*id="{callback(text, "ZEP_NotificationObserver")}">\s*)<parameter [^>]*/>',
                    r"\1")


def a_runner_with_another_result(text):
    return replaced(text, rf'(<function-type [^>]*id="{callback(text, "ZEP_TrustPanelRunner")}">.*?<return type-id=")\w+',
                    rf"\g<1>{id_of(text, LONG)}")


def a_foundation_function_more(text):
    return replaced(text, r'(<elf-symbol name=")ZEP_RunLoop_Stop("[^>]*>)', r"\g<0>\g<1>ZEP_RunLoop_Gone\2")


def a_foundation_symbol_of_another_version(text):
    return replaced(text, r'(name="ZEP_Notification_Post" version="ZEP_FOUNDATION_)1.0"', r'\g<1>2.0"')


def a_foundation_parameter_of_another_type(text):
    return replaced(text, rf'type-id="{id_of(text, LONG)}" name="milliseconds"',
                    f'type-id="{id_of(text, INT)}" name="milliseconds"')


def another_foundation_soname(text):
    return replaced(text, r'soname="libzepfoundation.so.1"', 'soname="libzepfoundation.so.2"')


def nothing(text):
    return text


CHANGES = {
    "libhttpPool": [an_enumerator_with_another_value, an_enumerator_less, a_function_more, a_variable_more,
                    a_variable_of_another_size, a_symbol_of_another_version, a_parameter_of_another_type, a_parameter_less,
                    another_result, another_soname, a_callback_with_a_parameter_less],
    "libzepfoundation": [an_observer_with_a_parameter_less, a_runner_with_another_result, a_foundation_function_more,
                         a_foundation_symbol_of_another_version, a_foundation_parameter_of_another_type,
                         another_foundation_soname],
}


def compared(library, change):
    """The status and the words of the comparison with what would have been published before the change."""
    with tempfile.TemporaryDirectory() as folder:
        text = (PROJECT / "packaging" / "abi" / f"{library}.abi").read_text()
        (pathlib.Path(folder) / f"{library}.abi").write_text(change(text))
        os.environ["HTTPPOOL_ABI_FOLDER"] = folder
        said = io.StringIO()
        with contextlib.redirect_stdout(said):
            status = abi.compare(BUILD, [library])
        return status, said.getvalue()


def main():
    failures = []
    for library, changes in CHANGES.items():
        for change in [nothing, *changes]:
            status, said = compared(library, change)
            expected = 0 if change is nothing else 1
            if status != expected or ("is not what was published" in said) != bool(expected):
                failures.append(f"{library}, {change.__name__}: status {status}\n{said}")
    print("\n".join(failures) or f"{sum(map(len, CHANGES.values()))} changes were seen")
    return 1 if failures else 0


sys.exit(main())
