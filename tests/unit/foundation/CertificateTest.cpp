// Certificates as values.

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "foundation/security/Certificate.h"
#include "tests/support/CertificateAuthority.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

namespace foundation {
namespace {

class CertificateTest : public testing::Test {
 protected:
  static Certificate load(const std::string& file) {
    return Certificate::fromDER(test::CertificateAuthority::derChain(file).at(0)).value();
  }

  /// What the openssl program says of the certificate.
  std::string openssl(const std::string& file, const std::vector<std::string>& words) {
    std::vector<std::string> arguments = {"/usr/bin/openssl", "x509", "-in", file, "-noout"};
    arguments.insert(arguments.end(), words.begin(), words.end());
    const std::string output = folder_.file("output.txt");
    std::remove(output.c_str());
    test::ChildProcess program({.arguments = arguments, .outputFile = output});
    EXPECT_EQ(program.wait(), (test::ChildProcess::End{.exitStatus = 0, .signal = 0}));
    return test::readFile(output);
  }

  std::string fingerprint(const std::string& file, const std::string& digest) {
    std::string text = openssl(file, {"-fingerprint", digest});
    text.erase(0, text.find('=') + 1);
    std::erase_if(text, [](char letter) { return letter == ':' || letter == '\n'; });
    return text;
  }

  Certificate withSubject(const std::string& name, const std::string& subject, const std::string& names) {
    return load(
        authority_.issueSelfSigned({.name = name, .alternativeNames = names, .subject = subject}).chainFile);
  }

  test::TemporaryFolder folder_;
  test::CertificateAuthority authority_;
};

TEST_F(CertificateTest, KeepsItsBytes) {
  const std::string file = authority_.good().chainFile;
  const std::string der = test::CertificateAuthority::derChain(file).at(0);
  const Certificate certificate = Certificate::fromDER(der).value();
  EXPECT_EQ(certificate.der(), der);
  EXPECT_EQ(certificate.pem(), test::readFile(file));
}

TEST_F(CertificateTest, HasTheDigestsThatOpensslPrints) {
  const std::string file = authority_.good().chainFile;
  const Certificate certificate = load(file);
  EXPECT_EQ(certificate.sha1().size(), 40U);
  EXPECT_EQ(certificate.sha1(), fingerprint(file, "-sha1"));
  EXPECT_EQ(certificate.sha256().size(), 64U);
  EXPECT_EQ(certificate.sha256(), fingerprint(file, "-sha256"));
}

TEST_F(CertificateTest, ComparesByItsBytes) {
  const std::string file = authority_.good().chainFile;
  const Certificate certificate = load(file);
  EXPECT_EQ(certificate, load(file));
  EXPECT_NE(certificate, load(authority_.expired().chainFile));
}

TEST_F(CertificateTest, RefusesWhatIsNotExactlyOne) {
  const std::string der = test::CertificateAuthority::derChain(authority_.good().chainFile).at(0);
  ASSERT_TRUE(Certificate::fromDER(der));
  EXPECT_FALSE(Certificate::fromDER(""));
  EXPECT_FALSE(Certificate::fromDER("garbage"));
  EXPECT_FALSE(Certificate::fromDER(der + "x"));
  EXPECT_FALSE(Certificate::fromDER(std::string(5000, '\0')));
  EXPECT_FALSE(Certificate::fromDER(std::string(5000, '\x30')));
  for (std::size_t length = 0; length < der.size(); ++length) {
    EXPECT_FALSE(Certificate::fromDER(der.substr(0, length))) << length;
  }
}

TEST_F(CertificateTest, IsNamedByItsCommonNameElseByTheFirstNameThereIs) {
  EXPECT_EQ(withSubject("both", "/O=Acme/CN=www.acme.test", "DNS:a.test").subjectSummary(), "www.acme.test");
  EXPECT_EQ(withSubject("several", "/CN=outer/CN=inner", "DNS:a.test").subjectSummary(), "inner");
  EXPECT_EQ(withSubject("organisation", "/O=Acme/OU=Web", "DNS:a.test").subjectSummary(), "Acme");
  EXPECT_EQ(withSubject("nobody", "/", "IP:127.0.0.1,DNS:first.test,DNS:second.test").subjectSummary(),
            "first.test");
  EXPECT_EQ(withSubject("nothing", "/", "IP:127.0.0.1").subjectSummary(), "");
  EXPECT_EQ(withSubject("bell", "/CN=be\all", "DNS:a.test").subjectSummary(), "be\xEF\xBF\xBDll");
}

}  // namespace
}  // namespace foundation
