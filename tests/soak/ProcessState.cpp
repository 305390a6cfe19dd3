#include "tests/soak/ProcessState.h"

#include <filesystem>
#include <fstream>
#include <string>

namespace test {
namespace {

std::size_t entriesOf(const char* folder) {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder)) {
    ++count;
  }
  return count;
}

}  // namespace

ProcessState ProcessState::now() {
  ProcessState state;
  // The folder's own descriptor is in it.
  state.descriptors = entriesOf("/proc/self/fd") - 1;
  state.threads = entriesOf("/proc/self/task");
  state.allocated = allocatedBytes();
  return state;
}

std::size_t requestThreads() {
  std::size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
    // A thread may be gone meanwhile; then there is no name.
    std::ifstream file(entry.path() / "comm");
    std::string name;
    std::getline(file, name);
    count += name.starts_with("zep.") && !name.starts_with("zep.urlloader") ? 1 : 0;
  }
  return count;
}

}  // namespace test
