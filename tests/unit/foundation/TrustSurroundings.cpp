#include "tests/unit/foundation/TrustSurroundings.h"

#include <glib.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "tests/support/Files.h"

TrustSurroundings& TrustSurroundings::shared() {
  static TrustSurroundings surroundings;
  return surroundings;
}

TrustSurroundings::TrustSurroundings()
    : revoked_(authority_.revoked()),
      revokedIssuersLeaf_(authority_.issuedByRevoked()),
      storedLeaf_(stranger_.good()) {
  const std::string chain = test::readFile(revokedIssuersLeaf_.chainFile);
  test::writeFile(folder_.file("store.pem"), test::readFile(authority_.rootAndRevocationsFile()) +
                                                 test::readFile(storedLeaf_.chainFile) +
                                                 chain.substr(chain.rfind("-----BEGIN")));
  setenv("SSL_CERT_FILE", folder_.file("store.pem").c_str(), 1);
  setenv("SSL_CERT_DIR", (folder_.file("none") + ":" + folder_.path()).c_str(), 1);
  setenv("XDG_CONFIG_HOME", folder_.path().c_str(), 1);
  if (g_get_user_config_dir() != folder_.path()) {
    throw std::runtime_error("the user's configuration folder was looked up before it could be replaced");
  }
  mkdir(folder_.file("zep").c_str(), 0700);
}

void TrustSurroundings::writeSettings(const std::string& content) {
  test::writeFile(settingsFile() + ".new", content);
  chmod((settingsFile() + ".new").c_str(), 0600);
  if (std::rename((settingsFile() + ".new").c_str(), settingsFile().c_str()) != 0) {
    throw std::runtime_error("the trust settings cannot be replaced");
  }
}

void TrustSurroundings::removeSettings() {
  std::remove(settingsFile().c_str());
}
