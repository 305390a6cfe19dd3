#include "OnTerminal.h"

#include <cstdlib>

#include "tests/support/WaitUntil.h"

namespace tooltest {
namespace {

// The shell outlives the signals that it gets along with the program.
constexpr const char* kForeground = R"sh(trap : INT TERM
before=$(stty -g)
"$@"
status=$?
if [ "$(stty -g)" = "$before" ]; then echo restored; else echo changed; fi
exit $status)sh";

// With job control a program in the background has a group of its own.
constexpr const char* kBackground = R"sh(set -m
before=$(stty -g)
"$@" &
wait $!
status=$?
if [ "$(stty -g)" = "$before" ]; then echo restored; else echo changed; fi
exit $status)sh";

// The output of the shell itself stays apart from the terminal's.
constexpr const char* kWhole = R"sh(trap : INT TERM
before=$(stty -g)
sh -c 'echo $$; exec "$@" >/dev/tty 2>&1' sh "$@"
status=$?
if [ "$(stty -g)" = "$before" ]; then echo restored; else echo changed; fi
exit $status)sh";

const char* scriptOf(OnTerminal::Place place) {
  switch (place) {
    case OnTerminal::Place::Background:
      return kBackground;
    case OnTerminal::Place::Whole:
      return kWhole;
    case OnTerminal::Place::Foreground:
      break;
  }
  return kForeground;
}

std::vector<std::string> shellArguments(const std::string& program, const std::vector<std::string>& arguments,
                                        OnTerminal::Place place) {
  std::vector<std::string> words{"-c", scriptOf(place), "sh", program};
  words.insert(words.end(), arguments.begin(), arguments.end());
  return words;
}

bool takeLastLine(std::string& text, const std::string& line) {
  const bool isThere = text.ends_with(line);
  text.resize(text.size() - (isThere ? line.size() : 0));
  return isThere;
}

}  // namespace

OnTerminal::OnTerminal(const std::string& program, const std::vector<std::string>& arguments, Place place,
                       const std::vector<std::string>& environment, Pty::Size size)
    : terminal_(size),
      process_("/bin/sh", shellArguments(program, arguments, place), environment, terminal_.path()) {
}

pid_t OnTerminal::pid() {
  test::waitUntil([&] { return process_.out().ends_with("\n"); });
  return static_cast<pid_t>(std::atoi(process_.out().c_str()));
}

OnTerminal::Result OnTerminal::wait() {
  const Finished finished = process_.wait();
  Result result{finished.status, finished.out, finished.err, terminal_.finish(), false};
  result.isRestored = takeLastLine(result.out, "restored\n");
  return result;
}

}  // namespace tooltest
