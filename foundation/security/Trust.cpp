#include "foundation/security/Trust.h"

#include <algorithm>
#include <ctime>

#include "foundation/security/ChainVerification.h"
#include "foundation/security/HostName.h"
#include "foundation/security/TrustSettings.h"

namespace foundation {
namespace {

enum class UserDecision { None, Trust, Deny };

UserDecision userDecision(const Certificate& leaf) {
  constexpr std::int64_t kTrustRoot = 1;
  constexpr std::int64_t kTrustAsRoot = 2;
  constexpr std::int64_t kDeny = 3;
  for (const Dictionary& setting : copyTrustSettings(leaf).value_or(std::vector<Dictionary>())) {
    const Value* value = setting.find("kSecTrustSettingsResult");
    const std::int64_t* number = value != nullptr ? value->integer() : nullptr;
    if (number == nullptr) {
      continue;
    }
    if (*number == kTrustRoot || *number == kTrustAsRoot) {
      return UserDecision::Trust;
    }
    if (*number == kDeny) {
      return UserDecision::Deny;
    }
  }
  return UserDecision::None;
}

/// The place of a status in its certificate's list.
int rank(TrustStatus status) {
  switch (status) {
    case TrustStatus::HostNameMismatch:
      return 0;
    case TrustStatus::Expired:
    case TrustStatus::NotYetValid:
      return 1;
    default:
      return 2;
  }
}

bool anyOf(const std::vector<std::vector<TrustStatus>>& chain, auto condition) {
  return std::ranges::any_of(chain, [&](const auto& list) { return std::ranges::any_of(list, condition); });
}

TrustResult resultOf(const std::vector<std::vector<TrustStatus>>& chain, UserDecision decision) {
  if (decision == UserDecision::Deny) {
    return TrustResult::Deny;
  }
  const auto isInternal = [](TrustStatus status) { return status == TrustStatus::InternalError; };
  if (anyOf(chain, [&](TrustStatus status) { return !isRecoverable(status) && !isInternal(status); })) {
    return TrustResult::FatalTrustFailure;
  }
  if (anyOf(chain, isInternal)) {
    return TrustResult::OtherError;
  }
  const bool isForOtherHost =
      anyOf(chain, [](TrustStatus status) { return status == TrustStatus::HostNameMismatch; });
  if (decision == UserDecision::Trust && !isForOtherHost) {
    return TrustResult::Proceed;
  }
  const bool isInOrder = !anyOf(chain, [](TrustStatus) { return true; });
  return isInOrder ? TrustResult::Unspecified : TrustResult::RecoverableTrustFailure;
}

}  // namespace

Trust::Trust(const std::vector<std::string>& derChain, TrustPolicy policy)
    : certificates_(derChain.size()), policy_(std::move(policy)) {
  std::size_t bytes = 0;
  for (const std::string& der : derChain) {
    bytes += der.size();
  }
  if (derChain.size() > kMostCertificates || bytes > kMostBytes) {
    form_ = Form::TooLong;
    return;
  }
  for (std::size_t i = 0; i < derChain.size(); ++i) {
    certificates_[i] = Certificate::fromDER(derChain[i]);
    if (!certificates_[i]) {
      form_ = Form::Unparseable;
    }
  }
}

int Trust::evaluate(TrustResult& result) {
  if (certificates_.empty()) {
    return kNoCertificates;
  }
  statusChain_.assign(certificates_.size(), {});
  last_.reset();
  result = evaluateChain();
  if (!verifyDate_) {
    last_ = {.policy = policy_, .result = result};
  }
  return 0;
}

std::optional<TrustResult> Trust::lastResult(const TrustPolicy& policy) const {
  return last_ && last_->policy == policy ? std::optional(last_->result) : std::nullopt;
}

TrustResult Trust::evaluateChain() {
  if (form_ == Form::TooLong) {
    note(0, TrustStatus::ChainTooLong);
    return TrustResult::FatalTrustFailure;
  }
  if (form_ == Form::Unparseable) {
    for (std::size_t i = 0; i < certificates_.size(); ++i) {
      if (!certificates_[i]) {
        note(i, TrustStatus::Unparseable);
      }
    }
    return TrustResult::FatalTrustFailure;
  }
  std::vector<Certificate> chain;
  for (const std::optional<Certificate>& certificate : certificates_) {
    chain.push_back(*certificate);
  }
  if (policy_.isServer && !policy_.isForAnyHost && !isIssuedTo(chain.front(), policy_.host)) {
    note(0, TrustStatus::HostNameMismatch);
  }
  for (const Finding& finding :
       verifyChain(chain, policy_.isServer, verifyDate_.value_or(std::time(nullptr)))) {
    note(finding.index, finding.status);
  }
  for (std::vector<TrustStatus>& list : statusChain_) {
    std::ranges::stable_sort(list, {}, rank);
  }
  return resultOf(statusChain_, userDecision(chain.front()));
}

void Trust::note(std::size_t index, TrustStatus status) {
  std::vector<TrustStatus>& list = statusChain_[index];
  if (std::ranges::find(list, status) == list.end()) {
    list.push_back(status);
  }
}

const Certificate* Trust::certificateAtIndex(std::size_t index) const {
  return index < certificates_.size() && certificates_[index] ? &*certificates_[index] : nullptr;
}

}  // namespace foundation
