// httppool against a real server that asks for a user name and a password.

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <future>
#include <string>
#include <vector>

#include "OnTerminal.h"
#include "Program.h"
#include "Scratch.h"
#include "tests/support/NginxServer.h"
#include "tests/support/RawServer.h"
#include "tests/support/WaitUntil.h"

namespace tooltest {
namespace {

// Every file of /guarded/ takes the user ann with the password "open sesame".
class Authentication : public testing::Test {
 protected:
  static std::string prepare(const Scratch& scratch) {
    // The server works as another user.
    std::filesystem::permissions(scratch.path(), std::filesystem::perms(0755));
    scratch.write("users", "ann:{PLAIN}open sesame\n");
    for (const char* name : {"one", "two", "three", "four", "five", "six"}) {
      scratch.write(name, std::string("the treasure ") + name);
    }
    return "location /guarded/ { auth_basic treasure; auth_basic_user_file " + scratch.path("users") +
           "; alias " + scratch.path() + "/; }";
  }

  // The arguments of a run with this password on the command line.
  std::vector<std::string> with(const std::string& password, std::vector<std::string> arguments) const {
    arguments.insert(arguments.end(),
                     {"--user", "ann", "--password-file", scratch_.write("password", password)});
    return arguments;
  }
  std::string url(const std::string& name) const { return server_.url("/guarded/" + name); }
  std::vector<std::string> getAll() const {
    return {"get", url("one"), url("two"), url("three"), url("four"), url("five"), url("six")};
  }

  const Scratch scratch_;
  test::NginxServer server_{{.extraLocations = prepare(scratch_)}};
};

const std::string kUser = "User name (empty to skip): ";
const std::string kPassword = "Password: ";
const std::string kRemember = "Remember for the other requests of this run? [y/N] ";
const std::string kRefused = R"({"errorID":3,"errorReason":0})";

void answerAll(Pty& terminal, const std::string& password, const std::string& remember, int time = 1) {
  ASSERT_TRUE(terminal.waitFor(kUser, time));
  terminal.type("ann\n");
  ASSERT_TRUE(terminal.waitFor(kPassword, time));
  terminal.type(password + "\n");
  ASSERT_TRUE(terminal.waitFor(kRemember, time));
  terminal.type(remember + "\n");
}

TEST_F(Authentication, ALaterTaskAsksAgainWhenTheTimeLimitHasEndedAQuestion) {
  OnTerminal program(HTTPPOOL_PROGRAM,
                     {"get", "--concurrency", "1", "--timeout", "1", url("one"), url("two")});
  EXPECT_TRUE(program.terminal().waitFor(kUser, 2));
  const OnTerminal::Result result = program.wait();
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(result.isRestored);
}

TEST_F(Authentication, GivenRightGetsTheBody) {
  const Finished finished = httppool(with("open sesame\nmore\n", {"get", url("one")}));
  EXPECT_EQ(finished.status, 0) << finished.err;
  EXPECT_EQ(finished.out, "the treasure one");
}

TEST_F(Authentication, GivenOnStdinGetsTheBody) {
  const std::string input = scratch_.write("input", "open sesame\r\n");
  const Finished finished =
      Program(HTTPPOOL_PROGRAM, {"get", url("one"), "--user", "ann", "--password-file", "-"}, {}, input)
          .wait();
  EXPECT_EQ(finished.status, 0) << finished.err;
  EXPECT_EQ(finished.out, "the treasure one");
}

TEST_F(Authentication, GivenWrongIsTriedOnce) {
  const Finished finished = httppool(with("open barley", {"get", url("one")}));
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.out, "");
  EXPECT_EQ(finished.err.rfind("task failed ", 0), 0U) << finished.err;
  EXPECT_TRUE(finished.err.ends_with(kRefused + "\n")) << finished.err;
  EXPECT_EQ(server_.accesses("/guarded/one").size(), 2U);  // without, and with it
}

TEST_F(Authentication, GivenRightServesManyTasks) {
  const Finished finished = httppool(with("open sesame", getAll()));
  EXPECT_EQ(finished.status, 0) << finished.out;
  EXPECT_EQ(std::count(finished.out.begin(), finished.out.end(), '\n'), 6) << finished.out;
}

TEST_F(Authentication, GivenWrongEndsManyTasks) {
  const Finished finished = httppool(with("open barley", getAll()));
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(std::count(finished.out.begin(), finished.out.end(), '\n'), 6) << finished.out;
  EXPECT_EQ(finished.out.find("successfully done"), std::string::npos) << finished.out;
}

TEST_F(Authentication, GivenServesAJobFile) {
  const std::string jobs = scratch_.write(
      "jobs.json", R"({"pools":[{"name":"p","tasks":[{"name":"a","url":")" + url("one") + "\"}]}]}");
  const Finished finished = httppool(with("open sesame", {"run", jobs}));
  EXPECT_EQ(finished.status, 0);
  EXPECT_TRUE(finished.out.ends_with("  p/a  the treasure one\n")) << finished.out;
}

