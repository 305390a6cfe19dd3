#include "foundation/security/ChainVerification.h"

#include <fcntl.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>

#include "foundation/base/Descriptor.h"
#include "foundation/base/Release.h"
#include "foundation/base/Shortage.h"
#include "foundation/security/CertificateStore.h"
#include "foundation/security/ErrorQueueMark.h"
#include "foundation/security/OpenSSLUse.h"

namespace foundation {
namespace {

/// What a verification writes to, and the certificates it is about.
struct Verification {
  const std::vector<Certificate>& chain;
  std::vector<Finding> findings;
  /// There was no memory to note one.
  bool isIncomplete = false;

  std::optional<std::size_t> indexOf(const X509* x509) const {
    for (std::size_t i = 0; i < chain.size(); ++i) {
      if (x509 != nullptr && X509_cmp(chain[i].x509(), x509) == 0) {
        return i;
      }
    }
    return std::nullopt;
  }
};

struct FreeReferences {
  // The certificates stay: the stack only borrows them.
  void operator()(STACK_OF(X509) * stack) const { sk_X509_free(stack); }
};
using CertificateStack = std::unique_ptr<STACK_OF(X509), FreeReferences>;
using VerificationContext = std::unique_ptr<X509_STORE_CTX, Release<X509_STORE_CTX_free>>;

/// What OpenSSL's error means for the certificate; nothing when it is none of its faults.
std::optional<TrustStatus> statusOf(int error) {
  switch (error) {
    // Whoever keeps revocation lists in the store need not keep one of every issuer, nor a fresh one.
    case X509_V_ERR_UNABLE_TO_GET_CRL:
    case X509_V_ERR_UNABLE_TO_GET_CRL_ISSUER:
    case X509_V_ERR_UNABLE_TO_DECRYPT_CRL_SIGNATURE:
    case X509_V_ERR_CRL_SIGNATURE_FAILURE:
    case X509_V_ERR_CRL_NOT_YET_VALID:
    case X509_V_ERR_CRL_HAS_EXPIRED:
    case X509_V_ERR_ERROR_IN_CRL_LAST_UPDATE_FIELD:
    case X509_V_ERR_ERROR_IN_CRL_NEXT_UPDATE_FIELD:
    case X509_V_ERR_KEYUSAGE_NO_CRL_SIGN:
    case X509_V_ERR_UNHANDLED_CRITICAL_CRL_EXTENSION:
    case X509_V_ERR_DIFFERENT_CRL_SCOPE:
    case X509_V_ERR_CRL_PATH_VALIDATION_ERROR:
      return std::nullopt;

    case X509_V_ERR_CERT_HAS_EXPIRED:
      return TrustStatus::Expired;
    case X509_V_ERR_CERT_NOT_YET_VALID:
      return TrustStatus::NotYetValid;
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
    case X509_V_ERR_CERT_UNTRUSTED:
      return TrustStatus::UnknownIssuer;
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
      return TrustStatus::SelfSigned;
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
      return TrustStatus::UntrustedRoot;
    case X509_V_ERR_INVALID_PURPOSE:
      return TrustStatus::WrongPurpose;
    case X509_V_ERR_EE_KEY_TOO_SMALL:
    case X509_V_ERR_CA_KEY_TOO_SMALL:
      return TrustStatus::WeakKey;
    case X509_V_ERR_CA_MD_TOO_WEAK:
      return TrustStatus::WeakDigest;
    case X509_V_ERR_CERT_REVOKED:
      return TrustStatus::Revoked;
    case X509_V_ERR_CERT_REJECTED:
      return TrustStatus::Rejected;
    case X509_V_ERR_CERT_SIGNATURE_FAILURE:
    case X509_V_ERR_UNABLE_TO_DECRYPT_CERT_SIGNATURE:
    case X509_V_ERR_UNABLE_TO_DECODE_ISSUER_PUBLIC_KEY:
      return TrustStatus::BadSignature;
    case X509_V_ERR_ERROR_IN_CERT_NOT_BEFORE_FIELD:
    case X509_V_ERR_ERROR_IN_CERT_NOT_AFTER_FIELD:
      return TrustStatus::Unparseable;
    case X509_V_ERR_CERT_CHAIN_TOO_LONG:
      return TrustStatus::ChainTooLong;
    case X509_V_ERR_UNSPECIFIED:
    case X509_V_ERR_OUT_OF_MEM:
    case X509_V_ERR_INVALID_CALL:
    case X509_V_ERR_STORE_LOOKUP:
      return TrustStatus::InternalError;
    default:
      return TrustStatus::ConstraintViolated;
  }
}

/// The certificate of ours that needs the one the verification is at.
std::size_t indexBeneath(const Verification& verification, X509_STORE_CTX* context) {
  const STACK_OF(X509)* verified = X509_STORE_CTX_get0_chain(context);
  for (int depth = X509_STORE_CTX_get_error_depth(context) - 1; depth > 0; --depth) {
    if (const auto index = verification.indexOf(sk_X509_value(verified, depth))) {
      return *index;
    }
  }
  return 0;
}

Finding findingAt(const Verification& verification, X509_STORE_CTX* context, TrustStatus status) {
  if (const auto index = verification.indexOf(X509_STORE_CTX_get_current_cert(context))) {
    return {*index, status};
  }
  // What nobody may accept stays that, whoever's it is.
  return {indexBeneath(verification, context), isRecoverable(status) ? TrustStatus::UnknownIssuer : status};
}

void record(Verification& verification, X509_STORE_CTX* context) {
  if (const auto status = statusOf(X509_STORE_CTX_get_error(context))) {
    verification.findings.push_back(findingAt(verification, context, *status));
  }
}

extern "C" int onVerified(int isGood, X509_STORE_CTX* context) noexcept {
  if (isGood == 0) {
    auto& verification = *static_cast<Verification*>(X509_STORE_CTX_get_app_data(context));
    try {
      record(verification, context);
    } catch (const std::bad_alloc&) {
      verification.isIncomplete = true;
    }
  }
  return 1;
}

/// A verification by itself applies no security level; a TLS connection applies its own.
int securityLevel() {
  static const int level = [] {
    constexpr int kDistributionsLevel = 2;
    const std::unique_ptr<SSL_CTX, Release<SSL_CTX_free>> tls(SSL_CTX_new(TLS_client_method()));
    return tls != nullptr ? SSL_CTX_get_security_level(tls.get()) : kDistributionsLevel;
  }();
  return level;
}

[[nodiscard]] bool setParameters(X509_STORE_CTX* context, bool isServer, std::time_t date) {
  if (isServer && X509_STORE_CTX_set_purpose(context, X509_PURPOSE_SSL_SERVER) != 1) {
    return false;
  }
  X509_STORE_CTX_set_time(context, 0, date);
  // Whatever stands in the store is an anchor, issuer or not.
  X509_STORE_CTX_set_flags(context,
                           X509_V_FLAG_PARTIAL_CHAIN | X509_V_FLAG_CRL_CHECK | X509_V_FLAG_CRL_CHECK_ALL);
  X509_VERIFY_PARAM_set_auth_level(X509_STORE_CTX_get0_param(context), securityLevel());
  return true;
}

/// The revocation lists that a verification needs.
struct Lists {
  bool areThere = false;
  /// Of the last of them.
  std::uint64_t version = 0;
};

bool holdsAList(X509_STORE* store, const X509_NAME* issuer) {
  X509_STORE_lock(store);
  const X509_OBJECT* list =
      X509_OBJECT_retrieve_by_subject(X509_STORE_get0_objects(store), X509_LU_CRL, issuer);
  X509_STORE_unlock(store);
  return list != nullptr;
}

/// Those of the chain's issuers, put into the store. Nothing when one cannot be read.
std::optional<Lists> readLists(CertificateStore& store, const STACK_OF(X509) * chain) {
  Lists lists;
  for (int i = 0; i < sk_X509_num(chain); ++i) {
    const X509_NAME* issuer = X509_get_issuer_name(sk_X509_value(chain, i));
    const std::optional<std::uint64_t> version = store.revocationLists().read(issuer);
    if (!version) {
      return std::nullopt;
    }
    lists.version = std::max(lists.version, *version);
    lists.areThere = lists.areThere || holdsAList(store.x509(), issuer);
  }
  return lists;
}

/// Nothing when it fails inside: the callback lets everything else pass. Else what lists there are by then.
std::optional<Lists> verifyOnce(Verification& verification, CertificateStore& store, STACK_OF(X509) * sent,
                                bool isServer, std::time_t date) {
  const VerificationContext context(X509_STORE_CTX_new());
  if (context == nullptr ||
      X509_STORE_CTX_init(context.get(), store.x509(), verification.chain.front().x509(), sent) != 1 ||
      X509_STORE_CTX_set_app_data(context.get(), &verification) != 1 ||
      !setParameters(context.get(), isServer, date)) {
    return std::nullopt;
  }
  X509_STORE_CTX_set_verify_cb(context.get(), onVerified);
  if (X509_verify_cert(context.get()) != 1 || verification.isIncomplete) {
    return std::nullopt;
  }
  return readLists(store, X509_STORE_CTX_get0_chain(context.get()));
}

/// Whose lists are needed is known when the chain is built, and they may have come meanwhile, read for another
/// verification, too. So a chain is verified until they stay; and with any of them once more, because OpenSSL does not
/// say when it had no memory to choose among them. What one of the looks finds counts.
bool verify(Verification& verification, bool isServer, std::time_t date) {
  constexpr int kMostLooks = 20;
  const std::vector<Certificate>& chain = verification.chain;
  const CertificateStack sent(sk_X509_new_reserve(nullptr, static_cast<int>(chain.size())));
  CertificateStore* store = CertificateStore::shared();
  if (sent == nullptr || store == nullptr) {
    return false;
  }
  for (std::size_t i = 1; i < chain.size(); ++i) {
    sk_X509_push(sent.get(), chain[i].x509());
  }
  int looksAtTheSame = 0;
  for (int look = 0; look < kMostLooks; ++look) {
    const std::uint64_t version = store->revocationLists().version();
    const std::optional<Lists> lists = verifyOnce(verification, *store, sent.get(), isServer, date);
    if (!lists) {
      return false;
    }
    looksAtTheSame = lists->version <= version ? looksAtTheSame + 1 : 0;
    if (looksAtTheSame >= (lists->areThere ? 2 : 1)) {
      return true;
    }
  }
  return false;
}

/// OpenSSL looks for authorities in files, without a word of those that it cannot open. By now the descriptor that was
/// missing may be there again: then somebody is asked about a server that is in order.
bool mayHaveMissedAnAuthority(const std::vector<Finding>& findings) {
  const bool isUnknown = std::ranges::any_of(findings, [](const Finding& finding) {
    return finding.status == TrustStatus::UnknownIssuer || finding.status == TrustStatus::UntrustedRoot ||
           finding.status == TrustStatus::SelfSigned;
  });
  return isUnknown && !Descriptor(open("/", O_PATH | O_CLOEXEC)).isOpen() && isShortage(errno);
}

/// A verification breaks off at a key that cannot be read.
Finding failure(const std::vector<Certificate>& chain) {
  for (std::size_t i = 0; i < chain.size(); ++i) {
    if (X509_get0_pubkey(chain[i].x509()) == nullptr) {
      return {i, TrustStatus::Unparseable};
    }
  }
  return {0, TrustStatus::InternalError};
}

}  // namespace

bool isRecoverable(TrustStatus status) {
  switch (status) {
    case TrustStatus::Revoked:
    case TrustStatus::Rejected:
    case TrustStatus::BadSignature:
    case TrustStatus::Unparseable:
    case TrustStatus::InternalError:
      return false;
    default:
      return true;
  }
}

std::vector<Finding> verifyChain(const std::vector<Certificate>& chain, bool isServer, std::time_t date) {
  const OpenSSLUse use;
  if (!use.isAllowed()) {
    return {{0, TrustStatus::InternalError}};
  }
  const ErrorQueueMark mark;
  Verification verification = {.chain = chain, .findings = {}};
  if (!verify(verification, isServer, date)) {
    verification.findings.push_back(failure(chain));
  } else if (mayHaveMissedAnAuthority(verification.findings)) {
    verification.findings.push_back({0, TrustStatus::InternalError});
  }
  return std::move(verification.findings);
}

}  // namespace foundation
