// Certificates that are not trusted: the request fails before a byte of it is sent.

#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/host/HostPool.h"
#include "tests/support/NginxServer.h"

namespace test {
namespace {

class Tls : public testing::Test {
 protected:
  void trustTestRoot() { setenv("SSL_CERT_FILE", authority_.rootFile().c_str(), 1); }

  void expectRefused(const CertificateAuthority::Leaf& leaf, const std::string& host = "localhost") {
    NginxServer server({.certificate = leaf});
    HostPool pool;
    EXPECT_EQ(pool.run({.url = server.tlsUrl("/text", host), .post = "secret"}), failed(6));
    EXPECT_TRUE(server.accesses().empty()) << "the server saw a request";
  }

  CertificateAuthority authority_;
};

TEST_F(Tls, TrustedIsDone) {
  trustTestRoot();
  NginxServer server({.certificate = authority_.good()});
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.tlsUrl("/text")}), done("Hello, pool!"));
  EXPECT_EQ(pool.run({.url = server.tlsUrl("/text", "127.0.0.1")}), done("Hello, pool!"));
  EXPECT_EQ(server.accesses("/text").size(), 2U);
}

TEST_F(Tls, UnknownRootIsRefused) {
  expectRefused(authority_.good());
}

TEST_F(Tls, SelfSignedIsRefused) {
  trustTestRoot();
  expectRefused(authority_.selfSigned());
}

TEST_F(Tls, ExpiredIsRefused) {
  trustTestRoot();
  expectRefused(authority_.expired());
}

TEST_F(Tls, NotYetValidIsRefused) {
  trustTestRoot();
  expectRefused(authority_.notYetValid());
}

TEST_F(Tls, WrongHostNameIsRefused) {
  trustTestRoot();
  expectRefused(authority_.wrongHost());
}

TEST_F(Tls, WrongAddressIsRefused) {
  trustTestRoot();
  expectRefused(authority_.issue({.name = "nameonly", .alternativeNames = "DNS:localhost"}), "127.0.0.1");
}

TEST_F(Tls, PlainHttpOnTheTlsPortFailsLikeAnyTlsFailure) {
  trustTestRoot();
  NginxServer server;
  HostPool pool;
  EXPECT_EQ(pool.run({.url = "https://127.0.0.1:" + std::to_string(server.port()) + "/text"}), failed(2));
}

}  // namespace
}  // namespace test
