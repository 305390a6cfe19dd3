// The process ends while requests run: with its own exit status, without a crash and without waiting for
// them.

#include <gtest/gtest.h>

#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/NginxServer.h"
#include "tests/support/TemporaryFolder.h"

namespace test {
namespace {

class Exit : public testing::TestWithParam<const char*> {};

TEST_P(Exit, WithSixtyRequestsRunning) {
  NginxServer server;
  TemporaryFolder folder;
  const std::string output = folder.file("output");
  // Forty wait for their answers or hang in their bodies, twenty receive all the time.
  ChildProcess host({.arguments = {EXIT_HOST_PROGRAM, GetParam(), server.url("/silent"), server.url("/half"),
                                   server.url("/drip?n=1000000&ms=1")},
                     .workingFolder = folder.path(),
                     .outputFile = output});
  ASSERT_TRUE(server.waitForOpenConnections(60)) << readFile(output);
  writeFile(folder.file("go"), "");
  const auto end = host.wait(std::chrono::minutes(2));
  ASSERT_TRUE(end.has_value()) << "it hangs";
  EXPECT_EQ(end->exitStatus, 0) << "signal " << end->signal << "\n" << readFile(output);
  EXPECT_EQ(readFile(output), "");
}

INSTANTIATE_TEST_SUITE_P(All, Exit, testing::Values("return", "exit", "notify", "thread"),
                         [](const auto& info) { return std::string(info.param); });

TEST(ExitAlone, WithoutAnyRequest) {
  TemporaryFolder folder;
  writeFile(folder.file("go"), "");
  ChildProcess host({.arguments = {EXIT_HOST_PROGRAM, "return"}, .workingFolder = folder.path()});
  const auto end = host.wait(std::chrono::minutes(2));
  ASSERT_TRUE(end.has_value());
  EXPECT_EQ(end->exitStatus, 0);
}

}  // namespace
}  // namespace test
