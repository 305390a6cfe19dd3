#include "support/QlxTrace.h"

#include <dlfcn.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <memory>
#include <string>
#include <type_traits>

namespace {

using LevelQuery = unsigned long (*)();
using Writer = int (*)(const char* format, ...);

/// A path that does not fit into this, with its terminator, is not looked at.
constexpr std::size_t kPathBytes = 1024;

struct Free {
  void operator()(char* text) const { std::free(text); }
};

/// The folder of the host's executable; empty when it cannot be told.
std::string executableFolder() {
  const std::unique_ptr<char, Free> path(realpath("/proc/self/exe", nullptr));
  const std::string text(path ? path.get() : "");
  const std::size_t slash = text.rfind('/');
  return slash == std::string::npos || text.size() >= kPathBytes ? std::string() : text.substr(0, slash);
}

/// The plug-in beside the host's MacOS folder; empty when the host is in no such folder.
std::string pluginPath() {
  const std::string folder = executableFolder();
  const std::size_t at = folder.find("/MacOS");
  return at == std::string::npos ? std::string() : folder.substr(0, at) + "/PlugIns/qlxtracedylib.dylib";
}

struct Plugin {
  LevelQuery levelQuery = nullptr;
  Writer debug = nullptr;
  Writer info = nullptr;
  Writer warning = nullptr;
  Writer error = nullptr;

  Plugin() {
    const std::string path = pluginPath();
    // Never closed: lines may be written until the process ends.
    void* module = path.empty() || path.size() >= kPathBytes ? nullptr : dlopen(path.c_str(), RTLD_NOW);
    if (module != nullptr) {
      levelQuery = reinterpret_cast<LevelQuery>(dlsym(module, "QlxGetTraceLevel"));
      debug = reinterpret_cast<Writer>(dlsym(module, "QLXDEBUG"));
      info = reinterpret_cast<Writer>(dlsym(module, "QLXINFO"));
      warning = reinterpret_cast<Writer>(dlsym(module, "QLXWARN"));
      error = reinterpret_cast<Writer>(dlsym(module, "QLXERROR"));
    }
  }

  Writer writer(unsigned long level) const {
    switch (level) {
      case QLX_LEVEL_INFO:
        return info;
      case QLX_LEVEL_WARNING:
        return warning;
      case QLX_LEVEL_ERROR:
        return error;
      default:
        return debug;
    }
  }
};

/// Looked for at the first use; threads that race wait for the one that looks. There is nothing to destroy in it, so
/// threads may trace until the process ends, and an unload leaves nothing behind.
const Plugin& plugin() {
  static_assert(std::is_trivially_destructible_v<Plugin>);
  static const Plugin loaded;
  return loaded;
}

}  // namespace

unsigned long _getTraceLevel() {  // NOLINT(bugprone-reserved-identifier)
  const LevelQuery query = plugin().levelQuery;
  return query != nullptr ? query() : QLX_LEVEL_DEBUG;
}

bool IsCanLog(const unsigned long& level) {
  return level >= _getTraceLevel();
}

bool qlxHasWriter(unsigned long level) {
  return plugin().writer(level) != nullptr;
}

int QLXTRACERAWA(unsigned long level, const char* /*module*/, const char* /*extra*/, const char* text) {
  const Writer writer = plugin().writer(level);
  if (writer == nullptr || text == nullptr) {
    return 0;
  }
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  // The text is the format, without arguments: that is the plug-in's interface.
  return writer(text);
#pragma GCC diagnostic pop
}
