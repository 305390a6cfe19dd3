// The program behind the built-in panel: how the library deals with one that behaves in any way, where it finds it,
// and what it says when it is started by hand.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "foundation/panel/PanelRequest.h"
#include "foundation/panel/TrustPanelRunner.h"
#include "tests/panel/Warnings.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/WaitUntil.h"

namespace test {
namespace {

using foundation::PanelKind;
using foundation::PanelRequest;

const PanelRequest kRequest = {.kind = PanelKind::Trust,
                               .host = "panel.test",
                               .message = "m",
                               .informativeText = "i",
                               .alternateButtonTitle = "a",
                               .certificates = {"c"}};

void writeProgram(const std::string& path, const std::string& script) {
  writeFile(path, "#!/bin/sh\n" + script + "\n");
  ASSERT_EQ(chmod(path.c_str(), 0755), 0);
}

class PanelProgram : public testing::Test {
 protected:
  ~PanelProgram() override { unsetenv("ZEP_TRUST_PANEL"); }

  /// The answer of a panel that such a shell script shows.
  bool answerOf(const std::string& script, const PanelRequest& request = kRequest) {
    const std::string path = folder.file("panel");
    writeProgram(path, script);
    setenv("ZEP_TRUST_PANEL", path.c_str(), 1);
    return foundation::runPanel(request);
  }

