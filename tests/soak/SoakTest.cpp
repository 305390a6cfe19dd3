// Every request ends once, as it must, and nothing is left of it.

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstdlib>
#include <iostream>
#include <string>

#include "foundation/ZEP_Foundation.h"
#include "tests/soak/Behaviours.h"
#include "tests/soak/Fleet.h"
#include "tests/soak/ProcessState.h"
#include "tests/support/CertificateAuthority.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/WaitUntil.h"

namespace test {
namespace {

std::size_t requests() {
  const char* wanted = std::getenv("HTTPPOOL_SOAK_REQUESTS");
  return wanted != nullptr ? std::strtoull(wanted, nullptr, 10) : std::size_t{SOAK_REQUESTS};
}

class Soak : public testing::Test {
 protected:
  Soak() {
    for (const char* name : {"http_proxy", "https_proxy", "all_proxy", "no_proxy", "HTTP_PROXY",
                             "HTTPS_PROXY", "ALL_PROXY", "NO_PROXY", "SSL_CERT_DIR", "ZEP_URL_TIMEOUT_MS"}) {
      unsetenv(name);
    }
    setenv("SSL_CERT_FILE", authority.rootFile().c_str(), 1);
  }

  /// Waits until what the process keeps for a while is gone: connections, which the server closes, and threads.
  ProcessState atRest(Fleet& fleet) {
    EXPECT_TRUE(server.waitForOpenConnections(0));
    // curl lets go of closed connections when the next request comes.
    EXPECT_TRUE(fleet.run(1));
    EXPECT_TRUE(server.waitForOpenConnections(0));
    EXPECT_TRUE(waitUntil([] { return requestThreads() == 0; }, std::chrono::minutes(2)));
    return ProcessState::now();
  }

  CertificateAuthority authority;
  TemporaryFolder folder;
  NginxServer server{{.certificate = authority.good(), .extraLocations = Behaviours::kLocations}};
  Behaviours behaviours{server, folder.path()};
};

TEST_F(Soak, EveryRequestEndsOnceAndNothingIsLeft) {
  const std::size_t all = requests();
  Fleet fleet(behaviours);
  // Everything that is made once and kept is made in here.
  ASSERT_TRUE(fleet.run(all / 20 + 2000));
  const ProcessState before = atRest(fleet);
  ASSERT_TRUE(fleet.run(all));
  const ProcessState after = atRest(fleet);

  EXPECT_EQ(fleet.faults(), std::vector<std::string>());
  EXPECT_GE(fleet.launched(), all);
  EXPECT_EQ(fleet.ended() + fleet.givenUp(), fleet.launched());
  EXPECT_GE(fleet.kinds().size(), 20U) << "kinds of errands";

  EXPECT_EQ(after.threads, before.threads);
  // The last request's connections, of which there may be none.
  EXPECT_LE(after.descriptors, before.descriptors + 2);
  EXPECT_LT(after.allocated, before.allocated + 512 * 1024);
  std::cout << fleet.launched() << " requests, " << fleet.givenUp() << " of them given up; allocated "
            << before.allocated << " bytes before, " << after.allocated << " after; descriptors "
            << before.descriptors << ", " << after.descriptors << "; threads " << before.threads << ", "
            << after.threads << "\n";
}

}  // namespace
}  // namespace test
