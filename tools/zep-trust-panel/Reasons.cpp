#include "Reasons.h"

#include <algorithm>

#include "DisplayText.h"
#include "foundation/security/Trust.h"

namespace {

using foundation::TrustStatus;

constexpr std::size_t kLongestHost = 300;

std::string quoted(const std::string& text) {
  return "\xE2\x80\x9C" + text + "\xE2\x80\x9D";
}

std::string subject(const CertificateChain& chain, std::size_t index) {
  return index == 0 ? "The certificate" : "The certificate of the authority " + quoted(chain.name(index));
}

std::string mismatch(const CertificateChain& chain, const std::string& host) {
  return "The certificate does not name " + quoted(shownHost(host, kLongestHost)) + ". It belongs to " +
         quoted(chain.name(0)) + ".";
}

/// The rest of a sentence about a certificate.
std::string predicate(TrustStatus status, const CertificateChain& chain, std::size_t index) {
  switch (status) {
    case TrustStatus::Expired:
      return "expired on " + chain.lastDay(index);
    case TrustStatus::NotYetValid:
      return "is not valid before " + chain.firstDay(index);
    case TrustStatus::UnknownIssuer:
      return "was issued by an unknown authority, " + quoted(chain.issuerName(index));
    case TrustStatus::SelfSigned:
      return "is self-signed: no authority vouches for it";
    case TrustStatus::WrongPurpose:
      return "is not meant for a server";
    case TrustStatus::WeakKey:
      return "has a key that is too weak";
    case TrustStatus::WeakDigest:
      return "has a signature that is too weak";
    case TrustStatus::Revoked:
      return "was revoked by its authority";
    case TrustStatus::Rejected:
      return "is distrusted on this computer";
    case TrustStatus::BadSignature:
      return "has a wrong signature";
    case TrustStatus::ConstraintViolated:
      return "breaks a rule of its authority";
    default:
      return "cannot be verified";
  }
}

std::string sentence(TrustStatus status, const CertificateChain& chain, std::size_t index,
                     const std::string& host) {
  if (status == TrustStatus::HostNameMismatch) {
    return mismatch(chain, host);
  }
  if (status == TrustStatus::UntrustedRoot) {
    return "The certificate was issued by an unknown authority, " + quoted(chain.name(index)) + ".";
  }
  return subject(chain, index) + " " + predicate(status, chain, index) + ".";
}

}  // namespace

std::vector<std::string> reasonsAgainst(const CertificateChain& chain, const std::string& host) {
  foundation::Trust trust(chain.der(), foundation::TrustPolicy::ssl(host));
  foundation::TrustResult result = foundation::TrustResult::Invalid;
  trust.evaluate(result);
  std::vector<std::string> reasons;
  for (std::size_t index = 0; index < trust.statusChain().size() && index < chain.size(); ++index) {
    for (const TrustStatus status : trust.statusChain()[index]) {
      std::string reason = sentence(status, chain, index, host);
      if (std::find(reasons.begin(), reasons.end(), reason) == reasons.end()) {
        reasons.push_back(std::move(reason));
      }
    }
  }
  return reasons;
}
