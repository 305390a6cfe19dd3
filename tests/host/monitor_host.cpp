// A host for tests of the pool monitor. Loads the library, prints whether the monitor is on, and obeys commands.
//
//   monitor_host LIBRARY [COMMAND...]
//
//   create POOL          add POOL TASK        ask POOL TASK        reset POOL TASK
//   add-many POOL COUNT  ask-many POOL COUNT  tasks of long names, POOL's own
//   ahead SECONDS        sets the monotonic clock ahead, for the whole process
//   wait FILE            until there is such a file
//   at-exit              what follows is obeyed when the process exits, behind all that the library does then
//
// Exit status: 0, or 2 when the library or a command is not there.

#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <deque>
#include <string>

#include "httpPool/ZEP_HttpPool.h"
#include "tests/support/MonotonicClock.h"

namespace {

long secondsAhead = 0;
void* library = nullptr;
// Never destroyed: read while the process exits.
std::deque<std::string>& words = *new std::deque<std::string>;

[[noreturn]] void leave(const std::string& reason) {
  std::fprintf(stderr, "%s\n", reason.c_str());
  std::_Exit(2);
}

void* symbol(const char* name) {
  void* const found = dlsym(library, name);
  return found != nullptr ? found : (leave(name), nullptr);
}

template <typename... Arguments>
void call(const char* function, Arguments... arguments) {
  reinterpret_cast<long (*)(Arguments...)>(symbol(function))(arguments...);
}

std::string next() {
  if (words.empty()) {
    leave("a word is missing");
  }
  std::string word = words.front();
  words.pop_front();
  return word;
}

void ask(const std::string& pool, const std::string& task) {
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_NOT_EXIST;
  call("ZEP_HttpPool_GetTaskStatus", pool.c_str(), task.c_str(), &status);
  if (status != ZEP_HTTP_TASK_UNINITIALIZED) {
    leave(task + " has status " + std::to_string(status));
  }
}

std::string longName(long number) {
  return std::to_string(number) + " " + std::string(900, 'x');
}

void waitFor(const std::string& file) {
  while (access(file.c_str(), F_OK) != 0) {
    usleep(1000);
  }
}

void obey(const std::string& command) {
  if (command == "ahead") {
    secondsAhead += std::stol(next());
    test::setClockAhead(secondsAhead);
    return;
  }
  if (command == "wait") {
    waitFor(next());
    return;
  }
  const std::string pool = next();
  if (command == "create") {
    call("ZEP_HttpPool_Create", pool.c_str());
    return;
  }
  const std::string task = next();
  if (command == "add") {
    call("ZEP_HttpPool_AddTask", pool.c_str(), task.c_str());
  } else if (command == "ask") {
    ask(pool, task);
  } else if (command == "reset") {
    call("ZEP_HttpPool_TaskReset", pool.c_str(), task.c_str());
  } else if (command == "add-many") {
    for (long number = 0; number < std::stol(task); ++number) {
      call("ZEP_HttpPool_AddTask", pool.c_str(), longName(number).c_str());
    }
  } else if (command == "ask-many") {
    for (long number = 0; number < std::stol(task); ++number) {
      ask(pool, longName(number));
    }
  } else {
    leave("no such command: " + command);
  }
}

void obeyTheRest() {
  while (!words.empty()) {
    const std::string command = next();
    if (command == "at-exit") {
      return;
    }
    obey(command);
  }
}

}  // namespace

int main(int argc, char** argv) {
  words.assign(argv + 1, argv + argc);
  // Registered before the library's own: what is registered last goes first.
  std::atexit(obeyTheRest);
  library = dlopen(next().c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    leave(dlerror());
  }
  std::printf("%s\n", *static_cast<bool*>(symbol("IS_MONITOR_POOL")) ? "on" : "off");
  std::fflush(stdout);
  obeyTheRest();
  return 0;
}
