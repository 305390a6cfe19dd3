/*
 * A host in plain C: one pool, one task, the run loop of ZEP_Foundation.h. Calls every function of the
 * interface.
 *
 *   c_host URL [header fields as JSON]
 *
 * Prints "status N", a line end and property 7. Exit status: 0 when the task ended, 1 when it did not within
 * two minutes, 2 for wrong arguments.
 */
#include <stdio.h>
#include <stdlib.h>

#include "foundation/ZEP_Foundation.h"
#include "httpPool/ZEP_HttpPool.h"

static const char* const kPool = "pool";
static const char* const kTask = "task";
static ZEP_HTTP_TASK_STATUS lastStatus = ZEP_HTTP_TASK_UNINITIALIZED;

static int isFinal(void) {
  return lastStatus == ZEP_HTTP_TASK_DONE || lastStatus == ZEP_HTTP_TASK_FAILED ||
         lastStatus == ZEP_HTTP_TASK_TIMEOUT;
}

static void notified(ZEP_HTTP_POOL_TASK_NOTIFY code, const char* poolName, const char* taskName,
                     const char* data) {
  (void)code;
  (void)data;
  ZEP_HttpPool_GetTaskStatus(poolName, taskName, &lastStatus);
  if (isFinal()) {
    ZEP_RunLoop_Stop();
  }
}

static void printResult(void) {
  long size = ZEP_HttpPool_GetTaskProperty(kPool, kTask, ZEP_HTTP_TASK_PROP_RESULT, NULL, NULL);
  char* result = calloc((size_t)size + 1, 1);
  if (result == NULL) {
    abort();
  }
  ZEP_HttpPool_GetTaskProperty(kPool, kTask, ZEP_HTTP_TASK_PROP_RESULT, result, &size);
  printf("status %d\n", (int)lastStatus);
  fwrite(result, 1, (size_t)size, stdout);
  free(result);
}

static void leave(void) {
  long size = 0;
  ZEP_HttpPool_GetTaskList(kPool, NULL, &size);
  ZEP_HttpPool_GetSnapshot(NULL, &size);
  ZEP_HttpPool_TaskReset(kPool, kTask);
  ZEP_HttpPool_SetTaskDataProperty(kPool, kTask, NULL, 0);
  ZEP_HttpPool_RemoveTask(kPool, kTask);
  ZEP_HttpPool_ClearTask(kPool);
  ZEP_HttpPool_Destroy(kPool);
  ZEP_RunLoop_Run(700);
}

int main(int argc, char** argv) {
  if (argc != 2 && argc != 3) {
    return 2;
  }
  ZEP_HttpPool_Init(NULL, NULL);
  ZEP_HttpPool_Create(kPool);
  ZEP_HttpPool_SetPoolProc(kPool, notified);
  ZEP_HttpPool_AddTask(kPool, kTask);
  ZEP_HttpPool_SetTaskProperty(kPool, kTask, ZEP_HTTP_TASK_PROP_URL, argv[1]);
  if (argc == 3) {
    ZEP_HttpPool_SetTaskProperty(kPool, kTask, ZEP_HTTP_TASK_PROP_HEADER_FIELDS, argv[2]);
  }
  ZEP_HttpPool_TaskRun(kPool, kTask, &lastStatus);
  ZEP_RunLoop_Run(120 * 1000L);
  printResult();
  leave();
  return isFinal() ? 0 : 1;
}
