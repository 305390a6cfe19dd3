#include "tests/soak/ProcessState.h"

#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

#include "tests/support/Files.h"

namespace test {
namespace {

std::size_t entriesOf(const char* folder) {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder)) {
    ++count;
  }
  return count;
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
/// The figure of the last line of malloc_info(3) that begins like that; those lines are of all arenas together.
std::size_t figure(const std::string& info, const std::string& line) {
  const std::size_t begin = info.rfind("<" + line);
  if (begin == std::string::npos) {
    return 0;
  }
  const std::string name = "size=\"";
  const std::size_t size = info.find(name, begin);
  return std::strtoull(info.c_str() + size + name.size(), nullptr, 10);
}

std::size_t allocatedBytes() {
  char* text = nullptr;
  std::size_t length = 0;
  std::FILE* file = open_memstream(&text, &length);
  const bool isTold = malloc_info(0, file) == 0;
  std::fclose(file);
  const std::unique_ptr<char, decltype(&std::free)> owner(text, std::free);
  const std::string info(text, isTold ? length : 0);
  return figure(info, "system type=\"current\"") + figure(info, "total type=\"mmap\"") -
         figure(info, "total type=\"fast\"") - figure(info, "total type=\"rest\"");
}
#endif

}  // namespace

ProcessState ProcessState::now() {
  ProcessState state;
  // The folder's own descriptor is in it.
  state.descriptors = entriesOf("/proc/self/fd") - 1;
  state.threads = entriesOf("/proc/self/task");
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  state.allocated = allocatedBytes();
#endif
  return state;
}

std::size_t requestThreads() {
  std::size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
    std::error_code gone;
    if (!std::filesystem::exists(entry.path() / "comm", gone)) {
      continue;
    }
    const std::string name = readFile((entry.path() / "comm").string());
    count += name.starts_with("zep.") && !name.starts_with("zep.urlloader") ? 1 : 0;
  }
  return count;
}

}  // namespace test
