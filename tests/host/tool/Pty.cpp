#include "Pty.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <stdexcept>

namespace tooltest {
namespace {

int require(int result) {
  if (result < 0) {
    throw std::runtime_error("no terminal");
  }
  return result;
}

int timesIn(const std::string& text, const std::string& part) {
  int times = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) {
    ++times;
  }
  return times;
}

}  // namespace

Pty::Pty(Size size) : person_(require(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC))) {
  require(grantpt(person_));
  require(unlockpt(person_));
  path_ = ptsname(person_);
  inside_ = require(open(path_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  setSize(size.rows, size.columns);
  reader_ = std::thread([this] { readAll(); });
}

Pty::~Pty() {
  finish();
  close(person_);
}

void Pty::setSize(int rows, int columns) {
  winsize size = {};
  size.ws_row = static_cast<unsigned short>(rows);
  size.ws_col = static_cast<unsigned short>(columns);
  require(ioctl(person_, TIOCSWINSZ, &size));
}

std::string Pty::shown() {
  const std::lock_guard lock(mutex_);
  return shown_;
}

void Pty::type(const std::string& text) {
  require(static_cast<int>(write(person_, text.data(), text.size())));
}

bool Pty::waitFor(const std::string& text, int times) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, std::chrono::minutes(1), [&] { return timesIn(shown_, text) >= times; });
}

bool Pty::isEchoing() const {
  termios settings = {};
  require(tcgetattr(person_, &settings));
  return (settings.c_lflag & ECHO) != 0;
}

std::string Pty::finish() {
  if (reader_.joinable()) {
    close(inside_);
    reader_.join();
  }
  const std::lock_guard lock(mutex_);
  return shown_;
}

// Ends when the last program has left the terminal: reading fails then.
void Pty::readAll() {
  char part[4096];
  for (ssize_t count = 0; (count = read(person_, part, sizeof(part))) > 0;) {
    const std::lock_guard lock(mutex_);
    shown_.append(part, static_cast<std::size_t>(count));
    changed_.notify_all();
  }
}

}  // namespace tooltest
