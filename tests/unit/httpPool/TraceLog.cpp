#include "TraceLog.h"

#include <dlfcn.h>

#include <filesystem>
#include <ostream>
#include <stdexcept>

namespace {

using Visit = void (*)(int level, const char* text, void* context);
using Take = void (*)(Visit visit, void* context);

Take findTake() {
  const auto contents = std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path();
  void* plugin = dlopen((contents / "PlugIns/qlxtracedylib.dylib").c_str(), RTLD_NOW);
  void* take = plugin ? dlsym(plugin, "TestTrace_Take") : nullptr;
  if (!take) {
    throw std::runtime_error("the trace plug-in of the tests is not there");
  }
  return reinterpret_cast<Take>(take);
}

}  // namespace

void PrintTo(const TraceLine& line, std::ostream* out) {
  *out << line.level << ": " << line.text;
}

std::vector<TraceLine> takeTrace() {
  static const Take take = findTake();
  std::vector<TraceLine> lines;
  take(
      [](int level, const char* text, void* context) {
        static_cast<std::vector<TraceLine>*>(context)->push_back({level, text});
      },
      &lines);
  return lines;
}

std::vector<TraceLine> takeTraceWith(const std::string& part) {
  auto lines = takeTrace();
  std::erase_if(lines, [&part](const TraceLine& line) { return line.text.find(part) == std::string::npos; });
  return lines;
}
