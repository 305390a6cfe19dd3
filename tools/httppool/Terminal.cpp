#include "Terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <utility>

#include "Interrupt.h"

namespace httppool {
namespace {

constexpr std::size_t kLongestLine = 4096;

std::function<void()>& givingWay() {
  static auto& only = *new std::function<void()>([] {});  // as the turn: never destroyed
  return only;
}

}  // namespace

// The terminal without its echo, for as long as this lives.
class Terminal::Silence {
 public:
  explicit Silence(int terminal) : terminal_(terminal), isSilent_(tcgetattr(terminal, &before_) == 0) {
    if (!isSilent_) {
      return;
    }
    termios silent = before_;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHOE | ECHOK | ECHONL);
    // These would end or stop the program at once, and leave the terminal to the shell without its echo.
    silent.c_cc[VQUIT] = _POSIX_VDISABLE;
    silent.c_cc[VSUSP] = _POSIX_VDISABLE;
    restoreWhenInterrupted(terminal_, before_);
    // TCSANOW: the others wait for the output to drain, which a person may have halted.
    isSilent_ = tcsetattr(terminal_, TCSANOW, &silent) == 0;
    tcflush(terminal_, TCIFLUSH);  // typed ahead, and shown
  }
  ~Silence() {
    if (isSilent_) {
      tcsetattr(terminal_, TCSANOW, &before_);
    }
    restoreNothingWhenInterrupted();
  }
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;

  bool isSilent() const { return isSilent_; }

 private:
  int terminal_;
  termios before_ = {};
  bool isSilent_;
};

std::mutex& Terminal::turn() {
  static std::mutex& only = *new std::mutex;  // a thread may be asking while the process exits
  return only;
}

void Terminal::setGivingWay(std::function<void()> giveWay) {
  givingWay() = std::move(giveWay);
}

// Not blocking: neither a terminal whose output is halted nor one that nobody types at may hold up the end of the
// program. The descriptor is of an opening of its own, so that no other program's is changed.
Terminal::Terminal(int stop)
    : terminal_(open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK)), stop_(stop) {
}

Terminal::~Terminal() {
  if (terminal_ >= 0) {
    close(terminal_);
  }
}

bool Terminal::isUsable() const {
  return terminal_ >= 0 && tcgetpgrp(terminal_) == getpgrp();
}

// False when the program is interrupted or the question is stopped.
bool Terminal::waitFor(short event) const {
  pollfd descriptors[] = {{stop_, POLLIN, 0}, {interruptDescriptor(), POLLIN, 0}, {terminal_, event, 0}};
  while (poll(descriptors, std::size(descriptors), -1) < 0) {
    if (errno != EINTR) {
      return false;
    }
  }
  return descriptors[0].revents == 0 && descriptors[1].revents == 0;
}

bool Terminal::show(std::string_view text) {
  if (!hasShown_) {
    hasShown_ = true;
    givingWay()();
  }
  while (!text.empty()) {
    if (!waitFor(POLLOUT)) {
      return false;
    }
    const ssize_t count = write(terminal_, text.data(), text.size());
    if (count < 0 && errno != EAGAIN && errno != EINTR) {
      return false;
    }
    text.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : 0);
  }
  return true;
}

std::optional<Secret> Terminal::ask(std::string_view question, Echo echo) {
  std::optional<Secret> line;
  {
    std::optional<Silence> silence;
    if (echo == Echo::Off) {
      silence.emplace(terminal_);
    }
    if (!silence || silence->isSilent()) {
      line = show(question) ? readLine() : std::nullopt;
    }
  }
  if (!line || echo == Echo::Off) {
    // The cursor still stands behind the question. Whether it moves does not matter any more.
    [[maybe_unused]] const ssize_t count = write(terminal_, "\n", 1);
  }
  return line;
}

std::optional<bool> Terminal::askYesOrNo(std::string_view question) {
  const auto answer = ask(question, Echo::On);
  if (!answer) {
    return std::nullopt;
  }
  const std::string_view text = answer->text();
  return text == "y" || text == "Y" || text == "yes" || text == "Yes";
}

std::optional<Secret> Terminal::readLine() {
  Secret line;
  while (line.text().size() <= kLongestLine) {
    if (!waitFor(POLLIN)) {
      return std::nullopt;
    }
    char part[kLongestLine];
    const ssize_t count = read(terminal_, part, sizeof(part));
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
      continue;
    }
    if (count <= 0) {
      return std::nullopt;  // the end of the input, or the terminal is gone
    }
    line.append({part, static_cast<std::size_t>(count)});
    explicit_bzero(part, static_cast<std::size_t>(count));
    if (line.text().ends_with('\n')) {
      line.removeLast();
      return line;
    }
  }
  return std::nullopt;
}

}  // namespace httppool
