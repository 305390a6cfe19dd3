#!/bin/sh
# Compares what a shared library exports with the interface, name by name. Usage: exported_symbols.sh nm library
set -eu

expected="IS_MONITOR_POOL
ZEP_HttpPool_AddTask
ZEP_HttpPool_ClearTask
ZEP_HttpPool_Create
ZEP_HttpPool_Destroy
ZEP_HttpPool_GetSnapshot
ZEP_HttpPool_GetTaskList
ZEP_HttpPool_GetTaskProperty
ZEP_HttpPool_GetTaskStatus
ZEP_HttpPool_Init
ZEP_HttpPool_RemoveTask
ZEP_HttpPool_SetPoolProc
ZEP_HttpPool_SetTaskDataProperty
ZEP_HttpPool_SetTaskProperty
ZEP_HttpPool_TaskReset
ZEP_HttpPool_TaskRun
g_localizationStr
g_pGlobal"

actual=$("$1" -D --defined-only --format=posix "$2" | cut -d ' ' -f 1 | LC_ALL=C sort)
if [ "$actual" != "$expected" ]; then
  printf 'expected:\n%s\n\nfound:\n%s\n' "$expected" "$actual"
  exit 1
fi
