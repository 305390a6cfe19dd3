// A program run as a process of its own, in a session of its own without a terminal: what the test's terminal is
// never matters. Its output goes to files, so that no amount of it can block. One thread. The destructor kills a
// process that is still running.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace tooltest {

struct Finished {
  int status = -1;  // the exit status, or 128 and the signal that ended it; -1: not ended within a minute
  std::string out;
  std::string err;
};

class Program {
 public:
  // `input` is its stdin; a terminal becomes that of its session, with the program in the foreground.
  Program(const std::string& path, const std::vector<std::string>& arguments,
          const std::vector<std::string>& environment = {}, const std::string& input = "/dev/null");
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  void signal(int number);
  // To every process of its group.
  void signalGroup(int number);
  // What it has written so far.
  std::string out() const;
  std::string err() const;
  Finished wait();

 private:
  pid_t process_ = -1;
  int out_;
  int err_;
};

// httppool with these arguments, run to its end. `environment` adds NAME=VALUE settings.
Finished httppool(const std::vector<std::string>& arguments,
                  const std::vector<std::string>& environment = {});

// The same with a terminal as its stdout, whose text is in `out`.
Finished httppoolOnTerminal(const std::vector<std::string>& arguments);

}  // namespace tooltest
