// A new folder of its own, removed with all it holds when this object goes. Any thread.
#pragma once

#include <string>

namespace httppool {

class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::string& path() const { return path_; }  // empty: none could be made

 private:
  std::string path_;
};

}  // namespace httppool
