// A terminal with somebody in front of it who types what the test says. What is shown is read all the time, so that
// nothing that writes to it waits. Its methods belong to the test's thread.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace tooltest {

class Pty {
 public:
  struct Size {
    int rows = 0;
    int columns = 0;
  };

  // A size of 0 is one that programs are not told.
  explicit Pty(Size size = {0, 0});
  ~Pty();
  Pty(const Pty&) = delete;
  Pty& operator=(const Pty&) = delete;

  // The file to open as a terminal.
  const std::string& path() const { return path_; }

  // Tells the programs on it, as a window does whose size is changed.
  void setSize(int rows, int columns);

  void type(const std::string& text);
  // Waits until `text` has been shown so many times; false at the limit.
  bool waitFor(const std::string& text, int times = 1);
  // What has been shown so far.
  std::string shown();
  // Whether the terminal shows what is typed.
  bool isEchoing() const;
  // Everything that was shown, when all programs have left the terminal; a line ends with "\r\n".
  std::string finish();

  static constexpr const char* kControlC = "\x03";
  static constexpr const char* kControlD = "\x04";
  static constexpr const char* kControlS = "\x13";
  static constexpr const char* kControlZ = "\x1a";
  static constexpr const char* kControlBackslash = "\x1c";

 private:
  void readAll();

  int person_;
  int inside_;  // keeps the terminal open while no program has it
  std::string path_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::string shown_;  // under mutex_
  std::thread reader_;
};

}  // namespace tooltest
