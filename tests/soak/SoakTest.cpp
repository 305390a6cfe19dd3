// Every request ends once, as it must, and nothing is left of it.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/ZEP_Foundation.h"
#include "tests/soak/Behaviours.h"
#include "tests/soak/FinalStates.h"
#include "tests/soak/Fleet.h"
#include "tests/soak/ProcessState.h"
#include "tests/soak/SystemFaults.h"
#include "tests/soak/TunnelProxy.h"
#include "tests/support/CertificateAuthority.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/WaitUntil.h"

namespace test {
namespace {

std::size_t requests() {
  const char* wanted = std::getenv("HTTPPOOL_SOAK_REQUESTS");
  return wanted != nullptr ? std::strtoull(wanted, nullptr, 10) : std::size_t{SOAK_REQUESTS};
}

// --- The host's answers. ---

/// Remembering is the host's own, so every request asks.
void askedForPassword(const char*, const void*, const char*, void*) {
  const std::string answer = std::string(R"({"Username":")") + Behaviours::kUser + R"(","Password":")" +
                             Behaviours::kPassword + R"(","Remember":true})";
  ZEP_Notification_Post("HTTPAuthenticationDatasource", nullptr, answer.c_str());
}

void askedForTexts(const char*, const void*, const char*, void*) {
  ZEP_Notification_Post("HTTPLocalizationDatasource", nullptr, nullptr);
}

int panels = 0;

int askedForTrust(const char* request, void*) {
  ++panels;
  const std::string accepted = std::string(R"("host":")") + Behaviours::kAcceptedHost + "\"";
  return std::string_view(request).find(accepted) != std::string_view::npos ? 1 : 0;
}

// --- What the servers have seen. ---

/// How many requests of each number there were.
std::vector<int> received(const std::vector<NginxServer*>& servers, std::size_t numbers) {
  std::vector<int> counts(numbers);
  for (NginxServer* server : servers) {
    for (const NginxServer::Access& access : server->accesses()) {
      const std::string_view id = "id=";
      const std::size_t at = access.target.find(id);
      if (at != std::string::npos) {
        ++counts.at(std::strtoull(access.target.c_str() + at + id.size(), nullptr, 10));
      }
    }
  }
  return counts;
}

/// The errands of which the servers have received too little or too much.
std::vector<std::string> wronglyReceived(const Fleet& fleet, const std::vector<int>& counts) {
  std::vector<std::string> wrong;
  constexpr std::size_t kMost = 20;
  for (std::size_t number = 0; number < counts.size() && wrong.size() < kMost; ++number) {
    const Requests& expected = fleet.requests()[number];
    if (counts[number] < expected.least || counts[number] > expected.most) {
      wrong.push_back(std::string(fleet.kindOf()[number]) + ": " + std::to_string(counts[number]) +
                      " requests instead of " + std::to_string(expected.least) + " to " +
                      std::to_string(expected.most));
    }
  }
  return wrong;
}

std::vector<std::string> kindsThatRan(const Fleet& fleet) {
  std::vector<std::string> kinds;
  for (const auto& [kind, count] : fleet.kinds()) {
    kinds.push_back(kind);
  }
  return kinds;
}

std::vector<std::string> filesIn(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  return names;
}

class Soak : public testing::Test {
 protected:
  Soak() {
    for (const char* name :
         {"all_proxy", "HTTP_PROXY", "HTTPS_PROXY", "ALL_PROXY", "NO_PROXY", "SSL_CERT_DIR"}) {
      unsetenv(name);
    }
    setenv("SSL_CERT_FILE", authority.rootFile().c_str(), 1);
    setenv("ZEP_URL_TIMEOUT_MS", SOAK_IDLE_MS, 1);
    setenv("http_proxy", server.url("").c_str(), 1);
    setenv("https_proxy", tunnel.url().c_str(), 1);
    setenv("no_proxy", (std::string("127.0.0.1,localhost,") + kNoSuchHost + "," + kNoNameServer).c_str(), 1);
    ZEP_Notification_AddObserver("HTTPAuthenticationRequired", &askedForPassword, nullptr);
    ZEP_Notification_AddObserver("HTTPLocalizationRequired", &askedForTexts, nullptr);
    ZEP_TrustPanel_SetRunner(&askedForTrust, nullptr);
  }

