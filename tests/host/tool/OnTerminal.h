// A program on a terminal as a shell starts it: in the foreground, with the shell as the controlling process, which
// stays until the program has ended and then tells what has become of the terminal. Belongs to the test's thread.
#pragma once

#include <string>
#include <vector>

#include "Program.h"
#include "Pty.h"

namespace tooltest {

class OnTerminal {
 public:
  enum class Place {
    Foreground,
    Background,
    Whole  // in the foreground, and its output goes to the terminal, too
  };

  OnTerminal(const std::string& program, const std::vector<std::string>& arguments,
             Place place = Place::Foreground, const std::vector<std::string>& environment = {},
             Pty::Size size = {0, 0});

  Pty& terminal() { return terminal_; }
  Program& process() { return process_; }

  struct Result {
    int status = -1;
    std::string out;          // of the program
    std::string err;          // of the program
    std::string shown;        // on the terminal
    bool isRestored = false;  // all settings of the terminal are as they were before
  };
  Result wait();
  // The program's, with Place::Whole; waits until it is there.
  pid_t pid();

 private:
  Pty terminal_;
  Program process_;
};

}  // namespace tooltest
