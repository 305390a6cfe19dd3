// Prompts that nobody answers, watched from another process.

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "tests/support/CertificateAuthority.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/NginxServer.h"
#include "tests/support/RawServer.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/WaitUntil.h"

namespace test {
namespace {

class Prompt : public testing::Test {
 protected:
  ChildProcess start(const std::string& way) { return start(way, server_.url("/")); }
  ChildProcess start(const std::string& way, const std::string& url) {
    return ChildProcess({.arguments = {PROMPT_HOST_PROGRAM, way, url},
                         .workingFolder = folder_.path(),
                         .outputFile = folder_.file("output")});
  }
  bool hasSaid(const std::string& word) const {
    return fileExists(folder_.file("output")) &&
           ("\n" + readFile(folder_.file("output"))).find("\n" + word + "\n") != std::string::npos;
  }

  RawServer server_{RawServer::answering(
      "HTTP/1.1 401 No\r\nWWW-Authenticate: Basic realm=\"r\"\r\nContent-Length: 0\r\n\r\n")};
  TemporaryFolder folder_;
};

/// There is no time limit: whoever stops the task waits for the host's answer, too, past several looks.
TEST_F(Prompt, ThatNobodyAnswersHoldsUpTheReset) {
  ChildProcess host = start("reset");
  ASSERT_TRUE(waitUntil([&] { return hasSaid("resetting"); }));
  EXPECT_TRUE(hasSaid("asked"));
  std::this_thread::sleep_for(std::chrono::seconds(12));
  EXPECT_FALSE(hasSaid("reset"));
  EXPECT_EQ(host.ended(), std::nullopt);

  writeFile(folder_.file("answer"), "");
  ASSERT_TRUE(waitUntil([&] { return hasSaid("reset"); }));
  EXPECT_EQ(host.wait().value_or(ChildProcess::End{}), (ChildProcess::End{.exitStatus = 0}));
}

TEST_F(Prompt, ThatNobodyAnswersDoesNotHoldUpTheProcesssEnd) {
  ChildProcess host = start("exit");
  EXPECT_EQ(host.wait().value_or(ChildProcess::End{}), (ChildProcess::End{.exitStatus = 0}));
  EXPECT_TRUE(hasSaid("asked"));
}

TEST_F(Prompt, ThatNobodyAnswersInAHandshakeDoesNotHoldUpTheProcesssEnd) {
  CertificateAuthority authority;
  NginxServer untrusted({.certificate = authority.selfSigned()});
  ChildProcess host = start("exit", untrusted.tlsUrl("/text"));
  EXPECT_EQ(host.wait().value_or(ChildProcess::End{}), (ChildProcess::End{.exitStatus = 0}));
  EXPECT_TRUE(hasSaid("asked"));
  EXPECT_TRUE(untrusted.accesses().empty());
}

}  // namespace
}  // namespace test