  /// Waits until what the process keeps for a while is gone: connections, which the servers close, and threads.
  ProcessState atRest(Fleet& fleet) {
    EXPECT_TRUE(areLeft());
    // curl lets go of closed connections when the next request comes, and keeps that one's.
    EXPECT_TRUE(fleet.runOne(&Behaviours::plain));
    EXPECT_TRUE(areLeft());
    EXPECT_TRUE(waitUntil([] { return requestThreads() == 0; }, std::chrono::minutes(2)));
    return ProcessState::now();
  }
  bool areLeft() {
    return server.waitForOpenConnections(0) && untrusted.waitForOpenConnections(0) &&
           waitUntil([this] { return !tunnel.hasTunnels(); });
  }

  TunnelProxy tunnel;
  CertificateAuthority authority;
  TemporaryFolder folder;
  NginxServer server{
      {.certificate = authority.issue({.name = "soak", .alternativeNames = Behaviours::kServersNames}),
       .extraLocations = Behaviours::kLocations}};
  NginxServer untrusted{{.certificate = authority.selfSigned(), .extraLocations = Behaviours::kLocations}};
  Behaviours behaviours{{.trusted = server, .untrusted = untrusted}, folder.path()};
};

TEST_F(Soak, EveryRequestEndsOnceAndNothingIsLeft) {
  const std::size_t all = requests();
  const std::size_t first = all / 4;
  Fleet fleet(behaviours, all + 1000);
  // OpenSSL finds out about the authority's certificate once, with a lock that the thread sanitizer does not see.
  ASSERT_TRUE(fleet.runOne(&Behaviours::overTls)) << testing::PrintToString(fleet.faults());
  // Everything that is made once and kept is made in here, and what is kept of the most that ever ran at once.
  ASSERT_TRUE(fleet.run(first)) << testing::PrintToString(fleet.faults());
  const ProcessState before = atRest(fleet);

  ASSERT_TRUE(fleet.run(all - first)) << testing::PrintToString(fleet.faults());
  const ProcessState after = atRest(fleet);

  EXPECT_EQ(fleet.faults(), std::vector<std::string>());
  EXPECT_GE(fleet.launched(), all);
  EXPECT_EQ(kindsThatRan(fleet), Behaviours::names());
  EXPECT_GT(fleet.withoutThread(), 0U);
  EXPECT_GT(refusedSockets(), 0);
  EXPECT_GT(panels, 0);
  EXPECT_EQ(filesIn(folder.path()), std::vector<std::string>{"file"});

  // Each final state was reported once. Those of destroyed pools may have been, unseen.
  EXPECT_EQ(surplusFinalStates(), 0U);
  EXPECT_GE(reportedFinalStates(), fleet.ended() - fleet.failedInLaunch());
  EXPECT_LE(reportedFinalStates(), fleet.ended() - fleet.failedInLaunch() + fleet.destroyed());
  EXPECT_EQ(wronglyReceived(fleet, received({&server, &untrusted}, fleet.launched())),
            std::vector<std::string>());

  EXPECT_EQ(after.threads, before.threads);
  EXPECT_EQ(after.descriptors, before.descriptors);
  // The last request's, and curl 7.88 takes TLS connections with something left to read for alive until it uses them again.
  EXPECT_LE(after.deadConnections, 5U);
  // Of most rare kinds there were some 400; 1 KB of each would show.
  EXPECT_LT(after.allocated, before.allocated + std::size_t{128} * 1024);
  std::cout << fleet.launched() << " requests, " << fleet.givenUp() << " of them given up, "
            << refusedSockets() << " sockets and " << fleet.withoutThread() << " threads refused; allocated "
            << before.allocated << " bytes before, " << after.allocated << " after; descriptors "
            << before.descriptors.size() << ", " << after.descriptors.size() << "; threads " << before.threads
            << ", " << after.threads << "\n";
}

}  // namespace
}  // namespace test
