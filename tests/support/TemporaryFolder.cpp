#include "tests/support/TemporaryFolder.h"

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace test {

TemporaryFolder::TemporaryFolder() {
  std::string pattern =
      std::filesystem::canonical(std::filesystem::temp_directory_path()).string() + "/pooltest-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) {
    throw std::runtime_error("cannot make a temporary folder: " + pattern);
  }
  path_ = pattern;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace test
