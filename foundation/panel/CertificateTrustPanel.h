#pragma once

#include <string>
#include <vector>

#include "foundation/base/Export.h"

namespace foundation {

/// Asks the user whether to go on with a server in spite of its certificate. Made, used and released on the
/// main thread, whose run loop is turned in modal-panel mode until the user has answered. See runPanel() for
/// what happens when it cannot be shown.
class FOUNDATION_EXPORT CertificateTrustPanel {
 public:
  /// Of the button that declines; "Cancel" when not set.
  void setAlternateButtonTitle(const std::string& title) { alternateButtonTitle_ = title; }
  void setInformativeText(const std::string& text) { informativeText_ = text; }

  /// `certificates` in PEM, leaf first; `host` as the URL names it. 1 when the user confirmed, else 0.
  int runModalForTrust(const std::vector<std::string>& certificates, const std::string& host,
                       const std::string& message);

 private:
  std::string alternateButtonTitle_ = "Cancel";
  std::string informativeText_;
};

}  // namespace foundation
