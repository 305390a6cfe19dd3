// What a server shows of itself: the first line of the input is a host's name, the rest its certificate; and the same
// bytes as a text, as a body or a panel may hold it.

#include "foundation/security/Certificate.h"

#include <glib.h>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>

#include "foundation/base/Data.h"
#include "foundation/security/HostName.h"
#include "foundation/security/Trust.h"
#include "fuzz/Input.h"
#include "fuzz/Require.h"
#include "httpPool/Utf8Text.h"
#include "tools/zep-trust-panel/DisplayText.h"

namespace {

using foundation::Certificate;
using foundation::TrustResult;

bool isUtf8(std::string_view text) {
  return g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr) != FALSE;
}

/// The library's own reading against GLib's, which takes no zero bytes.
void checkText(std::string_view text) {
  std::string rest(text);
  bool isRight = true;
  for (std::size_t start = 0; start <= rest.size();) {
    const std::size_t end = std::min(rest.find('\0', start), rest.size());
    isRight &= isUtf8(std::string_view(rest).substr(start, end - start));
    start = end + 1;
  }
  require(IsUtf8(text) == isRight);
  BasicString assigned;
  AssignText(assigned, foundation::Data(rest));
  require(std::string_view(assigned) == (isRight ? text : text.substr(0, text.find('\0'))));
}

void checkIsHarmless(const std::string& shown, std::size_t limit, bool mayHaveLines) {
  require(isUtf8(shown));
  require(static_cast<std::size_t>(g_utf8_strlen(shown.c_str(), -1)) <= limit + 1);
  for (const char* at = shown.c_str(); *at != '\0'; at = g_utf8_next_char(at)) {
    const gunichar character = g_utf8_get_char(at);
    require(!g_unichar_iscntrl(character) || (mayHaveLines && character == '\n'));
    require(character < 0x202A || character > 0x202E);
    require(character < 0x2066 || character > 0x2069);
    require(character != 0x200E && character != 0x200F && character != 0x061C);
  }
}

/// What a panel makes of it. Cleaning what is clean changes nothing.
void checkShown(std::string_view text) {
  constexpr std::size_t kLimit = 50;
  checkIsHarmless(shownText(text, kLimit), kLimit, true);
  const std::string line = shownLine(text, kLimit);
  checkIsHarmless(line, kLimit, false);
  require(shownLine(line, kLimit) == line);
  const std::string host = shownHost(text, kLimit);
  checkIsHarmless(host, kLimit, false);
  require(shownHost(host, kLimit) == host);
  std::string broken = breakable(line);
  constexpr std::string_view kZeroWidthSpace = "\xE2\x80\x8B";
  for (std::size_t at = 0; (at = broken.find(kZeroWidthSpace, at)) != std::string::npos;) {
    broken.erase(at, kZeroWidthSpace.size());
  }
  require(broken == line);
}

void checkSummary(const std::string& summary) {
  require(isUtf8(summary));
  for (const char* at = summary.c_str(); *at != '\0'; at = g_utf8_next_char(at)) {
    require(!g_unichar_iscntrl(g_utf8_get_char(at)));
  }
}

void checkDigests(const Certificate& certificate) {
  for (const auto& [digest, length] :
       {std::pair(certificate.sha1(), 40), std::pair(certificate.sha256(), 64)}) {
    require(digest.size() == static_cast<std::size_t>(length));
    require(digest.find_first_not_of("0123456789ABCDEF") == std::string::npos);
  }
}

/// A name is the same name in other letters and with its last dot.
void checkName(const Certificate& certificate, const std::string& host) {
  const bool isItsOwn = foundation::isIssuedTo(certificate, host);
  require(!isItsOwn || (!host.empty() && host.find('\0') == std::string::npos));
  std::string other = host;
  for (char& c : other) {
    c = std::isupper(static_cast<unsigned char>(c)) != 0 ? g_ascii_tolower(c) : g_ascii_toupper(c);
  }
  require(foundation::isIssuedTo(certificate, other) == isItsOwn);
  if (!host.empty() && !host.ends_with('.') && !host.ends_with(']')) {
    require(foundation::isIssuedTo(certificate, host + ".") == isItsOwn);
  }
}

/// Nobody vouches for it.
void checkEvaluation(const std::string& der, const std::string& host) {
  foundation::Trust trust({der}, foundation::TrustPolicy::ssl(host));
  TrustResult result = TrustResult::Invalid;
  require(trust.evaluate(result) == 0);
  require(result == TrustResult::RecoverableTrustFailure || result == TrustResult::FatalTrustFailure ||
          result == TrustResult::OtherError);
}

void checkCertificate(const std::string& der, const std::string& host) {
  const auto certificate = Certificate::fromDER(der);
  if (!certificate) {
    return;
  }
  require(certificate->der() == der);
  require(certificate->pem().ends_with("-----END CERTIFICATE-----\n"));
  checkSummary(certificate->subjectSummary());
  checkDigests(*certificate);
  checkName(*certificate, host);
  checkEvaluation(der, host);
}

/// No authorities, and no settings of the user's.
bool isAlone() {
  setenv("SSL_CERT_FILE", "/dev/null", 1);
  setenv("SSL_CERT_DIR", "/nonexistent", 1);
  setenv("XDG_CONFIG_HOME", "/nonexistent", 1);
  return g_get_user_config_dir() == std::string("/nonexistent");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool alone = isAlone();
  require(alone);
  const std::string_view input = textOf(data, size);
  const std::string_view host = lineOf(linesOf(input), 0);
  const std::string_view rest = input.substr(std::min(input.size(), host.size() + 1));
  checkText(rest);
  checkShown(rest);
  checkCertificate(std::string(rest), std::string(host));
  return 0;
}
