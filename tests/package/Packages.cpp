#include "tests/package/Packages.h"

#include <filesystem>
#include <stdexcept>

#include "tests/package/Command.h"

namespace test {

std::string packageFile(const std::string& name) {
  std::string found;
  for (const auto& entry : std::filesystem::directory_iterator(PACKAGE_FOLDER)) {
    const std::string file = entry.path().filename().string();
    if (file.starts_with(name + "_") && file.ends_with(".deb")) {
      if (!found.empty()) {
        throw std::runtime_error("two packages " + name);
      }
      found = entry.path().string();
    }
  }
  if (found.empty()) {
    throw std::runtime_error("no package " + name);
  }
  return found;
}

std::vector<std::string> packageFiles() {
  return {packageFile("libhttppool1"), packageFile("libhttppool-dev"), packageFile("httppool-tools")};
}

void unpackInto(const std::string& folder) {
  for (const std::string& file : packageFiles()) {
    outputOf({"dpkg-deb", "--extract", file, folder});
  }
}

std::string controlFile(const std::string& package, const std::string& name) {
  return outputOf({"dpkg-deb", "--info", packageFile(package), name});
}

std::string controlField(const std::string& package, const std::string& name) {
  const std::string value = outputOf({"dpkg-deb", "--field", packageFile(package), name});
  return value.substr(0, value.find('\n'));
}

}  // namespace test
