#include "TableReport.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string_view>

#include "Suspension.h"
#include "Terminal.h"

namespace httppool {
namespace {

// Also keeps what ends at once from being drawn at all.
constexpr std::chrono::milliseconds kBetweenDraws(100);

struct Size {
  std::size_t rows;
  std::size_t columns;
};

// Asked before each drawing, so that a new size needs no signal.
Size terminalSize() {
  winsize size = {};
  const bool isKnown = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 && size.ws_col > 0;
  return isKnown ? Size{size.ws_row, size.ws_col} : Size{24, 80};
}

// The main thread alone reads the environment, and nobody changes it any more.
std::string_view setting(const char* name) {
  const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe)
  return value == nullptr ? "" : value;
}

TaskTable::Colours wantedColours() {
  return setting("NO_COLOR").empty() ? TaskTable::Colours::Yes : TaskTable::Colours::No;
}

// Few terminals leave their lines as they are. To be wrong about one of those would take lines away that are not the
// table's.
LiveArea::Rewrap rewrapOfTerminal() {
  const bool isPlain =
      !setting("XTERM_VERSION").empty() || !setting("STY").empty() || setting("TERM") == "linux";
  return isPlain && setting("TMUX").empty() ? LiveArea::Rewrap::No : LiveArea::Rewrap::Yes;
}

std::vector<std::string> shownNames(Naming naming, const std::vector<PoolJob>& jobs) {
  std::vector<std::string> names;
  for (const PoolJob& pool : jobs) {
    for (const TaskJob& task : pool.tasks) {
      const std::string url =
          naming == Naming::PoolAndTask ? "  " + shownName(Naming::Task, {}, task.url) : "";
      names.push_back(shownName(naming, pool.name, task.name) + url);
    }
  }
  return names;
}

// Output that is halted must not hold up the run.
bool canWrite() {
  pollfd output{STDOUT_FILENO, POLLOUT, 0};
  return poll(&output, 1, 0) == 1 && (output.revents & POLLOUT) != 0;
}

bool isInForeground() {
  return tcgetpgrp(STDOUT_FILENO) == getpgrp();
}

void put(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = write(STDOUT_FILENO, bytes.data(), bytes.size());
    if (count < 0 && errno != EINTR) {
      return;
    }
    bytes.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : 0);
  }
}

}  // namespace

bool TableReport::isPossible() {
  const std::string_view terminal = setting("TERM");
  return isatty(STDOUT_FILENO) != 0 && !terminal.empty() && terminal != "dumb";
}

TableReport::TableReport(LineReport::Shape shape, Naming naming, const std::vector<PoolJob>& jobs)
    : shape_(shape),
      lines_(shape, naming),
      table_(shownNames(naming, jobs), wantedColours()),
      area_(rewrapOfTerminal()) {
  watchSuspension();
  const std::lock_guard turn(Terminal::turn());
  Terminal::setGivingWay([this] { erase(); });
}

TableReport::~TableReport() {
  const std::lock_guard turn(Terminal::turn());
  Terminal::setGivingWay([] {});
  erase();
}

void TableReport::taskStarted(std::size_t index) {
  table_.start(index, Clock::now());
}

void TableReport::taskEnded(const TaskOutcome& outcome) {
  table_.end(outcome);
  if (shape_ == LineReport::Shape::Lines) {
    ended_.push_back(lines_.line(outcome));
    return;
  }
  finish();
  lines_.taskEnded(outcome);
}

void TableReport::beat() {
  const Clock::time_point now = Clock::now();
  if (isFinished_ || now - lastDraw_ < kBetweenDraws) {
    return;
  }
  const std::unique_lock turn(Terminal::turn(), std::try_to_lock);
  if (turn.owns_lock()) {  // else the user is being asked
    lastDraw_ = now;
    draw();
  }
}

void TableReport::finish() {
  {
    const std::lock_guard turn(Terminal::turn());
    erase();
    isFinished_ = true;
  }
  for (const std::string& line : ended_) {
    lines_.showLine(line);
  }
  ended_.clear();
}

void TableReport::draw() {
  if (takeContinuation() || !isInForeground()) {
    area_.forget();  // others may have written since
  }
  if (!isInForeground() || !canWrite()) {
    return;
  }
  const Size size = terminalSize();
  // The cursor has the line beneath the table, and the last column stays free.
  put(area_.redraw(table_.rows(size.rows - 1, size.columns - 1, Clock::now()), size.columns));
}

void TableReport::erase() {
  if (isInForeground() && canWrite()) {
    put(area_.erase(terminalSize().columns));
  }
  area_.forget();
}

}  // namespace httppool
