// A host that ends while requests run.
//
//   exit_host WAY URL...
//
// Runs each URL twenty times, turns the run loop until "go" appears as a file in the working folder, and
// ends: WAY is "return" (from main), "exit" (in main), "notify" (exit inside the notify function) or "thread"
// (exit on another thread).

#include <unistd.h>

#include <cstdlib>
#include <string>
#include <thread>

#include "foundation/ZEP_Foundation.h"
#include "httpPool/ZEP_HttpPool.h"

namespace {

std::string way;

bool mayGo() {
  return access("go", F_OK) == 0;
}

void notified(ZEP_HTTP_POOL_TASK_NOTIFY /*code*/, const char* /*pool*/, const char* /*task*/,
              const char* /*data*/) {
  if (way == "notify" && mayGo()) {
    std::exit(0);
  }
}

}  // namespace

int main(int argc, char** argv) {
  way = argc > 1 ? argv[1] : "";
  ZEP_HttpPool_Create("pool");
  ZEP_HttpPool_SetPoolProc("pool", &notified);
  for (int argument = 2; argument < argc; ++argument) {
    for (int copy = 0; copy < 20; ++copy) {
      const std::string task = std::to_string(argument) + "/" + std::to_string(copy);
      ZEP_HttpPool_AddTask("pool", task.c_str());
      ZEP_HttpPool_SetTaskProperty("pool", task.c_str(), ZEP_HTTP_TASK_PROP_URL, argv[argument]);
      ZEP_HttpPool_TaskRun("pool", task.c_str(), nullptr);
    }
  }
  while (way == "notify" || !mayGo()) {
    ZEP_RunLoop_Run(20);
  }
  if (way == "thread") {
    std::thread([] { std::exit(0); }).join();
  }
  if (way == "exit") {
    std::exit(0);
  }
  return 0;
}
