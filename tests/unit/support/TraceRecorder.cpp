// A trace plug-in that appends each call to the file that TRACE_RECORD_FILE names: the writer's name, the
// length of the text, the text as it is, a line end. The threshold is TRACE_RECORD_LEVEL, else 1. A call is
// one write to a file opened for appending, so calls of several threads do not mix.

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#define PLUGIN_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

int record(const char* writer, const char* text) {
  static const int file = [] {
    const char* path = std::getenv("TRACE_RECORD_FILE");
    return path != nullptr ? open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600) : -1;
  }();
  const std::string line = std::string(writer) + " " + std::to_string(std::strlen(text)) + " " + text + "\n";
  return static_cast<int>(write(file, line.data(), line.size()));
}

}  // namespace

PLUGIN_EXPORT int QLXERROR(const char* format, ...) {
  return record("QLXERROR", format);
}

#ifndef TRACE_RECORDER_ERROR_ONLY

PLUGIN_EXPORT unsigned long QlxGetTraceLevel() {
  const char* level = std::getenv("TRACE_RECORD_LEVEL");
  return level != nullptr ? std::strtoul(level, nullptr, 10) : 1;
}

PLUGIN_EXPORT int QLXDEBUG(const char* format, ...) {
  return record("QLXDEBUG", format);
}

PLUGIN_EXPORT int QLXINFO(const char* format, ...) {
  return record("QLXINFO", format);
}

PLUGIN_EXPORT int QLXWARN(const char* format, ...) {
  return record("QLXWARN", format);
}

#endif
