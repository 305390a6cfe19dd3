#pragma once

// A folder of its own under the system's folder for temporary files, removed with everything in it by the
// destructor. Belongs to the test that makes it. The path is resolved: it contains no symbolic links.

#include <string>

namespace test {

class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::string& path() const { return path_; }
  /// The path of a file or folder inside; nothing is made.
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

}  // namespace test
