#include "CertificateChain.h"

#include <string_view>

#include "DisplayText.h"
#include "foundation/security/Certificate.h"

namespace {

struct Free {
  void operator()(void* memory) const { g_free(memory); }
};
template <typename Type>
using Allocated = std::unique_ptr<Type, Free>;

constexpr std::size_t kLongestName = 200;
constexpr std::size_t kLongestWholeName = 500;

/// The bytes between the lines of the textual encoding (RFC 7468).
std::string derOfPem(std::string_view pem) {
  constexpr std::string_view kBegin = "-----BEGIN CERTIFICATE-----";
  constexpr std::string_view kEnd = "-----END CERTIFICATE-----";
  const std::size_t begin = pem.find(kBegin);
  const std::size_t end = pem.find(kEnd);
  if (begin == std::string_view::npos || end == std::string_view::npos || end < begin + kBegin.size()) {
    return {};
  }
  const std::string body(pem.substr(begin + kBegin.size(), end - begin - kBegin.size()));
  gsize size = 0;
  const Allocated<guchar> bytes(g_base64_decode(body.c_str(), &size));
  return std::string(reinterpret_cast<const char*>(bytes.get()), size);
}

std::string shownName(std::string_view name, std::size_t limit) {
  return name.empty() ? "(no name)" : shownLine(name, limit);
}

std::string shownName(gchar* given, std::size_t limit) {
  const Allocated<gchar> name(given);
  return shownName(name != nullptr ? std::string_view(name.get()) : std::string_view(), limit);
}

std::string dayText(GDate* given) {
  const std::unique_ptr<GDate, decltype(&g_date_free)> date(given, g_date_free);
  char text[128] = "";
  if (date == nullptr || !g_date_valid(date.get()) ||
      g_date_strftime(text, sizeof text, "%-d %B %Y", date.get()) == 0) {
    return "(unknown)";
  }
  return text;
}

}  // namespace

std::optional<CertificateChain> CertificateChain::fromPem(const std::vector<std::string>& certificates) {
  CertificateChain chain;
  for (const std::string& pem : certificates) {
    std::string der = derOfPem(pem);
    const auto certificate = foundation::Certificate::fromDER(der);
    if (!certificate) {
      return std::nullopt;
    }
    chain.names_.push_back(shownName(certificate->subjectSummary(), kLongestName));
    chain.certificates_.emplace_back(
        gcr_simple_certificate_new(reinterpret_cast<const guchar*>(der.data()), der.size()));
    chain.der_.push_back(std::move(der));
  }
  return chain.size() > 0 ? std::optional(std::move(chain)) : std::nullopt;
}

std::string CertificateChain::name(std::size_t index) const {
  return names_.at(index);
}

std::string CertificateChain::wholeName(std::size_t index) const {
  return shownName(gcr_certificate_get_subject_dn(at(index)), kLongestWholeName);
}

std::string CertificateChain::issuerName(std::size_t index) const {
  return shownName(gcr_certificate_get_issuer_name(at(index)), kLongestName);
}

std::string CertificateChain::wholeIssuerName(std::size_t index) const {
  return shownName(gcr_certificate_get_issuer_dn(at(index)), kLongestWholeName);
}

std::string CertificateChain::firstDay(std::size_t index) const {
  return dayText(gcr_certificate_get_issued_date(at(index)));
}

std::string CertificateChain::lastDay(std::size_t index) const {
  return dayText(gcr_certificate_get_expiry_date(at(index)));
}

std::string CertificateChain::fingerprint(std::size_t index) const {
  gsize size = 0;
  const Allocated<guchar> bytes(gcr_certificate_get_fingerprint(at(index), G_CHECKSUM_SHA256, &size));
  std::string text;
  for (gsize i = 0; i < size; ++i) {
    char pair[4];
    g_snprintf(pair, sizeof pair, i == 0 ? "%02X" : " %02X", bytes.get()[i]);
    text += pair;
  }
  return text;
}
