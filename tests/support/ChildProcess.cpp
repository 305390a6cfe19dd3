#include "tests/support/ChildProcess.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>

namespace test {
namespace {

std::vector<std::string> changedEnvironment(
    const std::map<std::string, std::optional<std::string>>& changes) {
  std::vector<std::string> result;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    if (!changes.contains(text.substr(0, text.find('=')))) {
      result.push_back(text);
    }
  }
  for (const auto& [name, value] : changes) {
    if (value) {
      result.push_back(name + "=" + *value);
    }
  }
  return result;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  for (std::string& text : texts) {
    result.push_back(text.data());
  }
  result.push_back(nullptr);
  return result;
}

void raiseDescriptorLimitHere() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
  }
}

/// Between fork and exec: calls that are safe there, nothing else.
[[noreturn]] void becomeProgram(const ChildProcess::Options& options, pid_t parent, char** arguments,
                                char** environment) {
  constexpr int kCannotStart = 127;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) {
    _exit(kCannotStart);
  }
  const char* output = options.outputFile.empty() ? "/dev/null" : options.outputFile.c_str();
  const int in = open("/dev/null", O_RDONLY);
  const int out = open(output, O_WRONLY | O_CREAT | O_APPEND, 0644);
  if (in < 0 || out < 0 || dup2(in, 0) < 0 || dup2(out, 1) < 0 || dup2(out, 2) < 0) {
    _exit(kCannotStart);
  }
  close_range(3, ~0U, 0);
  if (options.raiseDescriptorLimit) {
    raiseDescriptorLimitHere();
  }
  if (!options.workingFolder.empty() && chdir(options.workingFolder.c_str()) != 0) {
    _exit(kCannotStart);
  }
  execve(arguments[0], arguments, environment);
  _exit(kCannotStart);
}

}  // namespace

ChildProcess::ChildProcess(const Options& options) {
  std::vector<std::string> arguments = options.arguments;
  std::vector<std::string> environment = changedEnvironment(options.environment);
  const std::vector<char*> argumentPointers = pointers(arguments);
  const std::vector<char*> environmentPointers = pointers(environment);
  const pid_t parent = getpid();
  id_ = fork();
  if (id_ == 0) {
    becomeProgram(options, parent, const_cast<char**>(argumentPointers.data()),
                  const_cast<char**>(environmentPointers.data()));
  }
  if (id_ < 0) {
    throw std::runtime_error("cannot start " + arguments.at(0) + ": " + std::strerror(errno));
  }
}

ChildProcess::~ChildProcess() {
  stop();
}

std::optional<ChildProcess::End> ChildProcess::ended() {
  int status = 0;
  if (!end_ && waitpid(id_, &status, WNOHANG) == id_) {
    end_ = WIFEXITED(status) ? End{.exitStatus = WEXITSTATUS(status), .signal = 0}
                             : End{.exitStatus = -1, .signal = WTERMSIG(status)};
  }
  return end_;
}

std::optional<ChildProcess::End> ChildProcess::wait(std::chrono::milliseconds limit) {
  waitUntil([this] { return ended().has_value(); }, limit);
  return end_;
}

void ChildProcess::stop() {
  if (ended()) {
    return;
  }
  kill(id_, SIGTERM);
  if (!wait(std::chrono::seconds(5))) {
    kill(id_, SIGKILL);
    wait();
  }
}

}  // namespace test
