// Hosts that end while a panel is open.

#include <signal.h>
#include <sys/types.h>

#include <filesystem>
#include <memory>
#include <string>

#include "tests/panel/PanelFixture.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/WaitUntil.h"

namespace test {
namespace {

/// A process that nobody has waited for yet has ended, too.
bool hasEnded(pid_t process) {
  const std::string file = "/proc/" + std::to_string(process) + "/stat";
  try {
    const std::string text = readFile(file);
    return text.substr(text.rfind(')') + 2, 1) == "Z";
  } catch (const std::runtime_error&) {
    return true;
  }
}

class PanelHost : public PanelTest {
 protected:
  PanelHost() { writeFile(folder.file("request"), jsonText(request())); }

  std::unique_ptr<ChildProcess> start() {
    return std::make_unique<ChildProcess>(ChildProcess::Options{
        .arguments = {PANEL_HOST_PROGRAM, folder.file("request")}, .outputFile = folder.file("output")});
  }

  TemporaryFolder folder;
};

TEST_F(PanelHost, GetsTheAnswer) {
  const auto host = start();
  screen->press(screen->window(kTitle), {"alt+c"});
  EXPECT_EQ(host->wait(), (ChildProcess::End{.exitStatus = 0, .signal = 0}));
  EXPECT_EQ(readFile(folder.file("output")), "confirmed\n");
}

TEST_F(PanelHost, ThatExitsTakesThePanelAlong) {
  const auto host = start();
  const pid_t panel = screen->processOf(screen->window(kTitle));
  EXPECT_FALSE(hasEnded(panel));
  kill(host->id(), SIGUSR1);
  EXPECT_EQ(host->wait(), (ChildProcess::End{.exitStatus = 3, .signal = 0}));
  EXPECT_TRUE(waitUntil([&] { return hasEnded(panel); }));
}

TEST_F(PanelHost, ThatIsKilledTakesThePanelAlong) {
  const auto host = start();
  const pid_t panel = screen->processOf(screen->window(kTitle));
  EXPECT_FALSE(hasEnded(panel));
  kill(host->id(), SIGKILL);
  EXPECT_TRUE(waitUntil([&] { return hasEnded(panel); }));
}

TEST_F(PanelHost, ThatIsKilledTakesThePanelAlongThoughAForkLives) {
  const auto host = start();
  const pid_t panel = screen->processOf(screen->window(kTitle));
  kill(host->id(), SIGUSR2);
  const auto output = [&] { return readFile(folder.file("output")); };
  ASSERT_TRUE(waitUntil([&] { return output().find('\n') != std::string::npos; }));
  const pid_t fork = std::stoi(output());
  kill(host->id(), SIGKILL);
  EXPECT_TRUE(waitUntil([&] { return hasEnded(panel); }));
  EXPECT_FALSE(hasEnded(fork));
  kill(fork, SIGKILL);
}

TEST_F(PanelHost, WhoseEndOfTheInputClosesIsNotConfirmed) {
  // The shell stays, so that only the end of the input can close the panel.
  writeFile(folder.file("line"), jsonText(request()) + "\n");
  const std::string command = "'" + std::string(PANEL_PROGRAM) + "' <'" + folder.file("line") + "'; echo $?";
  ChildProcess shell({.arguments = {"/bin/sh", "-c", command}, .outputFile = folder.file("output")});
  EXPECT_EQ(shell.wait(), (ChildProcess::End{.exitStatus = 0, .signal = 0}));
  EXPECT_EQ(readFile(folder.file("output")), "1\n");
}

}  // namespace
}  // namespace test
