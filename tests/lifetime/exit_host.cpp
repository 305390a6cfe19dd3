// A host that ends while requests stand where the tests want them.
//
//   exit_host WAY STATION COUNT UNTRUSTED FOLDER
//
// Runs COUNT requests that lead to the station of that name (see Stations.h), turns the run loop until they stand
// there, and ends with status 0: WAY is
//   return       from main
//   exit         in main             quick        by quick_exit(3) in main
//   thread       on another thread   immediately  by _exit(2) in main
//   notify       in the notify function
//   handlers     from main, with atexit(3) handlers of the host that go on using the library, the first of them
//                from before the library was used
//   locals       the same by the destructor of an object of the main thread
//   statics      the same by the destructor of a static object
//   unload       from main, with the library closed, opened again and closed
// At the station "panel" it ends inside the host's certificate panel.
//
// Built twice: linked with the library, and, with LIBRARY, loading it at run time.

#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "foundation/ZEP_Foundation.h"
#include "httpPool/ZEP_HttpPool.h"
#include "tests/lifetime/Stations.h"

#ifdef LIBRARY
namespace {
void* library = nullptr;
}
#define CALL(name) (*reinterpret_cast<decltype(&ZEP_HttpPool_##name)>(dlsym(library, "ZEP_HttpPool_" #name)))
#else
#define CALL(name) ZEP_HttpPool_##name
#endif

namespace {

enum Failure { kNotStanding = 10, kNotifiedLate = 11, kWrongStatus = 12, kNotThere = 13, kUsage = 14 };

std::string way;
std::string station;
int count = 0;
bool isStanding = false;
/// When the last of the host's own code runs.
bool isOver = false;

[[noreturn]] void fail(Failure failure) {
  std::fprintf(stderr, "%s at %s: failure %d\n", way.c_str(), station.c_str(), static_cast<int>(failure));
  _exit(failure);
}

void expectStatus(const std::string& task, ZEP_HTTP_TASK_STATUS expected) {
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_STATUS_8;
  if (CALL(GetTaskStatus)("pool", task.c_str(), &status) != 0 || status != expected) {
    fail(kWrongStatus);
  }
}

/// What a host may do at its end: everything but its first request. Tasks that wait for the host's answer are left
/// alone, because who stops them waits for it, too.
void useLibrary() {
  if (!isStanding) {
    return;
  }
  CALL(Create)("late");
  CALL(AddTask)("late", "task");
  CALL(SetTaskProperty)("late", "task", ZEP_HTTP_TASK_PROP_URL, "http://127.0.0.1:9/");
  if (count > 0) {
    CALL(TaskRun)("late", "task", nullptr);
  }
  if (count > 0 && !test::Stations::waitsForTheHost(station)) {
    CALL(TaskReset)("pool", "0");
    expectStatus("0", ZEP_HTTP_TASK_UNINITIALIZED);
    CALL(TaskRun)("pool", "0", nullptr);
    CALL(RemoveTask)("pool", "0");
    expectStatus("0", ZEP_HTTP_TASK_NOT_EXIST);
    CALL(AddTask)("pool", "0");
  }
  CALL(Destroy)("late");
  ZEP_RunLoop_Run(20);
  long size = 0;
  if (CALL(GetSnapshot)(nullptr, &size) != 0 || size < 3) {
    fail(kWrongStatus);
  }
}

struct User {
  bool isWanted = false;
  bool isLast = false;
  ~User() {
    if (isWanted) {
      useLibrary();
    }
    isOver = isLast;
  }
};

User lastUser{.isLast = true};

[[noreturn]] void leave() {
  if (way == "quick") {
    std::quick_exit(0);
  }
  if (way == "immediately") {
    _exit(0);
  }
  if (way == "thread") {
    std::thread([] { std::exit(0); }).join();
  }
  std::exit(0);
}

void notified(ZEP_HTTP_POOL_TASK_NOTIFY, const char*, const char*, const char*) {
  if (isOver) {
    fail(kNotifiedLate);
  }
  if (way == "notify" && isStanding) {
    leave();
  }
}

void openLibrary() {
#ifdef LIBRARY
  library = dlopen(LIBRARY, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    fail(kNotThere);
  }
#endif
}

void closeLibraryTwice() {
#ifdef LIBRARY
  for (int round = 0; round < 2; ++round) {
    dlclose(library);
    library = dlopen(LIBRARY, RTLD_NOW | RTLD_NOLOAD);
    if (library == nullptr) {
      fail(kNotThere);
    }
    if (count > 0 && !test::Stations::goesOn(station)) {
      expectStatus("0", ZEP_HTTP_TASK_REQUESTING);
    }
    ZEP_RunLoop_Run(20);
  }
  dlclose(library);
#endif
}

void launch(const test::Stations& stations) {
  CALL(Create)("pool");
  CALL(SetPoolProc)("pool", &notified);
  CALL(AddTask)("pool", "idle");
  for (int task = 0; task < count; ++task) {
    const std::string name = std::to_string(task);
    CALL(AddTask)("pool", name.c_str());
    CALL(SetTaskProperty)("pool", name.c_str(), ZEP_HTTP_TASK_PROP_URL, stations.url(station).c_str());
    const auto& body = test::Stations::body(station);
    CALL(SetTaskDataProperty)("pool", name.c_str(), body.data(), static_cast<int>(body.size()));
    CALL(TaskRun)("pool", name.c_str(), nullptr);
  }
}

void turnUntilStanding(const test::Stations& stations) {
  const int wanted = station == "panel" ? 1 : test::Stations::most(station, count);
  constexpr int kMostTurns = 5000;
  for (int turn = 0; station == "panel" || stations.standing(station) < wanted; ++turn) {
    if (turn == kMostTurns) {
      fail(kNotStanding);
    }
    ZEP_RunLoop_Run(20);
  }
  isStanding = true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 6) {
    return kUsage;
  }
  way = argv[1];
  station = argv[2];
  count = std::atoi(argv[3]);
  if (way == "handlers") {
    std::atexit(&useLibrary);
  }
  openLibrary();
  const test::Stations stations(argv[4], argv[5]);
  ZEP_TrustPanel_SetRunner(
      [](const char*, void*) -> int {
        isStanding = true;
        leave();
      },
      nullptr);
  thread_local User local;
  local.isWanted = way == "locals";
  lastUser.isWanted = way == "statics";
  launch(stations);
  turnUntilStanding(stations);
  if (way == "handlers") {
    std::atexit(&useLibrary);
  }
  if (way == "unload") {
    closeLibraryTwice();
  }
  while (way == "notify") {
    ZEP_RunLoop_Run(20);
  }
  if (way == "exit" || way == "quick" || way == "immediately" || way == "thread") {
    leave();
  }
  return 0;
}
