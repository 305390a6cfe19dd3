// Hosts of other kinds, as programs of their own.

#include <gtest/gtest.h>

#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/NginxServer.h"
#include "tests/support/TemporaryFolder.h"

namespace test {
namespace {

/// Runs a host to its end, which must be a good one; what it printed.
std::string printedBy(const std::vector<std::string>& arguments) {
  TemporaryFolder folder;
  const std::string output = folder.file("output");
  ChildProcess host({.arguments = arguments, .outputFile = output});
  const auto end = host.wait(std::chrono::minutes(3));
  EXPECT_TRUE(end.has_value()) << "it hangs";
  EXPECT_EQ(end.value_or(ChildProcess::End{}).exitStatus, 0) << readFile(output);
  return readFile(output);
}

TEST(Program, InPlainC) {
  NginxServer server;
  EXPECT_EQ(printedBy({C_HOST_PROGRAM, server.url("/text")}), "status 3\nHello, pool!");
  EXPECT_EQ(printedBy({C_HOST_PROGRAM, server.url("/status/500")}),
            "status 5\n{\"errorID\":2,\"errorReason\":0}");
  EXPECT_EQ(printedBy({C_HOST_PROGRAM, server.url("/retry-after?value=7"), R"({"Glint":"1"})"}),
            "status 3\n{\"errorID\":5,\"errorReason\":7000}");
  EXPECT_EQ(server.accesses().size(), 3U);
}

TEST(Program, WithQtsEventLoop) {
  NginxServer server;
  EXPECT_EQ(printedBy({QT_HOST_PROGRAM, server.url("/text")}), "status 3\nHello, pool!");
  EXPECT_EQ(printedBy({QT_HOST_PROGRAM, server.url("/status/500")}),
            "status 5\n{\"errorID\":2,\"errorReason\":0}");
}

}  // namespace
}  // namespace test
