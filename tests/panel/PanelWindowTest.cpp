// The built-in panel on the screen, worked by key and mouse.

#include <glib.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include "foundation/panel/CertificatePanel.h"
#include "foundation/panel/CertificateTrustPanel.h"
#include "foundation/panel/TrustPanelRunner.h"
#include "foundation/runloop/DispatchQueue.h"
#include "foundation/runloop/RunLoop.h"
#include "foundation/runloop/Timer.h"
#include "tests/panel/PanelFixture.h"
#include "tests/support/Files.h"
#include "tests/support/WaitUntil.h"

namespace test {
namespace {

using foundation::PanelKind;
using foundation::PanelRequest;
using foundation::RunLoop;
using foundation::RunLoopMode;
using foundation::Timer;

class PanelWindow : public PanelTest {};

TEST_F(PanelWindow, EnterDeclines) {
  EXPECT_FALSE(show(request(), [](Screen& s) { s.press(s.window(kTitle), {"Return"}); }));
  EXPECT_EQ(warnings.text(), "");
}

TEST_F(PanelWindow, EnterDeclinesFromTheTextsToo) {
  EXPECT_FALSE(show(request(), [](Screen& s) { s.press(s.window(kTitle), {"Tab", "Return"}); }));
  EXPECT_EQ(warnings.text(), "");
}

TEST_F(PanelWindow, SpaceDeclines) {
  EXPECT_FALSE(show(request(), [](Screen& s) { s.press(s.window(kTitle), {"space"}); }));
  EXPECT_EQ(warnings.text(), "");
}

TEST_F(PanelWindow, EscapeDeclines) {
  EXPECT_FALSE(show(request(), [](Screen& s) { s.press(s.window(kTitle), {"Escape"}); }));
  EXPECT_EQ(warnings.text(), "");
}

TEST_F(PanelWindow, ClosingTheWindowDeclines) {
  EXPECT_FALSE(show(request(), [](Screen& s) { s.close(s.window(kTitle)); }));
  EXPECT_EQ(warnings.text(), "");
}

TEST_F(PanelWindow, AClickOnContinueConfirms) {
  EXPECT_TRUE(show(request(), [](Screen& s) {
    const auto [x, y] = confirmingButton(s.geometry(s.window(kTitle)), 1);
    s.click(x, y);
  }));
  EXPECT_EQ(warnings.text(), "");
}

TEST_F(PanelWindow, TheMnemonicOfContinueConfirms) {
  EXPECT_TRUE(show(request(), [](Screen& s) { s.press(s.window(kTitle), {"alt+c"}); }));
}

TEST_F(PanelWindow, TabAndSpaceConfirm) {
  EXPECT_TRUE(show(request(), [](Screen& s) { s.press(s.window(kTitle), {"shift+Tab", "space"}); }));
}

TEST_F(PanelWindow, TabAndEnterConfirm) {
  EXPECT_TRUE(show(request(), [](Screen& s) { s.press(s.window(kTitle), {"shift+Tab", "Return"}); }));
}

TEST_F(PanelWindow, TheWholeCertificateOpensByKeyAndTheButtonsStayOnTheScreen) {
  useScreen("1280x640");
  EXPECT_TRUE(show(request(), [](Screen& s) {
    const std::string window = s.window(kTitle);
    const int before = s.geometry(window).height;
    s.press(window, {"alt+a"});
    EXPECT_TRUE(waitUntil([&] {
      const Screen::Geometry grown = s.geometry(window);
      return grown.height > before && grown.y + grown.height <= 640;
    }));
    const auto [x, y] = confirmingButton(s.geometry(window), 1);
    s.click(x, y);
  }));
}

TEST_F(PanelWindow, KilledInTheMiddleDeclines) {
  EXPECT_FALSE(show(request(), [](Screen& s) { kill(s.processOf(s.window(kTitle)), SIGKILL); }));
  EXPECT_EQ(warnings.text(), "certificate panel not shown: its program was ended by signal 9\n");
}

TEST_F(PanelWindow, ALostScreenDeclines) {
  EXPECT_FALSE(show(request(), [](Screen& s) {
    s.window(kTitle);
    s.stop();
  }));
}

TEST_F(PanelWindow, WithoutADisplayDeclinesAndWarns) {
  unsetenv("DISPLAY");
  EXPECT_FALSE(foundation::runPanel(request()));
  EXPECT_EQ(warnings.text(), "certificate panel not shown: its program ended with status 2\n");
}

TEST_F(PanelWindow, WhatIsNoCertificateIsNotShown) {
  for (const std::vector<std::string>& certificates :
       {std::vector<std::string>{},
        {"not a certificate"},
        {"-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n"}}) {
    warnings.clear();
    PanelRequest malformed = request();
    malformed.certificates = certificates;
    EXPECT_FALSE(foundation::runPanel(malformed));
    EXPECT_EQ(warnings.text(), "certificate panel not shown: its program ended with status 2\n");
  }
}

TEST_F(PanelWindow, OfACertificateHasNothingToConfirm) {
  PanelRequest certificate = request();
  certificate.kind = PanelKind::Certificate;
  EXPECT_FALSE(show(certificate, [](Screen& s) { s.press(s.window(kTitle), {"Return"}); }));
  EXPECT_FALSE(show(certificate, [](Screen& s) {
    const std::string window = s.window(kTitle);
    s.press(window, {"alt+c"});
    EXPECT_EQ(s.windowCount(kTitle), 1U);
    s.press(window, {"space"});
  }));
  EXPECT_EQ(warnings.text(), "");
}

TEST_F(PanelWindow, TheTrustPanelTellsWhatWasAnswered) {
  const PanelRequest texts = request();
  foundation::CertificateTrustPanel panel;
  panel.setAlternateButtonTitle("No");
  panel.setInformativeText(texts.informativeText);
  {
    const Person person(*screen, [](Screen& s) { s.press(s.window(kTitle), {"alt+c"}); });
    EXPECT_EQ(panel.runModalForTrust(texts.certificates, texts.host, texts.message), 1);
  }
  const Person person(*screen, [](Screen& s) { s.press(s.window(kTitle), {"Escape"}); });
  EXPECT_EQ(panel.runModalForTrust(texts.certificates, texts.host, texts.message), 0);
}

TEST_F(PanelWindow, TheCertificatePanelIsShownUntilClosed) {
  const std::vector<std::string> certificates = request().certificates;
  std::atomic<bool> wasSeen{false};
  const Person person(*screen, [&](Screen& s) {
    const std::string window = s.window(kTitle);
    wasSeen = true;
    s.press(window, {"Return"});
  });
  foundation::CertificatePanel().runModalForTrust(certificates, "panel.test", foundation::ShowGroup::Yes);
  EXPECT_TRUE(wasSeen);
}

/// Beats that came, as the main thread counts them.
struct Beats {
  int ordinary = 0;
  int modal = 0;
};

/// The main thread's counts, fetched by a hand-over.
Beats countedBy(const Beats& beats) {
  Beats copy;
  std::atomic<bool> done{false};
  RunLoop::main()->perform([&] {
    copy = beats;
    done = true;
  });
  if (!waitUntil([&] { return done.load(); })) {
    throw std::runtime_error("no hand-over while the panel is open");
  }
  return copy;
}

TEST_F(PanelWindow, TimersPauseWhileHandOversGoOn) {
  using std::chrono::milliseconds;
  Beats beats;
  const auto ordinary =
      Timer::scheduled(milliseconds(1), Timer::Repeats::Yes, [&](Timer&) { ++beats.ordinary; });
  ordinary->addToMode(RunLoopMode::EventTracking);
  const auto modal = Timer::scheduled(milliseconds(1), Timer::Repeats::Yes, [&](Timer&) { ++beats.modal; });
  modal->addToMode(RunLoopMode::ModalPanel);
  EXPECT_TRUE(show(request(), [&](Screen& s) {
    const std::string window = s.window(kTitle);
    const Beats before = countedBy(beats);
    // Time for beats has passed when a timer that goes on has had some.
    Beats after = before;
    EXPECT_TRUE(waitUntil([&] {
      after = countedBy(beats);
      return after.modal >= before.modal + 20;
    }));
    EXPECT_EQ(after.ordinary, before.ordinary);
    EXPECT_EQ(after.ordinary, 0);
    s.press(window, {"alt+c"});
  }));
  EXPECT_EQ(RunLoop::currentMode(), RunLoopMode::Default);
  EXPECT_TRUE(waitUntil([&] {
    g_main_context_iteration(nullptr, FALSE);
    return beats.ordinary >= 3;
  }));
  ordinary->invalidate();
  modal->invalidate();
}

TEST_F(PanelWindow, PanelsComeOneAfterAnother) {
  PanelRequest first = request();
  PanelRequest second = first;
  first.host = "first.test";
  second.host = "second.test";
  std::vector<std::string> answers;
  const auto ask = [&](const PanelRequest& request) {
    EXPECT_TRUE(foundation::DispatchQueue::main().async([&answers, request] {
      const bool isConfirmed = foundation::runPanel(request);
      answers.push_back(request.host + (isConfirmed ? " confirmed" : " declined"));
    }));
  };
  ask(first);
  ask(second);
  const auto answerCount = [&] {
    std::size_t count = 0;
    std::atomic<bool> done{false};
    RunLoop::main()->perform([&] {
      count = answers.size();
      done = true;
    });
    waitUntil([&] { return done.load(); });
    return count;
  };
  {
    const Person person(*screen, [&](Screen& s) {
      const std::string window = s.window("Certificate of first.test");
      EXPECT_EQ(answerCount(), 0U);
      EXPECT_EQ(s.windowCount("Certificate of"), 1U);
      s.press(window, {"alt+c"});
      const std::string other = s.window("Certificate of second.test");
      EXPECT_EQ(answerCount(), 1U) << "the first panel's answer waits for the second panel";
      EXPECT_EQ(s.windowCount("Certificate of"), 1U);
      s.press(other, {"Escape"});
    });
    while (answers.size() < 2) {
      g_main_context_iteration(nullptr, TRUE);
    }
  }
  EXPECT_EQ(answers, (std::vector<std::string>{"first.test confirmed", "second.test declined"}));
  EXPECT_EQ(warnings.text(), "");
}

TEST_F(PanelWindow, InsideAnotherOneIsNotShown) {
  const PanelRequest panel = request();
  std::atomic<int> inner{-1};
  EXPECT_TRUE(show(panel, [&](Screen& s) {
    const std::string window = s.window(kTitle);
    RunLoop::main()->perform([&] { inner = foundation::runPanel(panel) ? 1 : 0; });
    EXPECT_TRUE(waitUntil([&] { return inner != -1; }));
    s.press(window, {"alt+c"});
  }));
  EXPECT_EQ(inner, 0);
  EXPECT_EQ(warnings.text(), "certificate panel not shown: another one is open\n");
}

TEST_F(PanelWindow, HostileTextsLeaveTheButtonsOnASmallScreen) {
  useScreen("640x480");
  PanelRequest hostile = request();
  hostile.host = std::string(10'000, 'a') + ".panel.test";
  hostile.message = "<b>&amp;</b> \xE2\x80\xAE" + std::string(10'000, 'M') + std::string(500, '\n');
  hostile.informativeText = std::string(10'000, 'W') + "\n<span size='999999'>";
  hostile.certificates.resize(50, hostile.certificates.front());
  EXPECT_TRUE(show(hostile, [](Screen& s) {
    const Screen::Geometry window = s.geometry(s.window("Certificate of .*panel.test"));
    EXPECT_GE(window.y, 0);
    EXPECT_LE(window.y + window.height, 480);
    EXPECT_GE(window.x, 0);
    EXPECT_LE(window.x + window.width, 640);
    const auto [x, y] = confirmingButton(window, 1);
    s.click(x, y);
  }));
  hostile.alternateButtonTitle = "<i>No</i>\n" + std::string(10'000, 'W');
  EXPECT_FALSE(show(hostile, [](Screen& s) {
    const Screen::Geometry window = s.geometry(s.window("Certificate of .*panel.test"));
    EXPECT_LE(window.x + window.width, 640);
    s.click(window.x + window.width - 40, window.y + window.height - 35);
  }));
  EXPECT_EQ(warnings.text(), "");
}

/// Leaves the panel's picture in the build folder; the panel's geometry.
Screen::Geometry photograph(Screen& screen, const std::string& name) {
  const std::string window = screen.window(kTitle);
  mkdir(SCREENSHOT_FOLDER, 0755);
  const std::string file = std::string(SCREENSHOT_FOLDER) + "/" + name;
  // The window is there before it is drawn.
  EXPECT_TRUE(waitUntil([&] { return screen.photograph(window, file) > 30; })) << file << " is empty";
  return screen.geometry(window);
}

TEST_F(PanelWindow, IsDrawnAtBothScales) {
  useScreen("1600x1400");
  PanelRequest panel = request();
  panel.certificates.push_back(readFile(authority.rootFile()));
  Screen::Geometry single;
  EXPECT_TRUE(show(panel, [&](Screen& s) {
    single = photograph(s, "trust-panel.png");
    const auto [x, y] = confirmingButton(single, 1);
    s.click(x, y);
  }));
  setenv("GDK_SCALE", "2", 1);
  EXPECT_TRUE(show(panel, [&](Screen& s) {
    const Screen::Geometry twice = photograph(s, "trust-panel-2x.png");
    EXPECT_EQ(twice.width, 2 * single.width);
    const auto [x, y] = confirmingButton(twice, 2);
    s.click(x, y);
  }));
  EXPECT_EQ(warnings.text(), "");
}

}  // namespace
}  // namespace test
