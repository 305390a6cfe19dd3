// --user and --password-file: what is a password, and what ends the program before anything is sent.

#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "OnTerminal.h"
#include "Program.h"
#include "Scratch.h"
#include "tools/httppool/Secret.h"

namespace tooltest {
namespace {

struct BadFile {
  std::string name;
  std::string content;
  std::string message;  // after "the first line of FILE "
};

void PrintTo(const BadFile& file, std::ostream* stream) {
  *stream << file.name;
}

class BadPasswordFile : public testing::TestWithParam<BadFile> {};

TEST_P(BadPasswordFile, EndsTheProgramBeforeAnythingRuns) {
  const Scratch scratch;
  const std::string file = scratch.write("password", GetParam().content);
  const std::string target = scratch.path("download");
  const Finished finished =
      httppool({"get", "http://127.0.0.1:1/", "-o", target, "--user", "ann", "--password-file", file});
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.out, "");
  EXPECT_EQ(finished.err, "httppool: the first line of " + file + " " + GetParam().message + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    All, BadPasswordFile,
    testing::Values(BadFile{"Empty", "", "is empty: no password"},
                    BadFile{"EmptyFirstLine", "\nsecret\n", "is empty: no password"},
                    BadFile{"EmptyFirstLineOfWindows", "\r\nsecret\r\n", "is empty: no password"},
                    BadFile{"TooLong", std::string(4097, 'x'), "is longer than 4096 bytes: no password"},
                    BadFile{"Endless", std::string(1 << 20, 'x'), "is longer than 4096 bytes: no password"},
                    BadFile{"ZeroCharacter", std::string("sec\0ret\n", 8),
                            "has a zero character or is not UTF-8"},
                    BadFile{"NotUtf8", "caf\xe9\n", "has a zero character or is not UTF-8"}),
    [](const auto& info) { return info.param.name; });

TEST(PasswordFile, ThatCannotBeReadEndsTheProgram) {
  const Scratch scratch;
  const auto message = [](const std::string& file) {
    const Finished finished = httppool({"get", "u", "--user", "ann", "--password-file", file});
    EXPECT_EQ(finished.status, 2);
    EXPECT_EQ(finished.out, "");
    return finished.err;
  };
  EXPECT_EQ(message(scratch.path("none")),
            "httppool: cannot read " + scratch.path("none") + ": No such file or directory\n");
  EXPECT_EQ(message(scratch.path()), "httppool: cannot read " + scratch.path() + ": it is a folder\n");
  EXPECT_EQ(message("\x1b[2J"), "httppool: cannot read \\x1b[2J: No such file or directory\n");
  EXPECT_EQ(message(""), "httppool: cannot read : No such file or directory\n");
}

TEST(PasswordFile, IsReadBeforeTheJobFile) {
  const Finished finished =
      httppool({"run", "/no/such/jobs", "--user", "ann", "--password-file", "/no/such/file"});
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.err, "httppool: cannot read /no/such/file: No such file or directory\n");
}

TEST(PasswordFile, IsNotATerminal) {
  OnTerminal program(HTTPPOOL_PROGRAM, {"get", "u", "--user", "ann", "--password-file", "-"});
  const OnTerminal::Result result = program.wait();
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err,
            "httppool: stdin is a terminal, which would show the password; without --user it is asked for\n");
}

TEST(Secret, KeepsItsTextWhileItGrowsAndMoves) {
  httppool::Secret secret("ab");
  std::string expected = "ab";
  for (int time = 0; time < 1000; ++time) {
    secret.append("cde");
    expected += "cde";
  }
  EXPECT_EQ(secret.text(), expected);
  secret.removeLast();
  expected.pop_back();
  const httppool::Secret copy = secret;
  const httppool::Secret moved = std::move(secret);
  EXPECT_EQ(copy.text(), expected);
  EXPECT_EQ(moved.text(), expected);
  httppool::Secret assigned("before");
  assigned = copy;
  EXPECT_EQ(assigned.text(), expected);
  EXPECT_FALSE(assigned.isEmpty());
  EXPECT_TRUE(httppool::Secret().isEmpty());
}

}  // namespace
}  // namespace tooltest
