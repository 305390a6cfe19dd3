// Hosts of other kinds, as programs of their own.

#include <gtest/gtest.h>

#include "tests/support/CertificateAuthority.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/NginxServer.h"
#include "tests/support/RawServer.h"
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

TEST(Program, OfTheReadmeSignsIn) {
  struct Case {
    const char* authorization;
    const char* output;
  };
  // alice:secret, which the host gives, and another one, whose refusal it answers with a skip.
  for (const Case& one : {Case{"Basic YWxpY2U6c2VjcmV0", "3: in\n"},
                          Case{"Basic Ym9iOm90aGVy", "5: {\"errorID\":3,\"errorReason\":0}\n"}}) {
    RawServer server([&](RawServer::Connection& connection) {
      for (std::string head = connection.readRequest(); !head.empty(); head = connection.readRequest()) {
        const bool isIn = head.find(one.authorization) != std::string::npos;
        connection.send(
            isIn ? "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nin"
                 : "HTTP/1.1 401 No\r\nWWW-Authenticate: Basic realm=\"r\"\r\nContent-Length: 0\r\n\r\n");
      }
    });
    TemporaryFolder folder;
    ChildProcess host(
        {.arguments = {README_SIGN_IN_HOST_PROGRAM, server.url("/")}, .outputFile = folder.file("output")});
    EXPECT_EQ(host.wait().value_or(ChildProcess::End{}), (ChildProcess::End{.exitStatus = 0}));
    EXPECT_EQ(readFile(folder.file("output")), one.output);
  }
}

TEST(Program, OfTheReadmeDeclinesAnUntrustedServer) {
  CertificateAuthority authority;
  NginxServer server({.certificate = authority.selfSigned()});
  TemporaryFolder folder;
  ChildProcess host({.arguments = {README_SIGN_IN_HOST_PROGRAM, server.tlsUrl("/text")},
                     .outputFile = folder.file("output")});
  EXPECT_EQ(host.wait().value_or(ChildProcess::End{}), (ChildProcess::End{.exitStatus = 0}));
  const std::string output = readFile(folder.file("output"));
  EXPECT_NE(output.find("not trusted: {\"panel\":\"trust\""), std::string::npos) << output;
  EXPECT_TRUE(output.ends_with("5: {\"errorID\":3,\"errorReason\":0}\n")) << output;
  EXPECT_TRUE(server.accesses().empty());
}

TEST(Program, WithQtsEventLoop) {
  NginxServer server;
  EXPECT_EQ(printedBy({QT_HOST_PROGRAM, server.url("/text")}), "status 3\nHello, pool!");
  EXPECT_EQ(printedBy({QT_HOST_PROGRAM, server.url("/status/500")}),
            "status 5\n{\"errorID\":2,\"errorReason\":0}");
}

}  // namespace
}  // namespace test
