#pragma once

// An example application on a screen, and somebody who works it by key. What the application tells of its tasks
// stands in its window's title: "httpPool: 1 done, 2 failed".

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/Screen.h"
#include "tests/support/TemporaryFolder.h"

namespace test {

struct Application {
  const char* name;
  const char* program;
};

inline void PrintTo(const Application& application, std::ostream* stream) {
  *stream << application.name;
}

extern const Application kGtk;
extern const Application kQt;

class ApplicationTest : public testing::Test {
 protected:
  using Environment = std::map<std::string, std::optional<std::string>>;

  void start(const Application& application, const std::vector<std::string>& urls = {},
             Environment environment = {});

  /// Waits until the application tells this of its tasks.
  void waitFor(const std::string& tasks) { screen->window("httpPool: " + tasks + "$"); }
  void press(const std::vector<std::string>& keys) { screen->press(window, keys); }
  void addTyped(const std::string& url);
  void runAll() { press({"alt+l"}); }
  /// What the pane says whose title has this letter.
  std::string textOf(const std::string& letter);
  void waitForText(const std::string& letter, const std::string& text);
  /// Types that into a sign-in dialog; signIn() answers it, too.
  void fillIn(const std::string& title, const std::string& userName, const std::string& password);
  void signIn(const std::string& title, const std::string& userName, const std::string& password);
  /// The dialog beneath another one takes no key until that one is gone.
  void waitUntilGone(const std::string& title);
  /// By its close button; how the application ended, with what it has written.
  void close();
  /// Leaves a picture in the build folder once it is drawn.
  void photograph(const std::string& window, const std::string& name);

  /// What the application has written, but for what the address sanitizer remarks.
  std::string output() const;

  TemporaryFolder folder;
  std::optional<Screen> screen{std::in_place};
  std::unique_ptr<ChildProcess> process;
  std::string window;
  std::string applicationName;
};

/// The same with both applications.
class BothApplicationsTest : public ApplicationTest, public testing::WithParamInterface<Application> {};

std::string applicationName(const testing::TestParamInfo<Application>& info);

}  // namespace test
