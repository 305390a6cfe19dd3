#include "fuzz/operations/DownloadFolder.h"

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "fuzz/Require.h"

namespace operations {

DownloadFolder::DownloadFolder() {
  std::array<char, 32> name{"/tmp/fuzz-operations-XXXXXX"};
  require(mkdtemp(name.data()) != nullptr);
  name_ = name.data();
  std::ofstream(file("read")) << "from a file";
}

DownloadFolder::~DownloadFolder() {
  std::error_code error;
  std::filesystem::remove_all(name_, error);
}

}  // namespace operations
