// What the panel says against a certificate.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "tests/support/CertificateAuthority.h"
#include "tests/support/Files.h"
#include "tools/zep-trust-panel/Reasons.h"

namespace test {
namespace {

using Reasons = std::vector<std::string>;

/// An authority that this process trusts: its store is read once, with the first evaluation.
CertificateAuthority& trusted() {
  static auto* const authority = [] {
    auto* made = new CertificateAuthority;
    setenv("SSL_CERT_FILE", made->rootFile().c_str(), 1);
    return made;
  }();
  return *authority;
}

Reasons reasonsOf(const std::vector<std::string>& files, const std::string& host) {
  trusted();
  std::vector<std::string> pem;
  for (const std::string& file : files) {
    pem.push_back(readFile(file));
  }
  const auto chain = CertificateChain::fromPem(pem);
  return chain ? reasonsAgainst(*chain, host) : Reasons{"no chain"};
}

TEST(Reasons, NoneAgainstAGoodCertificate) {
  EXPECT_EQ(reasonsOf({trusted().good().chainFile}, "localhost"), Reasons{});
}

TEST(Reasons, AHostThatIsNotNamed) {
  EXPECT_EQ(reasonsOf({trusted().good().chainFile}, "other.test"),
            Reasons{"The certificate does not name “other.test”. It belongs to “good”."});
}

TEST(Reasons, TheDates) {
  EXPECT_EQ(reasonsOf({trusted().expired().chainFile}, "localhost"),
            Reasons{"The certificate expired on 1 January 2021."});
  EXPECT_EQ(reasonsOf({trusted().notYetValid().chainFile}, "localhost"),
            Reasons{"The certificate is not valid before 1 January 2048."});
}

TEST(Reasons, NobodyVouches) {
  EXPECT_EQ(reasonsOf({trusted().selfSigned().chainFile}, "localhost"),
            Reasons{"The certificate is self-signed: no authority vouches for it."});
}

TEST(Reasons, AnUnknownAuthoritySentAlongOrNot) {
  CertificateAuthority unknown;
  const std::string leaf = unknown.good().chainFile;
  const Reasons expected{"The certificate was issued by an unknown authority, “TestRoot”."};
  EXPECT_EQ(reasonsOf({leaf}, "localhost"), expected);
  EXPECT_EQ(reasonsOf({leaf, unknown.rootFile()}, "localhost"), expected);
}

TEST(Reasons, SeveralAtOnceTheHostFirst) {
  CertificateAuthority unknown;
  EXPECT_EQ(reasonsOf({unknown.expired().chainFile}, "other.test"),
            (Reasons{"The certificate does not name “other.test”. It belongs to “expired”.",
                     "The certificate expired on 1 January 2021.",
                     "The certificate was issued by an unknown authority, “TestRoot”."}));
}

TEST(Reasons, ALongHostShowsItsEnd) {
  const Reasons reasons = reasonsOf({trusted().good().chainFile}, std::string(1000, 'a') + ".evil.test");
  ASSERT_EQ(reasons.size(), 1U);
  EXPECT_NE(reasons[0].find("a.evil.test”"), std::string::npos) << reasons[0];
  EXPECT_LT(reasons[0].size(), 500U);
}

TEST(CertificateChain, TellsWhatStandsInACertificate) {
  const auto chain = CertificateChain::fromPem({readFile(trusted().good().chainFile)});
  ASSERT_TRUE(chain);
  EXPECT_EQ(chain->size(), 1U);
  EXPECT_EQ(chain->name(0), "good");
  EXPECT_EQ(chain->wholeName(0), "CN=good");
  EXPECT_EQ(chain->issuerName(0), "TestRoot");
  EXPECT_EQ(chain->wholeIssuerName(0), "CN=TestRoot");
  EXPECT_EQ(chain->firstDay(0), "1 January 2020");
  EXPECT_EQ(chain->lastDay(0), "31 December 2049");
  EXPECT_EQ(chain->fingerprint(0).size(), 32U * 3 - 1);
}

TEST(CertificateChain, RefusesWhatIsNone) {
  EXPECT_FALSE(CertificateChain::fromPem({}));
  EXPECT_FALSE(CertificateChain::fromPem({"-----END CERTIFICATE----------BEGIN CERTIFICATE-----"}));
  EXPECT_FALSE(CertificateChain::fromPem({readFile(trusted().good().chainFile), "junk"}));
}

}  // namespace
}  // namespace test
