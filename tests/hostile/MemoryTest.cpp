// Hosts that get no memory, at each allocation of a request.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/CertificateAuthority.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/NginxServer.h"
#include "tests/support/TemporaryFolder.h"

namespace test {
namespace {

/// What memory_host has found: what was wrong, and how many processes there were and met a refusal.
struct Sweep {
  std::string wrong;
  int processes = 0;
  int refusals = 0;
};

/// `count` allocations in a row are refused from the n-th on, for each n below `most`.
Sweep sweep(const std::string& url, int most, int count, const std::string& request,
            const std::string& threads, const std::string& authorities = {}) {
  TemporaryFolder folder;
  ChildProcess host({.arguments = {MEMORY_HOST_PROGRAM, url, "0", std::to_string(most), "1",
                                   std::to_string(count), request, threads},
                     .environment = {{"SSL_CERT_FILE", authorities}},
                     .outputFile = folder.file("output")});
  EXPECT_EQ(host.wait(std::chrono::minutes(4)), (ChildProcess::End{.exitStatus = 0}));
  // The libraries beneath say something of their own.
  Sweep swept;
  std::istringstream said(readFile(folder.file("output")));
  for (std::string line; std::getline(said, line);) {
    if (line.starts_with("refused ")) {
      swept.wrong += line + "\n";
    } else {
      std::sscanf(line.c_str(), "%d children, %d refusals", &swept.processes, &swept.refusals);
    }
  }
  return swept;
}

class RefusedMemory : public testing::Test {
 protected:
  /// More refusals than `fewest`, and none any more at the end of the sweep, which so has come to the end of the
  /// request.
  static void expectNoHarm(const Sweep& swept, int most, int fewest) {
    EXPECT_EQ(swept.wrong, "");
    EXPECT_EQ(swept.processes, most);
    EXPECT_GT(swept.refusals, fewest);
    EXPECT_LT(swept.refusals, most);
  }

  CertificateAuthority authority_;
  NginxServer server_{{.certificate = authority_.good(),
                       .extraLocations = "location = /good { return 200 good; }\n"
                                         "location = /moved { return 302 /good; }\n"}};
};

TEST_F(RefusedMemory, OnTheHostsThreadEndsNeitherTheHostNorTheNextRequest) {
  for (const char* request : {"warm", "cold"}) {
    SCOPED_TRACE(request);
    expectNoHarm(sweep(server_.url("/good"), 80, 1, request, "host"), 80, 20);
  }
}

TEST_F(RefusedMemory, OnTheOtherThreadsEndsNeitherTheHostNorTheNextRequest) {
  for (const char* request : {"warm", "cold"}) {
    SCOPED_TRACE(request);
    expectNoHarm(sweep(server_.url("/moved"), 420, 1, request, "others"), 420, 150);
  }
}

TEST_F(RefusedMemory, ForAWhileOnTheOtherThreadsEndsNeitherTheHostNorTheNextRequest) {
  expectNoHarm(sweep(server_.url("/moved"), 420, 30, "warm", "others"), 420, 150);
}

TEST_F(RefusedMemory, OverTLSAndHttp2EndsNeitherTheHostNorTheNextRequest) {
  expectNoHarm(sweep(server_.tlsUrl("/moved"), 400, 1, "warm", "others", authority_.rootFile()), 400, 150);
}

/// trust_memory_host with each number of refusals in a row.
void expectNoServerPasses(const std::vector<std::string>& lists,
                          const std::map<std::string, std::optional<std::string>>& environment,
                          const CertificateAuthority::Leaf& leaf) {
  const TemporaryFolder folder;
  writeFile(folder.file("leaf"), CertificateAuthority::derChain(leaf.chainFile).front());
  for (const char* count : {"1", "2", "30"}) {
    SCOPED_TRACE(count);
    std::vector<std::string> arguments = {TRUST_MEMORY_HOST_PROGRAM, folder.file("leaf"), count};
    if (!lists.empty()) {
      std::filesystem::copy_file(lists[0], folder.file("new"),
                                 std::filesystem::copy_options::overwrite_existing);
      std::filesystem::remove(lists[1]);
      arguments.insert(arguments.end(), {folder.file("new"), lists[1]});
    }
    ChildProcess host({.arguments = arguments, .environment = environment, .outputFile = folder.file(count)});
    EXPECT_EQ(host.wait(std::chrono::minutes(4)), (ChildProcess::End{.exitStatus = 0}));
    int evaluations = 0;
    const std::string said = readFile(folder.file(count));
    std::sscanf(said.c_str(), "%d evaluations", &evaluations);
    EXPECT_GT(evaluations, 100) << said;
  }
}

/// The lists are known. An older one does not know of the server.
TEST_F(RefusedMemory, LetsNoRevokedServerPass) {
  const TemporaryFolder folder;
  const std::string older = readFile(authority_.revocationsFile("20200102000000Z"));
  const CertificateAuthority::Leaf leaf = authority_.revoked();
  const std::string store = folder.file("store");
  writeFile(store, older + readFile(authority_.rootAndRevocationsFile()));
  expectNoServerPasses({}, {{"SSL_CERT_FILE", store}, {"XDG_CONFIG_HOME", folder.path()}}, leaf);
}

/// OpenSSL by itself looks for no list in DER in one of many folders.
TEST_F(RefusedMemory, LetsNoServerPassThatANewListRevokes) {
  const TemporaryFolder folder;
  const CertificateAuthority::Leaf leaf = authority_.revoked();
  expectNoServerPasses({authority_.revocationsInDerFile(), folder.file(authority_.revocationsPrefix() + "0")},
                       {{"SSL_CERT_FILE", authority_.rootFile()},
                        {"SSL_CERT_DIR", folder.file("none") + ":" + folder.path()},
                        {"XDG_CONFIG_HOME", folder.path()}},
                       leaf);
}

}  // namespace
}  // namespace test
