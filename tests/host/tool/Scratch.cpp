#include "Scratch.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace tooltest {

Scratch::Scratch() : path_((std::filesystem::temp_directory_path() / "test_tool-XXXXXX").string()) {
  if (mkdtemp(path_.data()) == nullptr) {
    throw std::runtime_error("no temporary folder");
  }
}

Scratch::~Scratch() {
  std::error_code error;
  std::filesystem::remove_all(path_, error);
}

std::string Scratch::write(const std::string& name, const std::string& content) const {
  std::ofstream file(path(name), std::ios::binary);
  file << content;
  file.close();
  if (!file) {
    throw std::runtime_error("cannot write " + path(name));
  }
  return path(name);
}

std::string Scratch::read(const std::string& name) const {
  std::ifstream file(path(name), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace tooltest
