#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/base/Export.h"

namespace foundation {

/// Trust asks whether to go on in spite of the certificate; Certificate only shows it.
enum class PanelKind { Trust, Certificate };

/// What a certificate panel shows. A value; it travels to the panel's program, and to a host's own panel, as
/// the text of a JSON object (ZEP_Foundation.h).
struct PanelRequest {
  PanelKind kind = PanelKind::Trust;
  std::string host = {};
  std::string message = {};
  std::string informativeText = {};
  /// Of the button that declines.
  std::string alternateButtonTitle = {};
  /// PEM (RFC 7468), leaf first.
  std::vector<std::string> certificates = {};
};

/// No more than this is sent to the panel's program, nor read by it.
inline constexpr std::size_t kLongestPanelRequest = std::size_t{1} << 20;

/// The request as one line without its end.
FOUNDATION_EXPORT std::string jsonText(const PanelRequest& request);

/// The request of such a text; nothing when it is no JSON object, or a member is missing or of another type.
FOUNDATION_EXPORT std::optional<PanelRequest> panelRequestFromJsonText(std::string_view text);

}  // namespace foundation
