#include "tests/panel/PanelFixture.h"

#include <atomic>
#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "foundation/panel/TrustPanelRunner.h"
#include "tests/support/Files.h"
#include "tests/support/WaitUntil.h"

namespace test {

PanelTest::PanelTest() {
  useScreen("1280x800");
}

PanelTest::~PanelTest() {
  for (const char* name : {"DISPLAY", "GDK_SCALE", "ZEP_TRUST_PANEL"}) {
    unsetenv(name);
  }
}

void PanelTest::useScreen(const std::string& size) {
  screen = std::make_unique<Screen>(size);
  setenv("DISPLAY", screen->display().c_str(), 1);
}

foundation::PanelRequest PanelTest::request() {
  const auto leaf = authority.issueSelfSigned({.name = "panel.test", .alternativeNames = "DNS:panel.test"});
  return {.kind = foundation::PanelKind::Trust,
          .host = "panel.test",
          .message = "The identity of the website \"panel.test\" cannot be verified",
          .informativeText = "If you continue, this certificate is trusted until the application ends.",
          .alternateButtonTitle = "Cancel",
          .certificates = {readFile(leaf.chainFile)}};
}

bool PanelTest::show(const foundation::PanelRequest& request, std::function<void(Screen&)> act) {
  std::atomic<bool> isClosed{false};
  const Person person(*screen, [&isClosed, act = std::move(act)](Screen& there) {
    act(there);
    if (!waitUntil([&] { return isClosed.load(); })) {
      throw std::runtime_error("the panel is still open");
    }
  });
  const bool isConfirmed = foundation::runPanel(request);
  isClosed = true;
  return isConfirmed;
}

std::pair<int, int> PanelTest::confirmingButton(const Screen::Geometry& window, int scale) {
  constexpr int kMargin = 18;
  constexpr int kGap = 12;
  constexpr int kButtonWidth = 110;
  constexpr int kHalfHeight = 15;
  return {window.x + window.width - scale * (kMargin + kButtonWidth + kGap + kButtonWidth / 2),
          window.y + window.height - scale * (kMargin + kHalfHeight)};
}

}  // namespace test
