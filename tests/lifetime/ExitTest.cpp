// The process ends, in every way there is, while requests stand everywhere a request can stand: with its own exit
// status, without a crash, without waiting for them, and without a notification afterwards.

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "tests/lifetime/Stations.h"
#include "tests/support/CertificateAuthority.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/NginxServer.h"
#include "tests/support/TemporaryFolder.h"

namespace test {
namespace {

using Ways = std::vector<std::string>;

/// Without what the address sanitizer says when a handshake stands still on its own stack and the process exits.
std::string withoutRemarks(std::string output) {
  const std::string end = "issues/189\n";
  for (std::size_t at = 0; (at = output.find("ASan is ignoring requested")) != std::string::npos;) {
    const std::size_t begin = output.rfind("==", output.rfind("==WARNING", at) - 1);
    const std::size_t behind = output.find(end, at);
    if (begin == std::string::npos || behind == std::string::npos) {
      return output;
    }
    output.erase(begin, behind + end.size() - begin);
  }
  return output;
}

/// Ends hosts one after another, before one server.
class Ends {
 public:
  void with(const std::string& way, const std::string& station, int count) {
    const std::string& program = way == "unload" ? loading_ : linked_;
    expectEnd(program, way, station, count);
  }
  void loadingWith(const std::string& way, const std::string& station, int count) {
    expectEnd(loading_, way, station, count);
  }

 private:
  void expectEnd(const std::string& program, const std::string& way, const std::string& station, int count) {
    SCOPED_TRACE(program + " " + way + " " + station + " " + std::to_string(count));
    TemporaryFolder folder;
    ChildProcess host({.arguments = {program, way, station, std::to_string(count), untrusted_.tlsUrl("/text"),
                                     folder.path()},
                       .workingFolder = folder.path(),
                       .outputFile = folder.file("output")});
    const auto end = host.wait(std::chrono::minutes(2));
    ASSERT_TRUE(end.has_value()) << "it hangs\n" << readFile(folder.file("output"));
    EXPECT_EQ(*end, (ChildProcess::End{.exitStatus = 0, .signal = 0})) << readFile(folder.file("output"));
    EXPECT_EQ(withoutRemarks(readFile(folder.file("output"))), "");
  }

  const std::string linked_ = EXIT_HOST_PROGRAM;
  const std::string loading_ = LOADING_EXIT_HOST_PROGRAM;
  CertificateAuthority authority_;
  NginxServer untrusted_{{.certificate = authority_.selfSigned()}};
};

constexpr int kNone = 0;
constexpr int kMany = LIFETIME_REQUESTS;
constexpr int kFew = 5;

class Exit : public testing::TestWithParam<std::string> {};

TEST_P(Exit, WithManyRequests) {
  Ends ends;
  for (const char* way : {"return", "notify", "thread", "quick"}) {
    ends.with(way, GetParam(), kMany);
  }
}

TEST_P(Exit, WhileTheHostGoesOnUsingTheLibrary) {
  Ends ends;
  for (const char* way : {"handlers", "locals", "statics"}) {
    ends.with(way, GetParam(), kMany);
  }
}

TEST_P(Exit, AfterTheLibraryWasClosed) {
  Ends ends;
  ends.with("unload", GetParam(), kMany);
  for (const char* way : {"return", "handlers", "statics"}) {
    ends.loadingWith(way, GetParam(), kFew);
  }
}

INSTANTIATE_TEST_SUITE_P(At, Exit, testing::ValuesIn(Stations::names()), [](const auto& info) {
  std::string name = info.param;
  std::erase(name, '-');
  return name;
});

TEST(ExitAlone, InTheCertificatePanel) {
  Ends ends;
  for (const char* way : {"exit", "thread", "quick", "immediately"}) {
    ends.with(way, "panel", kMany);
  }
}

TEST(ExitAlone, AtOnce) {
  Ends ends;
  for (const std::string& station : Stations::names()) {
    ends.with("immediately", station, kMany);
  }
}

TEST(ExitAlone, WithoutRequests) {
  Ends ends;
  for (const char* way : {"return", "exit", "quick", "immediately", "thread", "notify", "handlers", "locals",
                          "statics", "unload"}) {
    ends.with(way, "head", kNone);
    if (std::string(way) != "unload") {
      ends.loadingWith(way, "head", kNone);
    }
  }
}

}  // namespace
}  // namespace test
