/* Requests the URL that its argument names and prints the result. */
#include <foundation/ZEP_Foundation.h>
#include <httpPool/ZEP_HttpPool.h>
#include <stdio.h>

static void look(ZEP_HTTP_POOL_TASK_NOTIFY code, const char* pool, const char* task, const char* data) {
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_NOT_EXIST;
  char result[1000];
  long size = sizeof result;
  (void)code, (void)data;
  ZEP_HttpPool_GetTaskStatus(pool, task, &status);
  if (status == ZEP_HTTP_TASK_REQUESTING)
    return;
  const long length = ZEP_HttpPool_GetTaskProperty(pool, task, ZEP_HTTP_TASK_PROP_RESULT, result, &size);
  printf("%d: %.*s\n", (int)status, (int)length, result);
  ZEP_RunLoop_Stop();
}

int main(int argc, char** argv) {
  ZEP_HttpPool_Create("pool");
  ZEP_HttpPool_SetPoolProc("pool", look);
  ZEP_HttpPool_AddTask("pool", "task");
  ZEP_HttpPool_SetTaskProperty("pool", "task", ZEP_HTTP_TASK_PROP_URL, argv[argc - 1]);
  ZEP_HttpPool_TaskRun("pool", "task", NULL);
  return ZEP_RunLoop_Run(-1) == 1 ? 0 : 1;
}
