#pragma once

// An X server of the test's own, and what somebody in front of it can do. Ends with the object. One thread at a
// time; stop() may be called from any. What goes wrong is thrown as std::runtime_error.

#include <sys/types.h>

#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

namespace test {

class Screen {
 public:
  struct Geometry {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
  };

  explicit Screen(const std::string& size = "1280x800");

  /// For DISPLAY.
  const std::string& display() const { return display_; }

  /// Waits for a window whose title begins so, and returns its id.
  /// Titles are extended regular expressions.
  std::string window(const std::string& title);
  /// How many such windows there are now.
  std::size_t windowCount(const std::string& title);
  pid_t processOf(const std::string& window);
  Geometry geometry(const std::string& window);
  /// By X keysym names: "Return", "alt+c".
  void press(const std::string& window, const std::vector<std::string>& keys);
  /// ASCII.
  void type(const std::string& window, const std::string& text);
  void click(int x, int y);
  /// As a window manager's close button does.
  void close(const std::string& window);
  /// Makes a PNG file of the window, of few colours; how many there are in it.
  int photograph(const std::string& window, const std::string& file);

  /// The text that was copied last.
  std::string clipboard();

  /// Takes the screen away from whoever shows something on it.
  void stop();

 private:
  /// What a program on this screen writes; nothing when it fails and may.
  std::string program(const std::vector<std::string>& arguments, bool mayFail = false);
  std::string tool(const std::vector<std::string>& arguments, bool mayFail = false);

  TemporaryFolder folder_;
  ChildProcess server_;
  std::string display_;
};

}  // namespace test
