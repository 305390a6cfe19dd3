#include "tests/support/CertificateAuthority.h"

#include <sstream>
#include <stdexcept>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"

namespace test {
namespace {

constexpr const char* kNewKey = " -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes ";

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
commonName = supplied
[req]
distinguished_name = subject
prompt = no
[subject]
CN = placeholder
[root]
basicConstraints = critical,CA:TRUE
keyUsage = critical,keyCertSign,cRLSign
subjectKeyIdentifier = hash
)";

}  // namespace

CertificateAuthority::CertificateAuthority() {
  writeFile(folder_.file("openssl.cnf"), kConfiguration);
  writeFile(folder_.file("index.txt"), "");
  run(std::string("req -x509 -config openssl.cnf -extensions root -days 3650 -subj /CN=TestRoot") + kNewKey +
      "-keyout root.key -out root.pem");
}

CertificateAuthority::Leaf CertificateAuthority::issue(const Request& request) {
  const std::string& name = request.name;
  writeFile(folder_.file(name + ".ext"),
            "basicConstraints = critical,CA:FALSE\nsubjectAltName = " + request.alternativeNames +
                "\nextendedKeyUsage = " + request.extendedKeyUsage + "\n");
  run("req -new -config openssl.cnf -subj /CN=" + name + kNewKey + "-keyout " + name + ".key -out " + name +
      ".csr");
  run("ca -batch -notext -config openssl.cnf -cert root.pem -keyfile root.key -in " + name + ".csr -out " +
      name + ".pem -extfile " + name + ".ext -startdate " + request.notBefore + " -enddate " +
      request.notAfter);
  return {.chainFile = folder_.file(name + ".pem"), .keyFile = folder_.file(name + ".key")};
}

CertificateAuthority::Leaf CertificateAuthority::issueSelfSigned(const Request& request) {
  const std::string& name = request.name;
  run("req -x509 -config openssl.cnf -days 3650 -subj /CN=" + name + kNewKey + "-addext subjectAltName=" +
      request.alternativeNames + " -keyout " + name + ".key -out " + name + ".pem");
  return {.chainFile = folder_.file(name + ".pem"), .keyFile = folder_.file(name + ".key")};
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
