// A host whose files must not grow beyond a limit, which is lifted later. It is traced, its report is switched on, and
// its monitor by the settings that it finds.
//
//   limited_host URL BYTES FOLDER
//
// Under the limit, and again without it: runs a task for the URL and a download of it into the folder ("limited",
// "after"), and asks for the status of two tasks that are too old, of a short and of a long name. Prints at the end how
// each task ended, and whether the signal of the limit is waiting. Exit status: 0, or 2 when it is used wrongly.

#include <sys/resource.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "foundation/ZEP_Foundation.h"
#include "httpPool/ZEP_HttpPool.h"
#include "tests/support/MonotonicClock.h"

namespace {

constexpr const char* kPool = "p";
constexpr long kOld = 301;

std::string printed;

void limitFiles(rlim_t bytes) {
  rlimit limit{};
  getrlimit(RLIMIT_FSIZE, &limit);
  limit.rlim_cur = bytes;
  if (setrlimit(RLIMIT_FSIZE, &limit) != 0) {
    std::exit(2);
  }
}

/// A long one does not fit into the record beside others.
std::string oldTask(const std::string& phase, bool isLong) {
  return phase + (isLong ? " " + std::string(1000, 'l') : " short");
}

/// While no request is running: nothing else sees the clock.
void askForOldTask(const std::string& task) {
  test::setClockAhead(kOld);
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_UNINITIALIZED;
  ZEP_HttpPool_GetTaskStatus(kPool, task.c_str(), &status);
  test::setClockAhead(0);
}

void run(const std::string& task, const char* url, const std::string& file) {
  ZEP_HttpPool_AddTask(kPool, task.c_str());
  ZEP_HttpPool_SetTaskProperty(kPool, task.c_str(), ZEP_HTTP_TASK_PROP_URL, url);
  if (!file.empty()) {
    ZEP_HttpPool_SetTaskProperty(kPool, task.c_str(), ZEP_HTTP_TASK_PROP_DOWNLOAD_FILE, file.c_str());
  }
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_UNINITIALIZED;
  ZEP_HttpPool_TaskRun(kPool, task.c_str(), &status);
  while (status == ZEP_HTTP_TASK_REQUESTING) {
    ZEP_RunLoop_Run(10);
    ZEP_HttpPool_GetTaskStatus(kPool, task.c_str(), &status);
  }
  char result[4096];
  long size = sizeof(result);
  const long length =
      ZEP_HttpPool_GetTaskProperty(kPool, task.c_str(), ZEP_HTTP_TASK_PROP_RESULT, result, &size);
  printed += task + ": " + std::to_string(status) + " " +
             std::string(result, static_cast<std::size_t>(length)) + "\n";
}

void runPhase(const std::string& phase, const char* url, const std::string& folder) {
  askForOldTask(oldTask(phase, false));
  askForOldTask(oldTask(phase, true));
  run(phase + " text", url, "");
  run(phase + " file", url, folder + "/" + phase);
}

bool isWaiting(int signal) {
  sigset_t signals;
  sigpending(&signals);
  return sigismember(&signals, signal) == 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4 || std::signal(SIGXFSZ, SIG_DFL) == SIG_ERR) {
    return 2;
  }
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  limitFiles(std::strtoul(argv[2], nullptr, 10));
  ZEP_HttpPool_Create(kPool);
  for (const char* phase : {"limited", "after"}) {
    ZEP_HttpPool_AddTask(kPool, oldTask(phase, false).c_str());
    ZEP_HttpPool_AddTask(kPool, oldTask(phase, true).c_str());
  }
  runPhase("limited", argv[1], argv[3]);
  limitFiles(before.rlim_cur);
  runPhase("after", argv[1], argv[3]);
  std::printf("%ssignal: %s\n", printed.c_str(), isWaiting(SIGXFSZ) ? "waiting" : "none");
  return 0;
}
