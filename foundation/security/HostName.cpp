#include "foundation/security/HostName.h"

#include <arpa/inet.h>
#include <openssl/x509v3.h>

#include <array>
#include <optional>
#include <string>

#include "foundation/security/ErrorQueueMark.h"
#include "foundation/security/OpenSSLUse.h"

namespace foundation {
namespace {

constexpr unsigned kFlags = X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS | X509_CHECK_FLAG_NEVER_CHECK_SUBJECT;

/// The address in network byte order, 4 or 16 bytes; nothing when the host is a name.
std::optional<std::string> address(std::string_view host) {
  std::array<unsigned char, sizeof(in6_addr)> bytes = {};
  const std::string text(host);
  if (inet_pton(AF_INET, text.c_str(), bytes.data()) == 1) {
    return std::string(bytes.begin(), bytes.begin() + sizeof(in_addr));
  }
  const std::string withoutZone = text.substr(0, text.find('%'));
  if (inet_pton(AF_INET6, withoutZone.c_str(), bytes.data()) == 1) {
    return std::string(bytes.begin(), bytes.end());
  }
  return std::nullopt;
}

}  // namespace

bool isIssuedTo(const Certificate& certificate, std::string_view host) {
  const OpenSSLUse use;
  if (!use.isAllowed()) {
    return false;
  }
  const ErrorQueueMark mark;
  const bool isBracketed = host.size() >= 2 && host.front() == '[' && host.back() == ']';
  host = isBracketed ? host.substr(1, host.size() - 2) : host;
  if (host.ends_with('.')) {
    host.remove_suffix(1);
  }
  // OpenSSL takes a first dot for "whatever lies below" and overlooks a last zero byte.
  if (host.empty() || host.front() == '.' || host.find('\0') != std::string_view::npos) {
    return false;
  }
  if (const std::optional<std::string> bytes = address(host)) {
    return X509_check_ip(certificate.x509(), reinterpret_cast<const unsigned char*>(bytes->data()),
                         bytes->size(), kFlags) == 1;
  }
  return !isBracketed && X509_check_host(certificate.x509(), host.data(), host.size(), kFlags, nullptr) == 1;
}

}  // namespace foundation
