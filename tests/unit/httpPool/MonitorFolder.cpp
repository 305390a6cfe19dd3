#include "MonitorFolder.h"

#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "tests/support/Files.h"

MonitorFolder::MonitorFolder() {
  std::filesystem::create_directory(path());
  setenv("ZEP_APPLICATIONS_DIR", m_folder.path().c_str(), 1);
}

MonitorFolder::~MonitorFolder() {
  unsetenv("ZEP_APPLICATIONS_DIR");
}

void MonitorFolder::writeSettings(const std::string& key, const std::string& element) const {
  test::writeFile(path() + "/pool-task-config.plist",
                  R"(<plist version="1.0"><dict><key>)" + key + "</key>" + element + "</dict></plist>");
}

std::string MonitorFolder::record() const {
  return test::fileExists(recordFile()) ? test::readFile(recordFile()) : "";
}

std::vector<std::string> MonitorFolder::recordedNames() const {
  std::vector<std::string> names;
  std::istringstream lines(record());
  for (std::string date, name; std::getline(lines, date) && std::getline(lines, name);) {
    names.push_back(name);
  }
  return names;
}
