#include "foundation/panel/CertificatePanel.h"

#include <algorithm>

#include "foundation/panel/PanelRequest.h"
#include "foundation/panel/TrustPanelRunner.h"

namespace foundation {

void CertificatePanel::runModalForTrust(const std::vector<std::string>& certificates, const std::string& host,
                                        ShowGroup showGroup) {
  PanelRequest request{.kind = PanelKind::Certificate, .host = host, .certificates = certificates};
  if (showGroup == ShowGroup::No) {
    request.certificates.resize(std::min<std::size_t>(request.certificates.size(), 1));
  }
  runPanel(request);
}

}  // namespace foundation
