// httppool against servers whose certificates cannot be verified.

#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

#include "OnTerminal.h"
#include "Program.h"
#include "tests/support/CertificateAuthority.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/NginxServer.h"
#include "tests/support/TemporaryFolder.h"

namespace tooltest {
namespace {

const std::string kQuestion = "Trust this host for the rest of this run? [y/N] ";
const std::string kRefused = R"({"errorID":3,"errorReason":0})";

class TrustQuestion : public testing::Test {
 protected:
  std::string url(const std::string& target = "/text") const { return server_.tlsUrl(target); }
  std::string fingerprint() const {
    const test::TemporaryFolder folder;
    test::ChildProcess openssl({.arguments = {"/usr/bin/openssl", "x509", "-noout", "-fingerprint", "-sha256",
                                              "-in", leaf_.chainFile},
                                .outputFile = folder.file("output")});
    EXPECT_TRUE(openssl.wait());
    const std::string text = test::readFile(folder.file("output"));
    return text.substr(text.find('=') + 1, text.find('\n') - text.find('=') - 1);
  }

  test::CertificateAuthority authority_;
  const test::CertificateAuthority::Leaf leaf_ = authority_.selfSigned();
  test::NginxServer server_{{.certificate = leaf_}};
};

TEST_F(TrustQuestion, WithoutATerminalIsRefused) {
  const Finished finished = httppool({"get", url()});
  EXPECT_EQ(finished.status, 1);
  EXPECT_NE(finished.err.find(kRefused), std::string::npos) << finished.err;
  EXPECT_TRUE(server_.accesses().empty());
}

TEST_F(TrustQuestion, OnFirstUseIsAccepted) {
  const Finished finished = httppool({"get", url(), "--trust-on-first-use"});
  EXPECT_EQ(finished.status, 0) << finished.err;
  EXPECT_EQ(finished.out, "Hello, pool!");
}

TEST_F(TrustQuestion, OnFirstUseDoesNotAcceptAnotherHost) {
  test::NginxServer elsewhere({.certificate = authority_.wrongHost()});
  const Finished finished = httppool({"get", elsewhere.tlsUrl("/text"), "--trust-on-first-use"});
  EXPECT_EQ(finished.status, 1);
  EXPECT_TRUE(elsewhere.accesses().empty());
}

TEST_F(TrustQuestion, WithYesIsAskedOnceForAHost) {
  OnTerminal program(HTTPPOOL_PROGRAM, {"get", url(), url("/empty"), url("/utf8")});
  ASSERT_TRUE(program.terminal().waitFor(kQuestion));
  program.terminal().type("y\n");
  // Requests that came before the answer each ask; later ones do not.
  for (int more = 2; more <= 3 && program.terminal().waitFor(kQuestion, more); ++more) {
    program.terminal().type("y\n");
  }
  const OnTerminal::Result result = program.wait();
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_NE(result.shown.find("localhost"), std::string::npos);
  EXPECT_NE(result.shown.find(fingerprint()), std::string::npos) << result.shown;
  EXPECT_TRUE(result.isRestored);
}

TEST_F(TrustQuestion, WithAnythingElseIsRefused) {
  for (const char* answer : {"n\n", "\n", "maybe\n", "\x04"}) {
    OnTerminal program(HTTPPOOL_PROGRAM, {"get", url()});
    ASSERT_TRUE(program.terminal().waitFor(kQuestion));
    program.terminal().type(answer);
    EXPECT_EQ(program.wait().status, 1);
  }
  EXPECT_TRUE(server_.accesses().empty());
}

TEST_F(TrustQuestion, IsNotAskedWithNoTrust) {
  OnTerminal program(HTTPPOOL_PROGRAM, {"get", url(), "--no-trust"});
  const OnTerminal::Result result = program.wait();
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.shown.find(kQuestion), std::string::npos);
}

TEST_F(TrustQuestion, AboutAnotherHostIsNoQuestion) {
  test::NginxServer elsewhere({.certificate = authority_.wrongHost()});
  OnTerminal program(HTTPPOOL_PROGRAM, {"get", elsewhere.tlsUrl("/text")});
  const OnTerminal::Result result = program.wait();
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.shown.find("not made out to localhost"), std::string::npos) << result.shown;
  EXPECT_EQ(result.shown.find(kQuestion), std::string::npos);
}

TEST_F(TrustQuestion, EndsWithAnInterruptAndWithTheLimit) {
  OnTerminal interrupted(HTTPPOOL_PROGRAM, {"get", url()});
  ASSERT_TRUE(interrupted.terminal().waitFor(kQuestion));
  interrupted.terminal().type("\x03");
  EXPECT_EQ(interrupted.wait().status, 128 + SIGINT);

  OnTerminal limited(HTTPPOOL_PROGRAM, {"get", url(), "--timeout", "2"});
  ASSERT_TRUE(limited.terminal().waitFor(kQuestion));
  EXPECT_EQ(limited.wait().status, 1);
}

}  // namespace
}  // namespace tooltest