  Warnings warnings;
  TemporaryFolder folder;
};

struct Behaviour {
  const char* name;
  const char* script;
  bool isConfirmed;
  const char* warning;
};

void PrintTo(const Behaviour& behaviour, std::ostream* out) {
  *out << behaviour.name;
}

class PanelProgramBehaviour : public PanelProgram, public testing::WithParamInterface<Behaviour> {};

TEST_P(PanelProgramBehaviour, IsConfirmedOrNot) {
  EXPECT_EQ(answerOf(GetParam().script), GetParam().isConfirmed);
  const std::string warning = GetParam().warning;
  EXPECT_EQ(warnings.text(),
            warning.empty() ? warning : "certificate panel not shown: its program " + warning + "\n");
}

constexpr const char* kNoConfirmation = "ended with status 0";

INSTANTIATE_TEST_SUITE_P(
    All, PanelProgramBehaviour,
    testing::Values(Behaviour{"Confirms", "read line; echo confirmed", true, ""},
                    Behaviour{"ConfirmsWithoutReading", "echo confirmed", true, ""},
                    Behaviour{"ConfirmsInPieces", "printf conf; sleep 0.1; echo irmed", true, ""},
                    Behaviour{"Declines", "read line; exit 1", false, ""},
                    Behaviour{"ConfirmsAndDeclines", "echo confirmed; exit 1", false, ""},
                    Behaviour{"CannotShow", "echo confirmed; exit 2", false, "ended with status 2"},
                    Behaviour{"SaysNothing", "read line", false, kNoConfirmation},
                    Behaviour{"SaysTooLittle", "printf confirmed", false, kNoConfirmation},
                    Behaviour{"SaysTooMuch", "echo confirmed; printf x", false, kNoConfirmation},
                    Behaviour{"SaysItTwice", "echo confirmed; echo confirmed", false, kNoConfirmation},
                    Behaviour{"SaysItLate", "echo; echo confirmed", false, kNoConfirmation},
                    Behaviour{"SaysVeryMuch", "echo confirmed; head -c 5000000 /dev/zero", false,
                              kNoConfirmation},
                    Behaviour{"IsKilled", "echo confirmed; kill -9 $$", false, "was ended by signal 9"},
                    Behaviour{"ClosesItsOutput", "exec >&-; read line; exit 0", false, kNoConfirmation}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(PanelProgram, GetsTheRequestAsALine) {
  EXPECT_TRUE(
      answerOf("IFS= read -r line; printf '%s' \"$line\" >'" + folder.file("request") + "'; echo confirmed"));
  EXPECT_EQ(readFile(folder.file("request")), jsonText(kRequest));
}

TEST_F(PanelProgram, GetsALongRequestWhole) {
  PanelRequest request = kRequest;
  request.message = std::string(900'000, 'm');
  EXPECT_TRUE(answerOf("head -n 1 >'" + folder.file("request") + "'; echo confirmed", request));
  EXPECT_EQ(readFile(folder.file("request")), jsonText(request) + "\n");
}

TEST_F(PanelProgram, IsNotAskedWhatIsTooLong) {
  PanelRequest request = kRequest;
  request.message = std::string(foundation::kLongestPanelRequest, 'm');
  EXPECT_FALSE(answerOf("echo confirmed", request));
  EXPECT_EQ(warnings.text(), "certificate panel not shown: the request is too long\n");
}

TEST_F(PanelProgram, MayEndWithoutReadingALongRequest) {
  PanelRequest request = kRequest;
  request.message = std::string(900'000, 'm');
  EXPECT_FALSE(answerOf("exit 1", request));
  EXPECT_TRUE(answerOf("exec <&-; echo confirmed", request));
}

TEST_F(PanelProgram, GetsNothingElseOfTheHost) {
  const int inherited = open("/dev/null", O_RDONLY);
  ASSERT_EQ(dup2(inherited, 77), 77);
  close(inherited);
  struct sigaction before {};
  struct sigaction ignored {};
  ignored.sa_handler = SIG_IGN;
  ASSERT_EQ(sigaction(SIGTERM, &ignored, &before), 0);
  sigset_t blocked;
  sigset_t unblocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR1);
  ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &blocked, &unblocked), 0);
  EXPECT_TRUE(
      answerOf("[ ! -e /proc/self/fd/77 ] && grep -q '^SigBlk:.0*$' /proc/self/status && "
               "grep -q '^SigIgn:.0*\\(180000000\\)\\?$' /proc/self/status && echo confirmed"));
  pthread_sigmask(SIG_SETMASK, &unblocked, nullptr);
  sigaction(SIGTERM, &before, nullptr);
  close(77);
}

TEST_F(PanelProgram, WorksWithoutTheStandardDescriptorsAndTakesNone) {
  std::vector<int> kept;
  for (const int number : {0, 1, 2}) {
    kept.push_back(fcntl(number, F_DUPFD_CLOEXEC, 10));
    close(number);
  }
  const bool isConfirmed = answerOf(
      "read line; echo noise >&2 && for number in 0 1 2; do [ -e /proc/$PPID/fd/$number ] && exit 1; done; "
      "echo confirmed");
  for (const int number : {0, 1, 2}) {
    if (kept[number] >= 0) {
      dup2(kept[number], number);
      close(kept[number]);
    }
  }
  EXPECT_TRUE(isConfirmed);
}

std::atomic<int> childrensEnds{0};

TEST_F(PanelProgram, LeavesTheHostsHandlerOfChildrenAlone) {
  struct sigaction before {};
  struct sigaction own {};
  own.sa_handler = [](int) { ++childrensEnds; };
  own.sa_flags = SA_RESTART;
  ASSERT_EQ(sigaction(SIGCHLD, &own, &before), 0);
  EXPECT_TRUE(answerOf("echo confirmed"));
  EXPECT_TRUE(waitUntil([] { return childrensEnds == 1; }));
  struct sigaction after {};
  sigaction(SIGCHLD, &before, &after);
  EXPECT_EQ(after.sa_handler, own.sa_handler);
}

TEST_F(PanelProgram, IsNotConfirmedWhenTheHostThrowsTheEndAway) {
  struct sigaction before {};
  struct sigaction ignored {};
  ignored.sa_handler = SIG_IGN;
  ASSERT_EQ(sigaction(SIGCHLD, &ignored, &before), 0);
  EXPECT_FALSE(answerOf("echo confirmed"));
  sigaction(SIGCHLD, &before, nullptr);
  EXPECT_EQ(warnings.text(), "certificate panel not shown: the host does not keep how its children end\n");
}

TEST_F(PanelProgram, ThatIsNotThereOrCannotBeStartedDeclines) {
  writeFile(folder.file("text"), "no program");
  writeFile(folder.file("broken"), "no program");
  ASSERT_EQ(chmod(folder.file("broken").c_str(), 0755), 0);
  for (const std::string& path : {folder.file("missing"), folder.file("text"), folder.path(),
                                  std::string("zep-trust-panel"), std::string()}) {
    warnings.clear();
    setenv("ZEP_TRUST_PANEL", path.c_str(), 1);
    EXPECT_FALSE(foundation::runPanel(kRequest));
    EXPECT_EQ(warnings.text(), "certificate panel not shown: there is no program zep-trust-panel\n") << path;
  }
  warnings.clear();
  setenv("ZEP_TRUST_PANEL", folder.file("broken").c_str(), 1);
  EXPECT_FALSE(foundation::runPanel(kRequest));
  EXPECT_EQ(warnings.text(),
            "certificate panel not shown: cannot start " + folder.file("broken") + ": Exec format error\n");
}

/// What a host says that finds the library in that folder of `folder`, with a panel in that other one.
std::string foundFrom(const TemporaryFolder& folder, const std::string& libraryFolder,
                      const std::string& panelFolder) {
  namespace fs = std::filesystem;
  fs::create_directories(folder.file(libraryFolder));
  fs::create_directories(folder.file(panelFolder));
  const std::string library =
      folder.file(libraryFolder) + "/" + fs::path(FOUNDATION_LIBRARY).filename().string();
  fs::copy_file(FOUNDATION_LIBRARY, library);
  writeProgram(folder.file(panelFolder) + "/zep-trust-panel", "read line; echo confirmed");
  const std::string output = folder.file("output");
  ChildProcess host({.arguments = {PANEL_HOST_PROGRAM},
                     .environment = {{"LD_LIBRARY_PATH", folder.file(libraryFolder)}},
                     .workingFolder = folder.path(),
                     .outputFile = output});
  EXPECT_EQ(host.wait(), (ChildProcess::End{.exitStatus = 0, .signal = 0}));
  return readFile(output);
}

TEST(PanelProgramPlace, IsTheFolderForProgramsBesideTheLibrarys) {
  const TemporaryFolder folder;
  EXPECT_EQ(foundFrom(folder, "lib", "libexec/zep"), "confirmed\n");
}

TEST(PanelProgramPlace, IsAFolderInTheLibrarys) {
  const TemporaryFolder folder;
  EXPECT_EQ(foundFrom(folder, "lib", "lib/zep"), "confirmed\n");
}

TEST(PanelProgramPlace, IsTheInstalledOneBeneathAnyPrefix) {
  const TemporaryFolder folder;
  EXPECT_EQ(foundFrom(folder, LIBRARY_FOLDER, LIBEXEC_FOLDER "/zep"), "confirmed\n");
}

TEST(PanelProgramPlace, IsNotAsFarFromALibraryThatIsNotInstalled) {
  const TemporaryFolder folder;
  EXPECT_EQ(foundFrom(folder, "own/libraries", "libexec/zep"),
            "certificate panel not shown: there is no program zep-trust-panel\n"
            "declined\n");
}

TEST(PanelProgramPlace, IsNeitherTheWorkingFolderNorTheLibrarys) {
  const TemporaryFolder folder;
  writeProgram(folder.file("zep-trust-panel"), "read line; echo confirmed");
  EXPECT_EQ(foundFrom(folder, "lib", "lib"),
            "certificate panel not shown: there is no program zep-trust-panel\n"
            "declined\n");
}

/// How the program ends when its input is what that shell command writes.
ChildProcess::End endAfter(const std::string& command, const std::vector<std::string>& arguments = {}) {
  std::string line = command + " | '" + PANEL_PROGRAM + "'";
  for (const std::string& argument : arguments) {
    line += " " + argument;
  }
  ChildProcess shell({.arguments = {"/bin/sh", "-c", line}});
  return shell.wait().value_or(ChildProcess::End{});
}

TEST(PanelProgramByHand, EndsWithTwoWhenTheRequestIsMalformed) {
  const ChildProcess::End cannotShow{.exitStatus = 2, .signal = 0};
  EXPECT_EQ(endAfter(":"), cannotShow);
  EXPECT_EQ(endAfter("echo"), cannotShow);
  EXPECT_EQ(endAfter("echo '{}'"), cannotShow);
  EXPECT_EQ(endAfter("echo '[1]'"), cannotShow);
  EXPECT_EQ(endAfter("head -c 3000000 /dev/zero"), cannotShow);
  EXPECT_EQ(endAfter("sh -c 'head -c 1100000 /dev/zero; echo'"), cannotShow);
  EXPECT_EQ(endAfter("echo '{}'", {"--help"}), cannotShow);
}

}  // namespace
}  // namespace test
