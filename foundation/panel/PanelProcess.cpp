#include "foundation/panel/PanelProcess.h"

#include <fcntl.h>
#include <glib-unix.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

namespace foundation {
namespace {

constexpr std::string_view kConfirmation = "confirmed\n";
constexpr int kExitedConfirmed = 0;
constexpr int kExitedDeclined = 1;

/// What the child is started with: the socket as its input and output, no other descriptor but the error
/// output, and the signals as they are by default, whatever the host has made of them.
class SpawnSettings {
 public:
  explicit SpawnSettings(int socket) {
    posix_spawn_file_actions_init(&files_);
    posix_spawn_file_actions_adddup2(&files_, socket, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&files_, socket, STDOUT_FILENO);
    if (fcntl(STDERR_FILENO, F_GETFD) < 0) {
      posix_spawn_file_actions_addopen(&files_, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    }
    posix_spawn_file_actions_addclosefrom_np(&files_, STDERR_FILENO + 1);
    posix_spawnattr_init(&attributes_);
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes_, &signals);
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&attributes_, &signals);
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }
  ~SpawnSettings() {
    posix_spawn_file_actions_destroy(&files_);
    posix_spawnattr_destroy(&attributes_);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;

  const posix_spawn_file_actions_t* files() const { return &files_; }
  const posix_spawnattr_t* attributes() const { return &attributes_; }

 private:
  posix_spawn_file_actions_t files_;
  posix_spawnattr_t attributes_;
};

/// In a host without standard descriptors theirs are the next to be handed out; what the host then prints would
/// go into the socket.
Descriptor aboveTheStandardOnes(int number) {
  const Descriptor original(number);
  return Descriptor(fcntl(number, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

}  // namespace

PanelProcess::PanelProcess(const std::string& program, const std::string& request) : unsent_(request + "\n") {
  if (start(program) && watch()) {
    sending_ = sourceFor<&PanelProcess::send>(socket_.number(), G_IO_OUT);
    receiving_ = sourceFor<&PanelProcess::receive>(socket_.number(), G_IO_IN);
    ending_ = sourceFor<&PanelProcess::childEnded>(childDescriptor_.number(), G_IO_IN);
  }
}

PanelProcess::~PanelProcess() {
  if (!hasEnded_) {
    endChild();
  }
}

void PanelProcess::endChild() {
  kill(child_, SIGKILL);
  waitpid(child_, nullptr, 0);
}

void PanelProcess::fail(const std::string& what, int error) {
  failure_ = what + ": " + std::strerror(error);
  hasEnded_ = true;
}

bool PanelProcess::start(const std::string& program) {
  // A socket, because a write to a pipe whose reader is gone would raise a signal in the host.
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
    fail("no socket for " + program, errno);
    return false;
  }
  socket_ = aboveTheStandardOnes(ends[0]);
  const Descriptor theirs = aboveTheStandardOnes(ends[1]);
  if (!socket_.isOpen() || !theirs.isOpen()) {
    fail("no socket for " + program, errno);
    return false;
  }
  const SpawnSettings settings(theirs.number());
  std::string name = program;
  char* const arguments[] = {name.data(), nullptr};
  if (const int error = posix_spawn(&child_, program.c_str(), settings.files(), settings.attributes(),
                                    arguments, environ)) {
    child_ = -1;
    fail("cannot start " + program, error);
    return false;
  }
  return true;
}

bool PanelProcess::watch() {
  const int number = static_cast<int>(syscall(SYS_pidfd_open, child_, 0));
  const int error = errno;
  if (number >= 0) {
    childDescriptor_ = aboveTheStandardOnes(number);
  }
  if (childDescriptor_.isOpen()) {
    return true;
  }
  if (number < 0 && error == ESRCH) {
    loseTrack();
    return false;
  }
  endChild();
  fail("cannot watch its program", number < 0 ? error : errno);
  return false;
}

template <PanelProcess::Step step>
PanelProcess::Source PanelProcess::sourceFor(int descriptor, GIOCondition condition) {
  const GUnixFDSourceFunc ready = [](gint, GIOCondition, gpointer self) -> gboolean {
    (static_cast<PanelProcess*>(self)->*step)();
    return G_SOURCE_CONTINUE;
  };
  Source source(g_unix_fd_source_new(descriptor, condition));
  g_source_set_callback(source.get(), G_SOURCE_FUNC(ready), this, nullptr);
  g_source_set_name(source.get(), "zep.panel");
  g_source_attach(source.get(), nullptr);
  return source;
}

void PanelProcess::send() {
  const ssize_t sent = ::send(socket_.number(), unsent_.data(), unsent_.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  if (sent < 0 && (errno == EAGAIN || errno == EINTR)) {
    return;
  }
  // A child that reads no more is about to end.
  unsent_.erase(0, sent < 0 ? unsent_.size() : static_cast<std::size_t>(sent));
  if (unsent_.empty()) {
    sending_.reset();
  }
}

void PanelProcess::receive() {
  receiveSome();
}

bool PanelProcess::receiveSome() {
  std::array<char, 256> bytes;
  const ssize_t received = recv(socket_.number(), bytes.data(), bytes.size(), MSG_DONTWAIT);
  if (received > 0) {
    // One byte too many is enough to know.
    const std::size_t room = kConfirmation.size() + 1 - answer_.size();
    answer_.append(bytes.data(), std::min(static_cast<std::size_t>(received), room));
    return true;
  }
  if (received == 0 || (errno != EAGAIN && errno != EINTR)) {
    receiving_.reset();
  }
  return false;
}

void PanelProcess::childEnded() {
  siginfo_t end{};
  const int result =
      waitid(static_cast<idtype_t>(P_PIDFD), static_cast<id_t>(childDescriptor_.number()), &end, WEXITED);
  if (result != 0 && errno == EINTR) {
    return;
  }
  while (answer_.size() <= kConfirmation.size() && receiveSome()) {
  }
  ending_.reset();
  sending_.reset();
  receiving_.reset();
  if (result == 0) {
    hasEnded_ = true;
    judge(end.si_code, end.si_status);
  } else {
    loseTrack();
  }
}

void PanelProcess::loseTrack() {
  failure_ = "the host does not keep how its children end";
  hasEnded_ = true;
}

void PanelProcess::judge(int code, int status) {
  isConfirmed_ = code == CLD_EXITED && status == kExitedConfirmed && answer_ == kConfirmation;
  if (code != CLD_EXITED) {
    failure_ = "its program was ended by signal " + std::to_string(status);
  } else if (!isConfirmed_ && status != kExitedDeclined) {
    failure_ = "its program ended with status " + std::to_string(status);
  }
}

}  // namespace foundation
