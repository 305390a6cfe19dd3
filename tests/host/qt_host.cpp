// A Qt host: nothing but Qt's own event loop turns the library's timers and hand-overs.
//
//   qt_host URL
//
// Prints as c_host does. Exit status: 0 when the task ended, 1 when it did not within two minutes.

#include <QCoreApplication>
#include <QTimer>
#include <cstdio>
#include <string>

#include "httpPool/ZEP_HttpPool.h"

namespace {

constexpr const char* kPool = "pool";
constexpr const char* kTask = "task";

void notified(ZEP_HTTP_POOL_TASK_NOTIFY /*code*/, const char* pool, const char* task, const char* /*data*/) {
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_UNINITIALIZED;
  ZEP_HttpPool_GetTaskStatus(pool, task, &status);
  if (status != ZEP_HTTP_TASK_DONE && status != ZEP_HTTP_TASK_FAILED) {
    return;
  }
  long size = ZEP_HttpPool_GetTaskProperty(pool, task, ZEP_HTTP_TASK_PROP_RESULT, nullptr, nullptr);
  std::string result(static_cast<std::size_t>(size), '\0');
  ZEP_HttpPool_GetTaskProperty(pool, task, ZEP_HTTP_TASK_PROP_RESULT, result.data(), &size);
  std::printf("status %d\n%s", static_cast<int>(status), result.c_str());
  ZEP_HttpPool_Destroy(pool);
  QCoreApplication::exit(0);
}

}  // namespace

int main(int argc, char** argv) {
  const QCoreApplication application(argc, argv);
  ZEP_HttpPool_Create(kPool);
  ZEP_HttpPool_SetPoolProc(kPool, &notified);
  ZEP_HttpPool_AddTask(kPool, kTask);
  ZEP_HttpPool_SetTaskProperty(kPool, kTask, ZEP_HTTP_TASK_PROP_URL, argv[1]);
  ZEP_HttpPool_TaskRun(kPool, kTask, nullptr);
  QTimer::singleShot(120'000, [] { QCoreApplication::exit(1); });
  return QCoreApplication::exec();
}
