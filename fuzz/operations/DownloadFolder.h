#pragma once

// A folder for downloads, with a file "read" to load from; gone with the process.

#include <string>

namespace operations {

class DownloadFolder {
 public:
  DownloadFolder();
  ~DownloadFolder();
  DownloadFolder(const DownloadFolder&) = delete;
  DownloadFolder& operator=(const DownloadFolder&) = delete;

  std::string file(const char* name) const { return name_ + "/" + name; }

 private:
  std::string name_;
};

}  // namespace operations
