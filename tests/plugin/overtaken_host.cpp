// A host whose thread is overtaken in the middle of a rotation: in the call of the C library that the first argument
// names something else comes in between, which the second one names.
//
//   overtaken_host open|flock trace         another line is traced, which does the whole rotation
//   overtaken_host flock fill               two other lines, which also fill the new file
//   overtaken_host dup3 move FILE           FILE is renamed to FILE.moved, and another line traced
//   overtaken_host dup3 fork FILE           the same in the child of a fork

#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <string>

#include "support/QlxTrace.h"

namespace {

std::string overtakenCall;
std::string what;
std::string file;

void trace(const std::string& text) {
  QLXTRACERAWA(QLX_LEVEL_INFO, nullptr, nullptr, (text + std::string(100, '.')).c_str());
}

void moveAndTrace() {
  std::rename(file.c_str(), (file + ".moved").c_str());
  trace("overtaking");
}

void overtake(const char* call) {
  if (overtakenCall != call) {
    return;
  }
  overtakenCall.clear();
  if (what == "trace") {
    trace("overtaking");
  } else if (what == "fill") {
    trace("overtaking");
    trace("overtaking");
  } else if (what == "move") {
    moveAndTrace();
  } else if (const pid_t child = fork(); child == 0) {
    moveAndTrace();
    _exit(0);
  } else {
    waitpid(child, nullptr, 0);
  }
}

}  // namespace

// The plug-in calls these in place of the C library's.

extern "C" __attribute__((visibility("default"))) int flock(int descriptor, int operation) noexcept {
  overtake("flock");
  return static_cast<int>(syscall(SYS_flock, descriptor, operation));
}

extern "C" __attribute__((visibility("default"))) int open(const char* path, int flags, ...) {
  overtake("open");
  std::va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (static_cast<unsigned>(flags) & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

extern "C" __attribute__((visibility("default"))) int dup3(int from, int to, int flags) noexcept {
  const int result = static_cast<int>(syscall(SYS_dup3, from, to, flags));
  overtake("dup3");
  return result;
}

int main(int argc, char** argv) {
  trace("one");
  trace("two");
  if (argc > 2) {
    what = argv[2];
    file = argc > 3 ? argv[3] : "";
    overtakenCall = argv[1];
  }
  trace("three");
  return overtakenCall.empty() ? 0 : 1;
}
