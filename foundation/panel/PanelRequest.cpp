#include "foundation/panel/PanelRequest.h"

#include <utility>

#include "foundation/base/Dictionary.h"
#include "foundation/base/JsonText.h"

namespace foundation {
namespace {

constexpr std::string_view kTrust = "trust";
constexpr std::string_view kCertificate = "certificate";

bool takeKind(const Dictionary& members, PanelKind& kind) {
  const std::string_view name = members.text("panel");
  kind = name == kTrust ? PanelKind::Trust : PanelKind::Certificate;
  return name == kTrust || name == kCertificate;
}

bool takeText(const Dictionary& members, std::string_view key, std::string& text) {
  const Value* const value = members.find(key);
  if (value == nullptr || value->text() == nullptr) {
    return false;
  }
  text = *value->text();
  return true;
}

bool takeCertificates(const Dictionary& members, std::vector<std::string>& certificates) {
  const Value* const value = members.find("certificates");
  if (value == nullptr || value->array() == nullptr) {
    return false;
  }
  for (const Value& certificate : *value->array()) {
    if (certificate.text() == nullptr) {
      return false;
    }
    certificates.push_back(*certificate.text());
  }
  return true;
}

}  // namespace

std::string jsonText(const PanelRequest& request) {
  const Array certificates(request.certificates.begin(), request.certificates.end());
  return jsonText(Dictionary{{"panel", request.kind == PanelKind::Trust ? kTrust : kCertificate},
                             {"host", request.host},
                             {"message", request.message},
                             {"informativeText", request.informativeText},
                             {"alternateButtonTitle", request.alternateButtonTitle},
                             {"certificates", certificates}});
}

std::optional<PanelRequest> panelRequestFromJsonText(std::string_view text) {
  const std::optional<Dictionary> members = dictionaryFromJsonText(text);
  PanelRequest request;
  if (!members || !takeKind(*members, request.kind) || !takeText(*members, "host", request.host) ||
      !takeText(*members, "message", request.message) ||
      !takeText(*members, "informativeText", request.informativeText) ||
      !takeText(*members, "alternateButtonTitle", request.alternateButtonTitle) ||
      !takeCertificates(*members, request.certificates)) {
    return std::nullopt;
  }
  return request;
}

}  // namespace foundation
