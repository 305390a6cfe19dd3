#include "tests/support/CertificateAuthority.h"

#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"

namespace test {
namespace {

constexpr const char* kConfiguration = R"([ca]
default_ca = test
[test]
dir = .
database = index.txt
new_certs_dir = .
rand_serial = yes
default_md = sha256
policy = any
unique_subject = no
copy_extensions = none
[any]
organizationName = optional
commonName = optional
[req]
distinguished_name = subject
prompt = no
[subject]
CN = placeholder
)";

constexpr const char* kRootExtensions =
    "basicConstraints = critical,CA:TRUE\nkeyUsage = critical,keyCertSign,cRLSign\nsubjectKeyIdentifier = "
    "hash\n";

constexpr const char* kIntermediateExtensions =
    "basicConstraints = critical,CA:TRUE,pathlen:0\nkeyUsage = critical,keyCertSign\nsubjectKeyIdentifier = "
    "hash\n"
    "authorityKeyIdentifier = keyid\n";

std::string signedBy(const std::string& issuer) {
  return "-cert " + issuer + ".pem -keyfile " + issuer + ".key";
}

std::string subjectOf(const CertificateAuthority::Request& request) {
  return request.subject.empty() ? "/CN=" + request.name : request.subject;
}

/// RFC 4648 section 4, line ends left out.
std::string decodeBase64(const std::string& text) {
  static const std::string kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string bytes;
  unsigned bits = 0;
  int count = 0;
  for (const char digit : text) {
    const std::size_t value = kAlphabet.find(digit);
    if (value == std::string::npos) {
      continue;
    }
    bits = bits << 6 | static_cast<unsigned>(value);
    count += 6;
    if (count >= 8) {
      count -= 8;
      bytes += static_cast<char>(bits >> count & 0xFF);
    }
  }
  return bytes;
}

}  // namespace

CertificateAuthority::CertificateAuthority(const std::string& commonName) {
  writeFile(folder_.file("openssl.cnf"), kConfiguration);
  writeFile(folder_.file("index.txt"), "");
  makeRoot("root", commonName);
}

std::string CertificateAuthority::rootForServersFile() {
  run("x509 -in root.pem -addtrust serverAuth -trustout -out servers.pem");
  return folder_.file("servers.pem");
}

std::string CertificateAuthority::revocationsFile(const std::string& date) {
  run("ca -gencrl -config openssl.cnf " + signedBy("root") + " -crldays 3650 -out revocations.pem" +
      (date.empty() ? "" : " -crl_lastupdate " + date));
  return folder_.file("revocations.pem");
}

std::string CertificateAuthority::revocationsInDerFile() {
  revocationsFile();
  run("crl -in revocations.pem -outform DER -out revocations.der");
  return folder_.file("revocations.der");
}

std::string CertificateAuthority::revocationsPrefix() {
  run("x509 -in root.pem -noout -subject_hash -out hash.txt");
  const std::string hash = readFile(folder_.file("hash.txt"));
  return hash.substr(0, hash.find('\n')) + ".r";
}

std::string CertificateAuthority::rootAndRevocationsFile() {
  revocationsFile();
  writeFile(folder_.file("trusted.pem"), readFile(rootFile()));
  append("revocations.pem", "trusted.pem");
  return folder_.file("trusted.pem");
}

std::string CertificateAuthority::rootFolder() {
  return folderOf({rootFile()});
}

std::string CertificateAuthority::rootAndRevocationsFolder() {
  return folderOf({rootFile(), revocationsFile()});
}

std::string CertificateAuthority::folderOf(const std::vector<std::string>& files) {
  std::string folder = folder_.file("trusted");
  std::filesystem::create_directory(folder);
  for (const std::string& file : files) {
    std::filesystem::copy(file, folder);
  }
  run("rehash trusted");
  return folder;
}

CertificateAuthority::Leaf CertificateAuthority::issueByIntermediate(const Request& request) {
  makeIntermediate();
  Leaf leaf = issue(request, "intermediate");
  append("intermediate.pem", request.name + ".pem");
  return leaf;
}

CertificateAuthority::Leaf CertificateAuthority::issueSelfSigned(const Request& request) {
  const std::string& name = request.name;
  run("req -x509 -config openssl.cnf -days 3650 -nodes -newkey " + request.key + " -subj " +
      subjectOf(request) + " -addext subjectAltName=" + request.alternativeNames + " -keyout " + name +
      ".key -out " + name + ".pem");
  return {.chainFile = folder_.file(name + ".pem"), .keyFile = folder_.file(name + ".key")};
}

CertificateAuthority::Leaf CertificateAuthority::wrongAddress() {
  return issue({.name = "otheraddress", .alternativeNames = "DNS:localhost,DNS:127.0.0.1,IP:127.0.0.2"});
}

