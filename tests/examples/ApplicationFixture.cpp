#include "tests/examples/ApplicationFixture.h"

#include <sys/stat.h>

#include <sstream>
#include <utility>

#include "tests/support/Files.h"
#include "tests/support/WaitUntil.h"

namespace test {

const Application kGtk{"Gtk", GTK_PROGRAM};
const Application kQt{"Qt", QT_PROGRAM};

void ApplicationTest::start(const Application& application, const std::vector<std::string>& urls,
                            Environment environment) {
  std::vector<std::string> arguments = {application.program};
  arguments.insert(arguments.end(), urls.begin(), urls.end());
  environment.insert(
      {{"DISPLAY", screen->display()}, {"HOME", folder.path()}, {"XDG_RUNTIME_DIR", folder.path()}});
  process = std::make_unique<ChildProcess>(ChildProcess::Options{.arguments = std::move(arguments),
                                                                 .environment = std::move(environment),
                                                                 .outputFile = folder.file("output")});
  applicationName = application.name;
  window = screen->window("httpPool: ");
}

void ApplicationTest::addTyped(const std::string& url) {
  press({"alt+u"});
  screen->type(window, url);
  press({"Return"});
}

std::string ApplicationTest::textOf(const std::string& letter) {
  press({"alt+" + letter, "ctrl+a", "ctrl+c"});
  return screen->clipboard();
}

void ApplicationTest::waitForText(const std::string& letter, const std::string& text) {
  std::string shown;
  EXPECT_TRUE(waitUntil([&] {
    shown = textOf(letter);
    return shown.find(text) != std::string::npos;
  })) << shown;
}

void ApplicationTest::fillIn(const std::string& title, const std::string& userName,
                             const std::string& password) {
  const std::string dialog = screen->window(title + "$");
  screen->type(dialog, userName);
  screen->press(dialog, {"Tab"});
  screen->type(dialog, password);
}

void ApplicationTest::signIn(const std::string& title, const std::string& userName,
                             const std::string& password) {
  fillIn(title, userName, password);
  screen->press(screen->window(title + "$"), {"Return"});
}

void ApplicationTest::waitUntilGone(const std::string& title) {
  EXPECT_TRUE(waitUntil([&] { return screen->windowCount(title) == 0; })) << title;
}

void ApplicationTest::close() {
  screen->close(window);
  const auto end = process->wait();
  ASSERT_TRUE(end) << "still running";
  EXPECT_EQ(*end, ChildProcess::End{.exitStatus = 0}) << output();
  EXPECT_EQ(output(), "");
}

void ApplicationTest::photograph(const std::string& window, const std::string& name) {
  constexpr int kColoursOfAnEmptyWindow = 20;
  mkdir(SCREENSHOT_FOLDER, 0755);
  const std::string file =
      std::string(SCREENSHOT_FOLDER) + "/example-" + applicationName + "-" + name + ".png";
  // The window is there before it is drawn.
  EXPECT_TRUE(waitUntil([&] { return screen->photograph(window, file) > kColoursOfAnEmptyWindow; }))
      << file << " is empty";
}

std::string ApplicationTest::output() const {
  if (!fileExists(folder.file("output"))) {
    return {};
  }
  // A TLS handshake runs on a stack of its own, which the address sanitizer does not know. It says so in three lines.
  std::istringstream written(readFile(folder.file("output")));
  std::string lines;
  for (std::string line; std::getline(written, line);) {
    if (line.find("WARNING: ASan is ignoring requested") == std::string::npos) {
      lines += line + "\n";
    } else {
      std::getline(written, line);
      std::getline(written, line);
    }
  }
  return lines;
}

std::string applicationName(const testing::TestParamInfo<Application>& info) {
  return info.param.name;
}

}  // namespace test
