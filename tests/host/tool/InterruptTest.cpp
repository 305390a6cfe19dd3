// SIGINT and SIGTERM: while a request runs, and what the handler does by itself.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <termios.h>

#include <csignal>
#include <cstdlib>
#include <string>

#include "CannedOrigin.h"
#include "Program.h"
#include "Pty.h"
#include "tools/httppool/Interrupt.h"

namespace tooltest {
namespace {

class Interrupted : public testing::TestWithParam<int> {};

TEST_P(Interrupted, ResetsTheTaskAndTellsTheSignal) {
  CannedOrigin origin({{"/quick", answer("200 OK", "got")}});
  Program program(HTTPPOOL_PROGRAM, {"get", origin.url("/never"), origin.url("/quick"), "--snapshot"});
  ASSERT_NE(origin.requestFor("/never"), "");
  program.signal(GetParam());
  const Finished finished = program.wait();
  EXPECT_EQ(finished.status, 128 + GetParam());
  EXPECT_NE(finished.out.find("  " + origin.url("/never") + "  reset: still running when interrupted\n"),
            std::string::npos)
      << finished.out;
  // It came to its proper end: the snapshot is there, and the task is reset.
  EXPECT_NE(finished.out.find(R"("taskStatus":"uninitialized")"), std::string::npos) << finished.out;
}

INSTANTIATE_TEST_SUITE_P(Signals, Interrupted, testing::Values(SIGINT, SIGTERM));

// A terminal that was silenced, and what becomes of it.
class SilencedTerminal {
 public:
  SilencedTerminal() : inside_(open(terminal_.path().c_str(), O_RDWR | O_NOCTTY)) {
    tcgetattr(inside_, &before_);
    termios silent = before_;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(inside_, TCSANOW, &silent);
  }
  int descriptor() const { return inside_; }
  const termios& before() const { return before_; }
  bool isEchoing() const { return terminal_.isEchoing(); }

 private:
  Pty terminal_;
  int inside_;
  termios before_ = {};
};

// These run in processes of their own, whose exit status is 0 when all was as expected: a signal that was caught
// stays caught.
[[noreturn]] void endAs(bool isAsExpected) {
  std::_Exit(isAsExpected ? 0 : 1);
}

void interruptWhileSilenced() {
  const SilencedTerminal terminal;
  httppool::catchInterrupts();
  httppool::restoreWhenInterrupted(terminal.descriptor(), terminal.before());
  const bool wasEchoing = terminal.isEchoing();
  raise(SIGINT);
  endAs(!wasEchoing && terminal.isEchoing() && httppool::caughtInterrupt() == SIGINT);
}

void interruptWhenDone() {
  const SilencedTerminal terminal;
  httppool::catchInterrupts();
  httppool::restoreWhenInterrupted(terminal.descriptor(), terminal.before());
  httppool::restoreNothingWhenInterrupted();
  raise(SIGTERM);
  endAs(!terminal.isEchoing() && httppool::caughtInterrupt() == SIGTERM);
}

void pollForAnInterrupt() {
  httppool::catchInterrupts();
  pollfd event = {httppool::interruptDescriptor(), POLLIN, 0};
  const int before = poll(&event, 1, 0);
  raise(SIGINT);
  endAs(before == 0 && poll(&event, 1, 0) == 1 && event.revents == POLLIN);
}

TEST(InterruptDeathTest, TheFirstSignalRestoresTheTerminalByItself) {
  EXPECT_EXIT(interruptWhileSilenced(), testing::ExitedWithCode(0), "");
}

TEST(InterruptDeathTest, ATerminalThatIsDoneWithIsLeftAlone) {
  EXPECT_EXIT(interruptWhenDone(), testing::ExitedWithCode(0), "");
}

TEST(InterruptDeathTest, TheDescriptorIsReadableFromTheFirstSignalOn) {
  EXPECT_EXIT(pollForAnInterrupt(), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace tooltest
