#include "TemporaryFolder.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace httppool {

TemporaryFolder::TemporaryFolder() {
  std::error_code error;
  std::string path = (std::filesystem::temp_directory_path(error) / "httppool-XXXXXX").string();
  if (!error && mkdtemp(path.data()) != nullptr) {
    path_ = path;
  }
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code error;
  if (!path_.empty()) {
    std::filesystem::remove_all(path_, error);
  }
}

}  // namespace httppool
