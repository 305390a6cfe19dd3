#pragma once

// A folder of applications with the monitor's files, in place of the system's while it lives. On the test's thread.

#include <string>
#include <vector>

#include "tests/support/TemporaryFolder.h"

class MonitorFolder {
 public:
  /// Without any files.
  MonitorFolder();
  ~MonitorFolder();
  MonitorFolder(const MonitorFolder&) = delete;
  MonitorFolder& operator=(const MonitorFolder&) = delete;

  /// The folder in which the files are; it may be taken away.
  std::string path() const { return m_folder.file("Tilvo"); }
  std::string recordFile() const { return path() + "/pool-task-monitor.txt"; }
  /// Writes a settings file with that element under the key.
  void writeSettings(const std::string& key, const std::string& element) const;
  /// All that is recorded; the empty text without a file.
  std::string record() const;
  /// Every second line of it.
  std::vector<std::string> recordedNames() const;

 private:
  test::TemporaryFolder m_folder;
};
