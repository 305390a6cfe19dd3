// A temporary folder with files in it. Belongs to the test that makes it.
#pragma once

#include <string>

#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

namespace tooltest {

class Scratch {
 public:
  std::string path(const std::string& name) const { return folder_.file(name); }
  const std::string& path() const { return folder_.path(); }

  // Writes a file and returns its path.
  std::string write(const std::string& name, const std::string& content) const {
    test::writeFile(path(name), content);
    return path(name);
  }
  std::string read(const std::string& name) const { return test::readFile(path(name)); }

 private:
  test::TemporaryFolder folder_;
};

}  // namespace tooltest