TEST_F(Authentication, WithoutATerminalIsRefused) {
  const Finished finished = httppool({"get", url("one")});
  EXPECT_EQ(finished.status, 1);
  EXPECT_TRUE(finished.err.ends_with(kRefused + "\n")) << finished.err;
  EXPECT_EQ(server_.accesses("/guarded/one").size(), 1U);
}

TEST_F(Authentication, TypedRightGetsTheBody) {
  OnTerminal program(HTTPPOOL_PROGRAM, {"get", url("one")});
  answerAll(program.terminal(), "open sesame", "");
  const OnTerminal::Result result = program.wait();
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out, "the treasure one");
  EXPECT_EQ(result.shown.find("sesame"), std::string::npos) << result.shown;
  EXPECT_EQ(result.err.find("sesame"), std::string::npos) << result.err;
  EXPECT_TRUE(result.isRestored);
}

TEST_F(Authentication, TypedWrongIsAskedForAgain) {
  OnTerminal program(HTTPPOOL_PROGRAM, {"get", url("one")});
  answerAll(program.terminal(), "open barley", "y", 1);
  answerAll(program.terminal(), "open sesame", "y", 2);
  const OnTerminal::Result result = program.wait();
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out, "the treasure one");
  EXPECT_NE(result.shown.find("The user name or the password was not accepted.\r\n"), std::string::npos)
      << result.shown;
}

TEST_F(Authentication, SkippedIsRefused) {
  OnTerminal program(HTTPPOOL_PROGRAM, {"get", url("one")});
  ASSERT_TRUE(program.terminal().waitFor(kUser));
  program.terminal().type("\n");
  const OnTerminal::Result result = program.wait();
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_TRUE(result.err.ends_with(kRefused + "\n")) << result.err;
}

// A server that keeps its client waiting until the test has it redirect to another URL.
class Detour {
 public:
  explicit Detour(const std::string& target)
      : server_([this, target](test::RawServer::Connection& connection) {
          connection.readRequest();
          opened_.wait();
          connection.send("HTTP/1.1 302 Found\r\nContent-Length: 0\r\nLocation: " + target + "\r\n\r\n");
        }) {}

  std::string url() const { return server_.url("/"); }
  void open() { open_.set_value(); }

 private:
  std::promise<void> open_;
  std::shared_future<void> opened_ = open_.get_future().share();
  test::RawServer server_;  // last: its threads use the others
};

TEST_F(Authentication, RememberedIsNotAskedForAgainInTheRun) {
  Detour detour(url("two"));
  OnTerminal program(HTTPPOOL_PROGRAM, {"get", url("one"), detour.url()});
  answerAll(program.terminal(), "open sesame", "y");
  ASSERT_TRUE(test::waitUntil([&] { return program.process().out().ends_with("the treasure one\n"); }));
  detour.open();
  const OnTerminal::Result result = program.wait();
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_TRUE(result.out.ends_with("the treasure two\n")) << result.out;
  EXPECT_EQ(result.shown.find(kUser), result.shown.rfind(kUser)) << result.shown;
}

TEST_F(Authentication, NotRememberedIsAskedForAgainInTheRun) {
  Detour detour(url("two"));
  OnTerminal program(HTTPPOOL_PROGRAM, {"get", url("one"), detour.url()});
  answerAll(program.terminal(), "open sesame", "n", 1);
  ASSERT_TRUE(test::waitUntil([&] { return program.process().out().ends_with("the treasure one\n"); }));
  detour.open();
  answerAll(program.terminal(), "open sesame", "n", 2);
  const OnTerminal::Result result = program.wait();
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_TRUE(result.out.ends_with("the treasure two\n")) << result.out;
}

TEST_F(Authentication, InterruptEndsTheQuestionAndTheRun) {
  OnTerminal program(HTTPPOOL_PROGRAM, {"get", url("one"), url("two")});
  ASSERT_TRUE(program.terminal().waitFor(kUser));
  program.terminal().type("ann\n");
  ASSERT_TRUE(program.terminal().waitFor(kPassword));
  program.terminal().type(std::string("open") + Pty::kControlC);
  const OnTerminal::Result result = program.wait();
  EXPECT_EQ(result.status, 130);
  EXPECT_TRUE(result.isRestored);
  EXPECT_EQ(result.shown.find(kUser), result.shown.rfind(kUser)) << result.shown;
  EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 2) << result.out;
}

TEST_F(Authentication, TimeLimitEndsTheQuestionAndTheRun) {
  OnTerminal program(HTTPPOOL_PROGRAM, {"get", url("one"), "--timeout", "4"});
  ASSERT_TRUE(program.terminal().waitFor(kUser));
  program.terminal().type("ann\n");
  const OnTerminal::Result result = program.wait();
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(result.err.ends_with("  reset: still running at the time limit\n")) << result.err;
  EXPECT_TRUE(result.shown.ends_with(kPassword + "\r\n")) << result.shown;
  EXPECT_TRUE(result.isRestored);
}

}  // namespace
}  // namespace tooltest
