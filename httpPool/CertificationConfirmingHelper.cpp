#include "httpPool/CertificationConfirmingHelper.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/panel/CertificatePanel.h"
#include "foundation/panel/CertificateTrustPanel.h"
#include "foundation/runloop/DispatchQueue.h"
#include "foundation/security/Trust.h"
#include "foundation/security/TrustSettings.h"
#include "httpPool/MacDownloadEngine.h"

namespace {

using foundation::AuthenticationChallenge;
using foundation::Certificate;
using foundation::Credential;
using foundation::DispatchQueue;
using foundation::Trust;

using Challenge = std::shared_ptr<AuthenticationChallenge>;

constexpr std::string_view kDefaultMessage = "Tilvo can't verify the identity of the website ";
constexpr std::string_view kDefaultInfo =
    "This certificate will be marked as trusted for all users of this computer. To change your decision "
    "later, "
    "open the certificate in Keychain Access and edit its trust Settings.";
constexpr std::string_view kDefaultAlternateButton = "Cancel";

/// What the user has decided so far. Read on downloaders' threads, written on the main thread; only added to, and
/// never destroyed.
struct Sites {
  std::mutex mutex;
  /// Host to the leaf certificate that was accepted for it.
  std::map<std::string, Certificate> sSiteToCertificateMap;
  /// Hosts whose wrong name was shown, each under itself.
  std::map<std::string, std::string> sSiteHostNameMismatch;
};

Sites& sites() {
  static Sites& only = *new Sites;
  return only;
}

bool IsAccepted(const std::string& host) {
  const std::lock_guard lock(sites().mutex);
  return sites().sSiteToCertificateMap.contains(host);
}

void Accept(AuthenticationChallenge& challenge) {
  challenge.useCredential(Credential::credentialForTrust(challenge.protectionSpace().serverTrust));
}

/// The host's text under `key`, else the library's own.
std::string Text(const char* key, std::string_view ownText) {
  const foundation::Dictionary* texts = std::atomic_ref<foundation::Dictionary*>(g_localizationStr).load();
  const foundation::Value* text = texts ? texts->find(key) : nullptr;
  return std::string(text && text->text() ? std::string_view(*text->text()) : ownText);
}

std::vector<std::string> PemChain(const Trust& trust) {
  std::vector<std::string> certificates;
  for (std::size_t i = 0; i < trust.certificateCount(); ++i) {
    if (const Certificate* certificate = trust.certificateAtIndex(i)) {
      certificates.push_back(certificate->pem());
    }
  }
  return certificates;
}

/// Null when the trust has no certificate.
const Certificate* SecTrustGetLeafCertificate(const Trust& trust) {
  return trust.certificateCount() >= 1 ? trust.certificateAtIndex(0) : nullptr;
}

struct PanelTexts {
  std::string alternateButtonTitle;
  std::string informativeText;
  std::string message;
};

/// A wrong host name is shown once for each host, and never accepted.
void ShowMismatch(const Challenge& challenge) {
  const foundation::ProtectionSpace& space = challenge->protectionSpace();
  bool isShown = false;
  {
    const std::lock_guard lock(sites().mutex);
    isShown = sites().sSiteHostNameMismatch.contains(space.host);
  }
  if (!isShown) {
    foundation::CertificatePanel panel;
    panel.runModalForTrust(PemChain(*space.serverTrust), space.host, foundation::ShowGroup::Yes);
    const std::lock_guard lock(sites().mutex);
    sites().sSiteHostNameMismatch.emplace(space.host, space.host);
  }
  challenge->cancel();
}

/// 0 for what is no number.
std::int64_t IntegerValue(const foundation::Value* value) {
  if (!value) {
    return 0;
  }
  if (const std::int64_t* integer = value->integer()) {
    return *integer;
  }
  return value->text() ? std::strtoll(value->text()->c_str(), nullptr, 10) : 0;
}

/// What the user's trust settings say once the user has confirmed: the first that decides. True when the challenge
/// is answered.
bool AnswerByTrustSettings(AuthenticationChallenge& challenge,
                           const std::vector<foundation::Dictionary>& settings) {
  for (const foundation::Dictionary& setting : settings) {
    switch (IntegerValue(setting.find("kSecTrustSettingsResult"))) {
      case 1:  // trust as a root
      case 2:
      case 4:  // unspecified
        Accept(challenge);
        return true;
      case 3:  // deny
      case 0:  // invalid, or nothing said
        challenge.cancel();
        return true;
      default:
        break;
    }
  }
  return false;
}

void ShowTrustPanel(const Challenge& challenge, const PanelTexts& texts) {
  const foundation::ProtectionSpace& space = challenge->protectionSpace();
  foundation::CertificateTrustPanel panel;
  panel.setAlternateButtonTitle(texts.alternateButtonTitle);
  panel.setInformativeText(texts.informativeText);
  constexpr int kConfirmed = 1;
  if (panel.runModalForTrust(PemChain(*space.serverTrust), space.host, texts.message) != kConfirmed) {
    challenge->cancel();
    return;
  }
  const Certificate* leaf = SecTrustGetLeafCertificate(*space.serverTrust);
  if (!leaf) {
    challenge->cancel();
    return;
  }
  {
    // Before the settings are looked at: the host counts as accepted even if they refuse this challenge.
    const std::lock_guard lock(sites().mutex);
    sites().sSiteToCertificateMap.insert_or_assign(space.host, *leaf);
  }
  const auto settings = foundation::copyTrustSettings(*leaf);
  if (!settings) {
    Accept(*challenge);
    return;
  }
  // Settings that decide nothing leave the challenge unanswered, deliberately without a fall-back.
  AnswerByTrustSettings(*challenge, *settings);
}

/// By way of a worker, which waits for the main thread's turn; without a thread for that, straight.
void OnMainThread(const std::function<void()>& step) {
  if (!DispatchQueue::global().async([step] { DispatchQueue::main().sync([&step] { step(); }); })) {
    static_cast<void>(DispatchQueue::main().async(step));
  }
}

}  // namespace

void CertificationConfirmingHelper::confirmUntrustedCert(const Challenge& challenge) {
  const std::string host = challenge->protectionSpace().host;
  if (IsAccepted(host)) {
    // Whatever certificate it shows now.
    Accept(*challenge);
    return;
  }
  const bool hasRightName = checkHostNameMismatch(*challenge);
  const std::string quotedHost = " \"" + host + "\"";
  PanelTexts texts{Text("CertificationAlternateButtonTitle", kDefaultAlternateButton),
                   Text("CertificationInfo", kDefaultInfo),
                   Text("CertificationMsg", kDefaultMessage) + quotedHost};
  if (!hasRightName) {
    OnMainThread([challenge] { ShowMismatch(challenge); });
    return;
  }
  if (IsAccepted(host)) {
    Accept(*challenge);
    return;
  }
  OnMainThread([challenge, texts = std::move(texts)] { ShowTrustPanel(challenge, texts); });
}

bool CertificationConfirmingHelper::checkHostNameMismatch(const AuthenticationChallenge& challenge) {
  const foundation::ProtectionSpace& space = challenge.protectionSpace();
  Trust& trust = *space.serverTrust;
  trust.setPolicy(foundation::TrustPolicy::ssl(space.host));
  foundation::TrustResult result = foundation::TrustResult::Invalid;
  trust.evaluate(result);
  const auto& chain = trust.statusChain();
  return chain.empty() || chain.front().empty() ||
         chain.front().front() != foundation::TrustStatus::HostNameMismatch;
}
