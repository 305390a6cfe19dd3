// The examples and the README's host, as programs against a server.

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/NginxServer.h"
#include "tests/support/TemporaryFolder.h"

namespace test {
namespace {

struct Ran {
  int exitStatus = -1;
  std::string output{};
  bool operator==(const Ran&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Ran& run) {
  return stream << run.exitStatus << ": " << run.output;
}

Ran runOf(const std::vector<std::string>& arguments,
          const std::map<std::string, std::optional<std::string>>& environment = {}) {
  TemporaryFolder folder;
  ChildProcess program(
      {.arguments = arguments, .environment = environment, .outputFile = folder.file("output")});
  const auto end = program.wait(std::chrono::minutes(3));
  EXPECT_TRUE(end.has_value()) << "it hangs";
  return {end.value_or(ChildProcess::End{}).exitStatus, readFile(folder.file("output"))};
}

TEST(CppExample, Callback) {
  NginxServer server;
  const std::string text = server.url("/text");
  EXPECT_EQ(runOf({CALLBACK_EXAMPLE, text}), (Ran{0, text + ": done, 12 bytes\n"}));
  EXPECT_EQ(
      runOf({CALLBACK_EXAMPLE, "bad url", text}),
      (Ran{1, "bad url: refused: the request cannot be sent as it is\n" + text + ": done, 12 bytes\n"}));
  EXPECT_EQ(runOf({CALLBACK_EXAMPLE, "bad url"}).exitStatus, 1);
  EXPECT_EQ(runOf({CALLBACK_EXAMPLE}), Ran{0});
}

TEST(CppExample, Future) {
  NginxServer server;
  EXPECT_EQ(runOf({FUTURE_EXAMPLE, server.url("/text")}), (Ran{0, "2 words\n"}));
  EXPECT_EQ(runOf({FUTURE_EXAMPLE, server.url("/empty")}), (Ran{0, "0 words\n"}));
  EXPECT_EQ(runOf({FUTURE_EXAMPLE, server.url("/close")}),
            (Ran{1,
                 "failed: no network, connection lost, or refused by a proxy or a certificate's revocation "
                 "(errorID 1)\n"}));
}

TEST(CppExample, Awaitable) {
  NginxServer server;
  EXPECT_EQ(runOf({AWAITABLE_EXAMPLE, server.url("/late?ms=300"), server.url("/text")}),
            (Ran{0, "late\nHello, pool!\n"}));
  EXPECT_EQ(runOf({AWAITABLE_EXAMPLE, "bad url", server.url("/text")}),
            (Ran{1, "refused: the request cannot be sent as it is\nHello, pool!\n"}));
  EXPECT_EQ(runOf({AWAITABLE_EXAMPLE, "bad url"}).exitStatus, 1);
}

TEST(CppExample, OfTheReadme) {
  NginxServer server;
  EXPECT_EQ(runOf({README_HOST_PROGRAM, server.url("/text")}), (Ran{0, "Hello, pool!\n"}));
  EXPECT_EQ(runOf({README_HOST_PROGRAM, server.url("/status/500")}),
            (Ran{1, "failed: unexpected status of the server, or it could not be reached (errorID 2)\n"}));
  EXPECT_EQ(runOf({README_HOST_PROGRAM, server.url("/close")}).exitStatus, 1);
  EXPECT_EQ(server.accesses("/close").size(), 2U);
  EXPECT_EQ(runOf({README_HOST_PROGRAM, "bad url"}),
            (Ran{1, "refused: the request cannot be sent as it is\n"}));
}

TEST(PythonExample, PrintsStatusAndBodyOrError) {
  NginxServer server;
  const std::string url = server.url("/zero");
  const Ran read{0, "status 3\n" + std::string("before\0after", 12)};
  EXPECT_EQ(runOf({PYTHON, HOST_SCRIPT, url, LIBRARY_FOLDER}), read);
  EXPECT_EQ(runOf({PYTHON, HOST_SCRIPT, url}, {{"HTTPPOOL_LIBRARIES", LIBRARY_FOLDER}}), read);
  EXPECT_EQ(runOf({PYTHON, HOST_SCRIPT, server.url("/status/500"), LIBRARY_FOLDER}),
            (Ran{1, "status 5 errorID 2 errorReason 0\n"}));
  EXPECT_EQ(runOf({PYTHON, HOST_SCRIPT, "bad url", LIBRARY_FOLDER}),
            (Ran{1, "status 5 errorID None errorReason None\n"}));
  EXPECT_EQ(runOf({PYTHON, HOST_SCRIPT}).exitStatus, 2);
  EXPECT_EQ(server.accesses("/zero").at(0).method, "GET");
}

}  // namespace
}  // namespace test
