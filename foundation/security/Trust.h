#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "foundation/base/Export.h"
#include "foundation/security/Certificate.h"

namespace foundation {

/// What an evaluation comes to.
enum class TrustResult {
  Invalid = 0,                  ///< never the outcome of an evaluation
  Proceed = 1,                  ///< the user's trust settings trust the leaf
  Confirm = 2,                  ///< never the outcome of an evaluation
  Deny = 3,                     ///< the user's trust settings deny the leaf
  Unspecified = 4,              ///< everything is in order; the user has said nothing about the leaf
  RecoverableTrustFailure = 5,  ///< something is wrong that a user may decide to accept
  FatalTrustFailure = 6,        ///< revoked, rejected, forged, or no certificate at all
  OtherError = 7,               ///< the evaluation failed inside, for example for want of memory
};

/// What is wrong with one certificate of a chain.
enum class TrustStatus : std::uint32_t {
  HostNameMismatch = 0x80012400,
  Expired = 0x80012401,
  NotYetValid = 0x80012402,
  UnknownIssuer = 0x80012403,       ///< neither sent nor in the store, or not to be relied on itself
  SelfSigned = 0x80012404,          ///< a leaf that is its own issuer and not in the store
  UntrustedRoot = 0x80012405,       ///< a root that was sent and is not in the store
  WrongPurpose = 0x80012406,        ///< not for TLS servers, or an issuer not for theirs
  ConstraintViolated = 0x80012407,  ///< basic, name, path length or policy constraints, unknown critical ones
  WeakKey = 0x80012408,
  WeakDigest = 0x80012409,
  Revoked = 0x8001240A,
  Rejected = 0x8001240B,  ///< distrusted by the store itself
  BadSignature = 0x8001240C,
  Unparseable = 0x8001240D,
  ChainTooLong = 0x8001240E,
  InternalError = 0x8001240F,
};

/// What a chain is evaluated for.
struct FOUNDATION_EXPORT TrustPolicy {
  /// A name or an address; an IPv6 address with or without its brackets. Looked at for servers only.
  std::string host;
  /// The leaf must be a TLS server's, issued to `host`.
  bool isServer = false;
  /// Others look at the host.
  bool isForAnyHost = false;

  /// The chain alone: no purpose, no host.
  static TrustPolicy basicX509() { return {}; }
  /// A TLS server. Nothing is issued to an empty host.
  static TrustPolicy ssl(std::string host) {
    return {.host = std::move(host), .isServer = true, .isForAnyHost = false};
  }
  /// A TLS server, whatever its host.
  static TrustPolicy sslAnyHost() { return {.host = {}, .isServer = true, .isForAnyHost = true}; }

  bool operator==(const TrustPolicy&) const = default;
};

/// The certificates that a peer presents, and whether to rely on them (RFC 5280 section 6, RFC 9525) by the
/// process's certificate store and the user's trust settings. A value: it can be copied to any thread and
/// evaluated there, again and again; one object is not for two threads at once.
class FOUNDATION_EXPORT Trust {
 public:
  /// More or longer chains are a fatal failure, unseen.
  static constexpr std::size_t kMostCertificates = 100;
  static constexpr std::size_t kMostBytes = 1 << 20;
  /// What evaluate() returns for a chain without certificates.
  static constexpr int kNoCertificates = -1;

  /// `derChain`: leaf first, the others in any order. The leaf's issuers are taken from it and from the store.
  Trust(const std::vector<std::string>& derChain, TrustPolicy policy);

  /// Holds from the next evaluation on.
  void setPolicy(TrustPolicy policy) { policy_ = std::move(policy); }
  /// Seconds since the epoch; without it every evaluation takes the time it runs at.
  void setVerifyDate(std::int64_t unixTime) { verifyDate_ = unixTime; }

  /// 0, or kNoCertificates with `result` untouched. Reads files, never the network.
  ///
  /// The user's settings of the leaf count in their order: the first that says trust (1, 2) or deny (3) decides,
  /// others say nothing. Deny outweighs everything. Trust lifts what is recoverable except a wrong host: nobody
  /// can have meant a certificate for another host.
  int evaluate(TrustResult& result);

  /// What the last evaluation came to, if it was for this policy and the time it ran at; otherwise nothing.
  std::optional<TrustResult> lastResult(const TrustPolicy& policy) const;

  std::size_t certificateCount() const { return certificates_.size(); }
  /// Null when the index is out of range or there is no such certificate that can be parsed. Valid as long as
  /// the trust.
  const Certificate* certificateAtIndex(std::size_t index) const;
  /// One list for each certificate, of the last evaluation; empty before the first. A list begins with the host
  /// name, then come the dates, then the rest. What is wrong with a certificate that was not sent stands with
  /// the one it was needed for, as UnknownIssuer where it is recoverable.
  const std::vector<std::vector<TrustStatus>>& statusChain() const { return statusChain_; }
  const std::string& policyHost() const { return policy_.host; }

 private:
  enum class Form { Regular, Unparseable, TooLong };
  struct Evaluation {
    TrustPolicy policy;
    TrustResult result;
  };

  void note(std::size_t index, TrustStatus status);
  TrustResult evaluateChain();

  std::vector<std::optional<Certificate>> certificates_;
  Form form_ = Form::Regular;
  TrustPolicy policy_;
  std::optional<std::int64_t> verifyDate_;
  /// None of a date that was set.
  std::optional<Evaluation> last_;
  std::vector<std::vector<TrustStatus>> statusChain_;
};

}  // namespace foundation
