#pragma once

#include <string>
#include <vector>

#include "foundation/base/Export.h"

namespace foundation {

/// Whether the certificates that lead from the server's own to its authority are shown, too.
enum class ShowGroup { No, Yes };

/// Shows the user a server's certificate; there is nothing to confirm. Made, used and released on the main
/// thread, whose run loop is turned in modal-panel mode until the panel is closed.
class FOUNDATION_EXPORT CertificatePanel {
 public:
  /// `certificates` in PEM, leaf first; `host` as the URL names it.
  void runModalForTrust(const std::vector<std::string>& certificates, const std::string& host,
                        ShowGroup showGroup);
};

}  // namespace foundation