CertificateAuthority::Leaf CertificateAuthority::wrongHostAndExpired() {
  return issue({.name = "gone", .alternativeNames = "DNS:elsewhere.test", .notAfter = "20210101000000Z"});
}

CertificateAuthority::Leaf CertificateAuthority::unknownRoot() {
  makeRoot("stranger", "UnknownRoot");
  Leaf leaf = issue({.name = "unknown"}, "stranger");
  append("stranger.pem", "unknown.pem");
  return leaf;
}

CertificateAuthority::Leaf CertificateAuthority::missingIntermediate() {
  makeIntermediate();
  return issue({.name = "incomplete"}, "intermediate");
}

CertificateAuthority::Leaf CertificateAuthority::issuedByLeaf() {
  issue({.name = "pretender"}, "root");
  Leaf leaf = issue({.name = "child"}, "pretender");
  append("pretender.pem", "child.pem");
  return leaf;
}

CertificateAuthority::Leaf CertificateAuthority::issuedByRevoked() {
  makeIntermediate("disgraced");
  Leaf leaf = issue({.name = "orphan"}, "disgraced");
  append("disgraced.pem", "orphan.pem");
  revoke("disgraced");
  return leaf;
}

CertificateAuthority::Leaf CertificateAuthority::revoked() {
  Leaf leaf = issue({.name = "revoked"}, "root");
  revoke("revoked");
  return leaf;
}

std::vector<std::string> CertificateAuthority::derChain(const std::string& pemFile) {
  const std::string begin = "-----BEGIN CERTIFICATE-----";
  const std::string text = readFile(pemFile);
  std::vector<std::string> chain;
  for (std::size_t at = text.find(begin); at != std::string::npos; at = text.find(begin, at)) {
    at += begin.size();
    chain.push_back(decodeBase64(text.substr(at, text.find("-----END", at) - at)));
  }
  return chain;
}

CertificateAuthority::Leaf CertificateAuthority::issue(const Request& request, const std::string& issuer) {
  const std::string& name = request.name;
  run("req -new -config openssl.cnf -subj " + subjectOf(request) + " -nodes -newkey " + request.key +
      " -keyout " + name + ".key -out " + name + ".csr");
  const std::string alternativeNames =
      request.alternativeNames.empty() ? "" : "subjectAltName = " + request.alternativeNames + "\n";
  sign(name, signedBy(issuer),
       "basicConstraints = critical,CA:FALSE\nextendedKeyUsage = " + request.extendedKeyUsage + "\n" +
           alternativeNames,
       "-md " + request.digest + " -startdate " + request.notBefore + " -enddate " + request.notAfter);
  return {.chainFile = folder_.file(name + ".pem"), .keyFile = folder_.file(name + ".key")};
}

void CertificateAuthority::issueAuthority(const std::string& name, const std::string& commonName,
                                          const std::string& signer, const std::string& extensions) {
  run("req -new -config openssl.cnf -subj /CN=" + commonName + " -nodes -newkey " + Request().key +
      " -keyout " + name + ".key -out " + name + ".csr");
  sign(name, signer, extensions, "-startdate 20200101000000Z -enddate 20491231235959Z");
}

void CertificateAuthority::sign(const std::string& name, const std::string& signer,
                                const std::string& extensions, const std::string& options) {
  writeFile(folder_.file(name + ".ext"), extensions);
  run("ca -batch -notext -config openssl.cnf " + signer + " -in " + name + ".csr -out " + name +
      ".pem -extfile " + name + ".ext " + options);
}

void CertificateAuthority::makeRoot(const std::string& name, const std::string& commonName) {
  issueAuthority(name, commonName, "-selfsign -keyfile " + name + ".key", kRootExtensions);
}

void CertificateAuthority::makeIntermediate(const std::string& name) {
  if (!fileExists(folder_.file(name + ".pem"))) {
    issueAuthority(name, "Test-" + name, signedBy("root"), kIntermediateExtensions);
  }
}

void CertificateAuthority::revoke(const std::string& name) {
  run("ca -config openssl.cnf " + signedBy("root") + " -revoke " + name + ".pem");
}

void CertificateAuthority::append(const std::string& name, const std::string& to) {
  writeFile(folder_.file(to), readFile(folder_.file(to)) + readFile(folder_.file(name)));
}

void CertificateAuthority::run(const std::string& arguments) {
  std::vector<std::string> all = {"/usr/bin/openssl"};
  std::istringstream words(arguments);
  for (std::string word; words >> word;) {
    all.push_back(word);
  }
  const std::string output = folder_.file("output.txt");
  ChildProcess openssl({.arguments = all,
                        .environment = {{"OPENSSL_CONF", std::nullopt}},
                        .workingFolder = folder_.path(),
                        .outputFile = output});
  if (openssl.wait() != ChildProcess::End{.exitStatus = 0, .signal = 0}) {
    throw std::runtime_error("openssl " + arguments + ":\n" + readFile(output));
  }
}

}  // namespace test
