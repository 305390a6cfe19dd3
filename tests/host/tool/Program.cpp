#include "Program.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <stdexcept>

namespace tooltest {
namespace {

constexpr int kPatienceMilliseconds = 60'000;

int require(int result, const char* what) {
  if (result < 0) {
    throw std::runtime_error(what);
  }
  return result;
}

// A proxy of the machine's has no business with an origin on loopback.
bool isProxySetting(const std::string& setting) {
  std::string name = setting.substr(0, setting.find('='));
  std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
  return name.ends_with("_proxy");
}

std::vector<std::string> environmentWith(const std::vector<std::string>& added) {
  std::vector<std::string> settings = added;
  for (char** setting = environ; *setting != nullptr; ++setting) {
    const std::string text(*setting);
    const std::string name = text.substr(0, text.find('=') + 1);
    const bool isReplaced =
        std::any_of(added.begin(), added.end(), [&](const auto& a) { return a.starts_with(name); });
    if (!isReplaced && !isProxySetting(text)) {
      settings.push_back(text);
    }
  }
  return settings;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  for (std::string& text : texts) {
    result.push_back(text.data());
  }
  result.push_back(nullptr);
  return result;
}

pid_t spawn(const std::string& path, const std::vector<std::string>& arguments,
            const std::vector<std::string>& environment, const std::string& input, int out, int err) {
  std::vector<std::string> words{path};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<std::string> settings = environmentWith(environment);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, input.c_str(), O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err, STDERR_FILENO);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
  pid_t process = -1;
  const int failed = posix_spawn(&process, path.c_str(), &actions, &attributes, pointers(words).data(),
                                 pointers(settings).data());
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  require(-failed, "the program cannot be started");
  return process;
}

int outputFile(const char* name) {
  return require(memfd_create(name, MFD_CLOEXEC), "no file for the output");
}

std::string content(int file) {
  std::string text;
  char part[65536];
  for (ssize_t count = 0; (count = pread(file, part, sizeof(part), static_cast<off_t>(text.size()))) > 0;) {
    text.append(part, static_cast<std::size_t>(count));
  }
  return text;
}

// Waits for an event of the process, and reaps it when it has ended.
bool reap(pid_t process, int& status) {
  const int handle =
      require(static_cast<int>(syscall(SYS_pidfd_open, process, 0)), "no handle of the process");
  pollfd ended{handle, POLLIN, 0};
  const bool hasEnded = poll(&ended, 1, kPatienceMilliseconds) == 1;
  close(handle);
  int raw = 0;
  if (!hasEnded || waitpid(process, &raw, 0) != process) {
    return false;
  }
  status = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
  return true;
}

// Everything that arrives at the terminal's other side until the last program has left it.
std::string readTerminal(int terminal) {
  std::string text;
  char part[4096];
  pollfd readable{terminal, POLLIN, 0};
  while (poll(&readable, 1, kPatienceMilliseconds) == 1) {
    const ssize_t count = read(terminal, part, sizeof(part));
    if (count <= 0) {
      break;
    }
    text.append(part, static_cast<std::size_t>(count));
  }
  return text;
}

}  // namespace

Program::Program(const std::string& path, const std::vector<std::string>& arguments,
                 const std::vector<std::string>& environment, const std::string& input)
    : out_(outputFile("out")), err_(outputFile("err")) {
  process_ = spawn(path, arguments, environment, input, out_, err_);
}

Program::~Program() {
  if (process_ > 0) {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  close(out_);
  close(err_);
}

void Program::signal(int number) {
  kill(process_, number);
}

void Program::signalGroup(int number) {
  kill(-process_, number);
}

std::string Program::out() const {
  return content(out_);
}

std::string Program::err() const {
  return content(err_);
}

Finished Program::wait() {
  Finished finished;
  if (reap(process_, finished.status)) {
    process_ = -1;
  }
  finished.out = content(out_);
  finished.err = content(err_);
  return finished;
}

Finished httppool(const std::vector<std::string>& arguments, const std::vector<std::string>& environment) {
  return Program(HTTPPOOL_PROGRAM, arguments, environment).wait();
}

Finished httppoolOnTerminal(const std::vector<std::string>& arguments) {
  const int terminal = require(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC), "no terminal");
  require(grantpt(terminal), "no terminal");
  require(unlockpt(terminal), "no terminal");
  const int inside = require(open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC), "no terminal");
  const int err = outputFile("err");
  const pid_t process = spawn(HTTPPOOL_PROGRAM, arguments, {}, "/dev/null", inside, err);
  close(inside);
  Finished finished;
  finished.out = readTerminal(terminal);
  if (!reap(process, finished.status)) {
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
  }
  finished.err = content(err);
  close(err);
  close(terminal);
  return finished;
}

}  // namespace tooltest
