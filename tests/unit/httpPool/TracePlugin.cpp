// A trace plug-in that keeps what it is given, for tests to read back.

#include <deque>
#include <mutex>
#include <string>

#define PLUGIN_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

struct Line {
  int level;
  std::string text;
};

/// Never destroyed: the library's threads go on tracing while the process exits.
struct Log {
  std::mutex mutex;
  std::deque<Line> lines;
};

Log& log() {
  static Log& only = *new Log;
  return only;
}

int keep(int level, const char* text) {
  const std::lock_guard lock(log().mutex);
  log().lines.push_back({level, text});
  return 0;
}

}  // namespace

PLUGIN_EXPORT unsigned long QlxGetTraceLevel() {
  return 1;
}
PLUGIN_EXPORT int QLXDEBUG(const char* format, ...) {
  return keep(1, format);
}
PLUGIN_EXPORT int QLXINFO(const char* format, ...) {
  return keep(2, format);
}
PLUGIN_EXPORT int QLXWARN(const char* format, ...) {
  return keep(4, format);
}
PLUGIN_EXPORT int QLXERROR(const char* format, ...) {
  return keep(8, format);
}

/// Hands every line to `visit`, oldest first, and forgets them.
PLUGIN_EXPORT void TestTrace_Take(void (*visit)(int level, const char* text, void* context), void* context) {
  std::deque<Line> taken;
  {
    const std::lock_guard lock(log().mutex);
    taken.swap(log().lines);
  }
  for (const Line& line : taken) {
    visit(line.level, line.text.c_str(), context);
  }
}
