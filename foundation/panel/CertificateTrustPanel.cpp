#include "foundation/panel/CertificateTrustPanel.h"

#include "foundation/panel/PanelRequest.h"
#include "foundation/panel/TrustPanelRunner.h"

namespace foundation {

int CertificateTrustPanel::runModalForTrust(const std::vector<std::string>& certificates,
                                            const std::string& host, const std::string& message) {
  return runPanel({.kind = PanelKind::Trust,
                   .host = host,
                   .message = message,
                   .informativeText = informativeText_,
                   .alternateButtonTitle = alternateButtonTitle_,
                   .certificates = certificates})
             ? 1
             : 0;
}

}  // namespace foundation
