#pragma once

// A program run as a child process, with its output in a file. The destructor ends it: it never outlives the
// object, nor the thread that made it (the kernel kills it then, so no server survives a crashed test).
// Belongs to one thread.

#include <sys/types.h>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/WaitUntil.h"

namespace test {

class ChildProcess {
 public:
  struct Options {
    /// The first one is the program's path.
    std::vector<std::string> arguments;
    /// Changes to this process's environment; no value: the variable is taken out.
    std::map<std::string, std::optional<std::string>> environment = {};
    std::string workingFolder = {};
    /// Standard output and error are appended here; empty: they are dropped.
    std::string outputFile = {};
    /// The soft limit of open files is raised to the hard one.
    bool raiseDescriptorLimit = false;
  };

  /// How a process ended.
  struct End {
    int exitStatus = -1;  ///< -1 when a signal ended it
    int signal = 0;       ///< 0 when it exited
    bool operator==(const End&) const = default;
  };

  explicit ChildProcess(const Options& options);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  pid_t id() const { return id_; }
  /// How it ended, nothing while it runs.
  std::optional<End> ended();
  /// Waits for its end; nothing at the limit.
  std::optional<End> wait(std::chrono::milliseconds limit = kDefaultLimit);
  /// Ends it, by force when it does not end by itself, and waits for that.
  void stop();

 private:
  pid_t id_ = -1;
  std::optional<End> end_;
};

}  // namespace test
