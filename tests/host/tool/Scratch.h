// A temporary folder with files in it, removed with all it holds at the end.
#pragma once

#include <string>

namespace tooltest {

class Scratch {
 public:
  Scratch();
  ~Scratch();
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  const std::string& path() const { return path_; }
  std::string path(const std::string& name) const { return path_ + "/" + name; }
  // Writes a file and returns its path.
  std::string write(const std::string& name, const std::string& content) const;
  std::string read(const std::string& name) const;

 private:
  std::string path_;
};

}  // namespace tooltest
