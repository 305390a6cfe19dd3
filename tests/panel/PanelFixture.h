#pragma once

// What the tests with a screen share: a screen, certificates, and the request of a panel.

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "foundation/panel/PanelRequest.h"
#include "tests/panel/Person.h"
#include "tests/panel/Warnings.h"
#include "tests/support/CertificateAuthority.h"
#include "tests/support/Screen.h"

namespace test {

/// Of the panels of request().
inline constexpr const char* kTitle = "Certificate of panel.test";

class PanelTest : public testing::Test {
 protected:
  PanelTest();
  ~PanelTest() override;

  /// Another screen in place of the one there is.
  void useScreen(const std::string& size);
  /// A trust panel for a self-signed certificate of panel.test.
  foundation::PanelRequest request();
  /// Shows the panel to somebody who does that; the panel's answer.
  bool show(const foundation::PanelRequest& request, std::function<void(Screen&)> act);

  /// Where the button that confirms is, on the screen, when the other one's title is "Cancel".
  static std::pair<int, int> confirmingButton(const Screen::Geometry& window, int scale);

  Warnings warnings;
  std::unique_ptr<Screen> screen;
  CertificateAuthority authority;
};

}  // namespace test
