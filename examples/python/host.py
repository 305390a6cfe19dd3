#!/usr/bin/env python3
"""Requests a URL through libhttpPool.so by its C interface, polls until the request has ended and prints its result.

usage: host.py URL [LIBRARY-FOLDER]     (or the folder in the environment variable HTTPPOOL_LIBRARIES)

Exit status: 0 done, 1 not done, 2 wrong arguments.
"""
import ctypes
import json
import os
import sys

REQUESTING, DONE, NOT_EXIST, REDIRECTED = 2, 3, 4, 9
HEADER_FIELDS, URL, RESULT, REDIRECT_URL = 1, 5, 7, 10
POOL, TASK = b"pool", b"task"


def load(folder):
    """Both libraries; without a folder the system finds them."""
    foundation = ctypes.CDLL(os.path.join(folder, "libzepfoundation.so"))
    pools = ctypes.CDLL(os.path.join(folder, "libhttpPool.so"))
    texts = [ctypes.c_char_p] * 2
    for name, arguments in {
        "Create": texts[:1],
        "Destroy": texts[:1],
        "AddTask": texts,
        "SetTaskProperty": texts + [ctypes.c_int, ctypes.c_char_p],
        "TaskRun": texts + [ctypes.POINTER(ctypes.c_int)],
        "GetTaskStatus": texts + [ctypes.POINTER(ctypes.c_int)],
        "GetTaskProperty": texts + [ctypes.c_int, ctypes.c_char_p, ctypes.POINTER(ctypes.c_long)],
    }.items():
        function = getattr(pools, "ZEP_HttpPool_" + name)
        function.argtypes, function.restype = arguments, ctypes.c_long
    foundation.ZEP_RunLoop_Run.argtypes, foundation.ZEP_RunLoop_Run.restype = [ctypes.c_long], ctypes.c_long
    return pools, foundation


def read(pools, number):
    """A property as bytes, which may hold zero bytes: ask for the length, then for the value."""
    length = ctypes.c_long(pools.ZEP_HttpPool_GetTaskProperty(POOL, TASK, number, None, None))
    value = ctypes.create_string_buffer(length.value + 1)
    pools.ZEP_HttpPool_GetTaskProperty(POOL, TASK, number, value, ctypes.byref(length))
    return value.raw[: length.value]


def main():
    if len(sys.argv) not in (2, 3):
        print(__doc__, file=sys.stderr)
        sys.exit(2)
    pools, foundation = load(sys.argv[2] if len(sys.argv) == 3 else os.environ.get("HTTPPOOL_LIBRARIES", ""))
    pools.ZEP_HttpPool_Create(POOL)
    pools.ZEP_HttpPool_AddTask(POOL, TASK)
    pools.ZEP_HttpPool_SetTaskProperty(POOL, TASK, URL, sys.argv[1].encode())
    pools.ZEP_HttpPool_SetTaskProperty(POOL, TASK, HEADER_FIELDS, json.dumps({"HttpMethod": "GET"}).encode())
    status = ctypes.c_int(NOT_EXIST)
    pools.ZEP_HttpPool_TaskRun(POOL, TASK, ctypes.byref(status))
    while status.value == REQUESTING:
        foundation.ZEP_RunLoop_Run(10)
        pools.ZEP_HttpPool_GetTaskStatus(POOL, TASK, ctypes.byref(status))
    result = read(pools, REDIRECT_URL if status.value == REDIRECTED else RESULT)
    pools.ZEP_HttpPool_Destroy(POOL)
    if status.value == DONE:
        print("status 3", flush=True)
        sys.stdout.buffer.write(result)
        sys.exit(0)
    # Empty when the launch was refused.
    error = json.loads(result) if result.startswith(b"{") else {}
    print("status", status.value, "errorID", error.get("errorID"), "errorReason", error.get("errorReason"))
    sys.exit(1)


if __name__ == "__main__":
    main()
