// The table on a terminal, while tasks run.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/types.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "GatedOrigin.h"
#include "OnTerminal.h"
#include "Scratch.h"
#include "Screen.h"
#include "tests/support/CertificateAuthority.h"
#include "tests/support/NginxServer.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/WaitUntil.h"

namespace tooltest {
namespace {

const std::vector<std::string> kPlain{"TERM=xterm", "NO_COLOR=1"};

Screen screenOf(const std::string& shown, Pty::Size size = {24, 80}) {
  Screen screen(static_cast<std::size_t>(size.rows), static_cast<std::size_t>(size.columns));
  screen.write(shown);
  return screen;
}

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

class Table : public testing::Test {
 protected:
  std::vector<std::string> get(int count, const std::vector<std::string>& options = {}) const {
    std::vector<std::string> arguments{"get"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    for (int number = 1; number <= count; ++number) {
      arguments.push_back(origin_.url("/" + std::to_string(number)));
    }
    return arguments;
  }
  void releaseAll(int count) {
    for (int number = 1; number <= count; ++number) {
      origin_.release("/" + std::to_string(number));
    }
  }

  GatedOrigin origin_;
};

TEST_F(Table, ShowsEachTaskWhileTheyRunAndTheLinesAtTheEnd) {
  OnTerminal program(HTTPPOOL_PROGRAM, get(3, {"--concurrency", "2"}), OnTerminal::Place::Whole, kPlain);
  Pty& terminal = program.terminal();
  EXPECT_TRUE(test::waitUntil([&] {
    const std::vector<std::string> lines = screenOf(terminal.shown()).lines();
    return lines.size() == 3 && lines[0].starts_with("requesting ") && lines[1].starts_with("requesting ") &&
           lines[2].starts_with("waiting ") && lines[2].ends_with(origin_.url("/3"));
  })) << terminal.shown();
  origin_.release("/2");
  EXPECT_TRUE(test::waitUntil([&] {
    const std::vector<std::string> lines = screenOf(terminal.shown()).lines();
    return lines.size() == 3 && lines[0].starts_with("requesting ") &&
           lines[1].starts_with("successfully done ") && contains(lines[1], " 10 B  ") &&
           lines[2].starts_with("requesting ");
  })) << terminal.shown();
  releaseAll(3);
  const OnTerminal::Result result = program.wait();
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(result.isRestored);
  const std::vector<std::string> lines = screenOf(result.shown).lines();
  ASSERT_EQ(lines.size(), 3U) << result.shown;
  EXPECT_THAT(lines, testing::Each(testing::StartsWith("successfully done ")));
  EXPECT_TRUE(lines[0].ends_with(" s  " + origin_.url("/2") + "  body of /2")) << lines[0];
  EXPECT_FALSE(contains(result.shown, "\x1b[32m")) << "a colour";
}

TEST_F(Table, GivesWayToTheBodyOfASingleTask) {
  OnTerminal program(HTTPPOOL_PROGRAM, get(1), OnTerminal::Place::Whole, kPlain);
  ASSERT_TRUE(program.terminal().waitFor("requesting "));
  releaseAll(1);
  const std::vector<std::string> lines = screenOf(program.wait().shown).lines();
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_TRUE(lines[0].ends_with(origin_.url("/1") + "  10 bytes")) << lines[0];
  EXPECT_EQ(lines[1], "body of /1");
}

TEST_F(Table, IsColouredUnlessNoColourIsWanted) {
  OnTerminal program(HTTPPOOL_PROGRAM, get(2), OnTerminal::Place::Whole, {"TERM=xterm", "NO_COLOR="});
  origin_.release("/1");
  EXPECT_TRUE(program.terminal().waitFor("\x1b[32msuccessfully done\x1b[m"));
  releaseAll(2);
  EXPECT_EQ(program.wait().status, 0);
}

TEST_F(Table, IsNotDrawnOnADumbTerminal) {
  OnTerminal program(HTTPPOOL_PROGRAM, get(2), OnTerminal::Place::Whole, {"TERM=dumb"});
  origin_.release("/1");
  EXPECT_TRUE(program.terminal().waitFor("body of /1\r\n"));  // as soon as it has ended
  releaseAll(2);
  const std::string shown = program.wait().shown;
  EXPECT_FALSE(contains(shown, "\x1b")) << shown;
  EXPECT_FALSE(contains(shown, "requesting")) << shown;
  EXPECT_EQ(std::count(shown.begin(), shown.end(), '\n'), 2);
}

TEST_F(Table, FitsASmallTerminal) {
  const Pty::Size size{5, 50};
  OnTerminal program(HTTPPOOL_PROGRAM, get(9), OnTerminal::Place::Whole, kPlain, size);
  Pty& terminal = program.terminal();
  ASSERT_TRUE(terminal.waitFor("… 6 more: 6 running"));
  origin_.release("/9");
  ASSERT_TRUE(terminal.waitFor("… 6 more: 1 done, 5 running"));
  const Screen screen = screenOf(terminal.shown(), size);
  // Drawn over and over, it has left nothing above.
  EXPECT_LE(screen.lines().size(), 4U) << terminal.shown();
  releaseAll(9);
  EXPECT_EQ(program.wait().status, 0);
}

TEST_F(Table, FollowsTheSizeOfTheTerminal) {
  OnTerminal program(HTTPPOOL_PROGRAM, get(4), OnTerminal::Place::Whole, kPlain);
  Pty& terminal = program.terminal();
  ASSERT_TRUE(terminal.waitFor(origin_.url("/4")));
  terminal.setSize(24, 45);
  EXPECT_TRUE(terminal.waitFor("  http:…\x1b[K", 4)) << terminal.shown();
  terminal.setSize(3, 80);
  EXPECT_TRUE(terminal.waitFor("… 3 more: 3 running")) << terminal.shown();
  releaseAll(4);
  EXPECT_EQ(program.wait().status, 0);
}

TEST_F(Table, GivesWayToAnInterrupt) {
  for (const int signal : {SIGINT, SIGTERM}) {
    OnTerminal program(HTTPPOOL_PROGRAM, get(2), OnTerminal::Place::Whole, kPlain);
    ASSERT_TRUE(program.terminal().waitFor("requesting ", 2));
    signal == SIGINT ? program.terminal().type(Pty::kControlC) : program.process().signalGroup(signal);
    const OnTerminal::Result result = program.wait();
    EXPECT_EQ(result.status, 128 + signal);
    EXPECT_TRUE(result.isRestored);
    const std::vector<std::string> lines = screenOf(result.shown, {24, 200}).lines();
    ASSERT_EQ(lines.size(), 2U) << result.shown;
    EXPECT_THAT(lines, testing::Each(testing::EndsWith("  reset: still running when interrupted")));
  }
}

// Of the process: /proc/PID/status, proc(5).
bool catches(pid_t process, int signal) {
  std::ifstream file("/proc/" + std::to_string(process) + "/status");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("SigCgt:")) {
      return (std::stoull(line.substr(7), nullptr, 16) >> (signal - 1) & 1U) != 0;
    }
  }
  return false;
}

TEST_F(Table, ASecondInterruptEndsTheProgramAtOnce) {
  for (const int second : {SIGINT, SIGTERM}) {
    OnTerminal program(HTTPPOOL_PROGRAM, get(2), OnTerminal::Place::Whole, kPlain);
    ASSERT_TRUE(program.terminal().waitFor("requesting ", 2));
    const pid_t process = program.pid();
    ASSERT_TRUE(catches(process, SIGINT));
    // It cannot tell what it has reset, and stays.
    program.terminal().type(Pty::kControlS);
    kill(process, SIGINT);
    ASSERT_TRUE(test::waitUntil([&] { return !catches(process, SIGINT); }));
    kill(process, second);
    const OnTerminal::Result result = program.wait();
    EXPECT_EQ(result.status, 128 + second);
    EXPECT_FALSE(contains(result.shown, "reset: ")) << result.shown;
  }
}

// The test's person takes a while, so that a table that did not wait would be seen.
void hesitate() {
  std::this_thread::sleep_for(std::chrono::milliseconds(400));
}

TEST_F(Table, GivesWayToTheQuestionForCredentials) {
  const Scratch scratch;
  std::filesystem::permissions(scratch.path(), std::filesystem::perms(0755));
  scratch.write("users", "ann:{PLAIN}sesame\n");
  scratch.write("one", "the treasure");
  const test::NginxServer server(
      {.extraLocations = "location /guarded/ { auth_basic t; auth_basic_user_file " + scratch.path("users") +
                         "; alias " + scratch.path() + "/; }"});
  std::vector<std::string> arguments = get(2, {"--concurrency", "2"});
  arguments.push_back(server.url("/guarded/one"));
  OnTerminal program(HTTPPOOL_PROGRAM, arguments, OnTerminal::Place::Whole, kPlain);
  Pty& terminal = program.terminal();
  ASSERT_TRUE(terminal.waitFor("requesting ", 2));
  origin_.release("/2");  // makes room for the one that asks
  ASSERT_TRUE(terminal.waitFor("User name (empty to skip): "));
  hesitate();
  // Nothing of the table stands there, and the cursor is behind the question.
  EXPECT_THAT(
      screenOf(terminal.shown()).lines(),
      testing::ElementsAre("A server asks for a user name and a password.", "User name (empty to skip):"));
  terminal.type("ann\n");
  ASSERT_TRUE(terminal.waitFor("Password: "));
  terminal.type("sesame\n");
  const std::string last = "run? [y/N] ";
  ASSERT_TRUE(terminal.waitFor(last));
  terminal.type("\n");
  EXPECT_TRUE(test::waitUntil([&] {
    const std::string shown = terminal.shown();
    return contains(shown.substr(shown.find(last)), "requesting ");
  })) << "the table is not back: "
      << terminal.shown();
  releaseAll(1);
  const OnTerminal::Result result = program.wait();
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(result.isRestored);
  const std::string dialog = result.shown.substr(result.shown.find("User name"),
                                                 result.shown.find(last) - result.shown.find("User name"));
  EXPECT_FALSE(contains(dialog, "requesting")) << dialog;
  EXPECT_TRUE(screenOf(result.shown).hasLine("successfully done ")) << result.shown;
  EXPECT_FALSE(screenOf(result.shown).hasLine("requesting ")) << result.shown;
}

TEST_F(Table, GivesWayToTheQuestionOfTrust) {
  test::CertificateAuthority authority;
  const test::NginxServer server({.certificate = authority.selfSigned()});
  std::vector<std::string> arguments = get(2, {"--concurrency", "2"});
  arguments.push_back(server.tlsUrl("/text"));
  // A handshake has a stack of its own. The address sanitizer remarks on it, and not on this terminal.
  const test::TemporaryFolder remarks;
  std::vector<std::string> environment = kPlain;
  environment.push_back("ASAN_OPTIONS=log_path=" + remarks.file("asan"));
  OnTerminal program(HTTPPOOL_PROGRAM, arguments, OnTerminal::Place::Whole, environment);
  ASSERT_TRUE(program.terminal().waitFor("requesting ", 2));
  origin_.release("/2");
  const std::string question = "Trust this host for the rest of this run? [y/N] ";
  ASSERT_TRUE(program.terminal().waitFor(question));
  hesitate();
  EXPECT_FALSE(screenOf(program.terminal().shown()).hasLine("requesting ")) << program.terminal().shown();
  program.terminal().type("y\n");
  EXPECT_TRUE(test::waitUntil([&] {
    const std::string shown = program.terminal().shown();
    return contains(shown.substr(shown.find(question)), "requesting ");
  }));
  releaseAll(1);
  EXPECT_EQ(program.wait().status, 0);
}

}  // namespace
}  // namespace tooltest
