#include "OnTerminal.h"

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

std::vector<std::string> shellArguments(const std::string& program, const std::vector<std::string>& arguments,
                                        OnTerminal::Place place) {
  std::vector<std::string> words{"-c", place == OnTerminal::Place::Foreground ? kForeground : kBackground,
                                 "sh", program};
  words.insert(words.end(), arguments.begin(), arguments.end());
  return words;
}

bool takeLastLine(std::string& text, const std::string& line) {
  const bool isThere = text.ends_with(line);
  text.resize(text.size() - (isThere ? line.size() : 0));
  return isThere;
}

}  // namespace

OnTerminal::OnTerminal(const std::string& program, const std::vector<std::string>& arguments, Place place)
    : process_("/bin/sh", shellArguments(program, arguments, place), {}, terminal_.path()) {
}

OnTerminal::Result OnTerminal::wait() {
  const Finished finished = process_.wait();
  Result result{finished.status, finished.out, finished.err, terminal_.finish(), false};
  result.isRestored = takeLastLine(result.out, "restored\n");
  return result;
}

}  // namespace tooltest
