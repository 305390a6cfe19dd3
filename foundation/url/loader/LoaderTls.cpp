#include "foundation/url/loader/LoaderTls.h"

#include <openssl/async.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

#include <new>

#include "foundation/security/CertificateStore.h"
#include "foundation/security/Trust.h"
#include "foundation/url/loader/ReadAllowance.h"

namespace foundation {
namespace {

/// What a context shows whose it is by: curl sets a proxy's up as CURLOPT_PROXY_SSLVERSION says. The origin's has no
/// highest version.
constexpr int kHighestForProxies = TLS1_3_VERSION;
constexpr long kVersionsForProxies =
    static_cast<long>(CURL_SSLVERSION_TLSv1_2) | static_cast<long>(CURL_SSLVERSION_MAX_TLSv1_3);

}  // namespace

/// OpenSSL's side of a handshake.
struct HandshakeCallbacks {
  using Owner = std::shared_ptr<Handshake>;

  static CURLcode prepareContext(CURL*, void* context, void* client) noexcept {
    try {
      return prepare(static_cast<SSL_CTX*>(context), *static_cast<HandshakeClient*>(client));
    } catch (const std::bad_alloc&) {
      return CURLE_OUT_OF_MEMORY;
    }
  }

 private:
  static CURLcode prepare(SSL_CTX* tls, HandshakeClient& client) {
    SSL_CTX_set_info_callback(tls, &HandshakeCallbacks::noteProgress);
    if (SSL_CTX_get_max_proto_version(tls) == kHighestForProxies) {
      return prepareProxy(tls);
    }
    // The context keeps its own store, in which curl notes the folder by which loads differ: the process's would keep
    // them all.
    auto owner = std::make_unique<Owner>(std::make_shared<Handshake>(client));
    Handshake* const handshake = owner->get();
    if (SSL_CTX_set_ex_data(tls, ownerIndex(), owner.get()) != 1) {
      return CURLE_OUT_OF_MEMORY;
    }
    [[maybe_unused]] const auto* kept = owner.release();  // the context's now
    // The handshake runs as a job that its callback can suspend.
    SSL_CTX_set_mode(tls, SSL_MODE_ASYNC);
    SSL_CTX_set_cert_verify_callback(tls, &HandshakeCallbacks::verify, handshake);
    return CURLE_OK;
  }

  /// OpenSSL skips what a server may send at any time before its certificates, for as long as there is more of it. Without
  /// memory for the limit here the verification fails for want of it.
  static void noteProgress(const SSL* tls, int where, int) {
    if ((where & SSL_CB_HANDSHAKE_START) != 0) {
      ReadAllowance::limit(const_cast<SSL*>(tls));
    }
  }

  static int ownerIndex() {
    static const int index =
        SSL_CTX_get_ex_new_index(0, nullptr, nullptr, nullptr, &HandshakeCallbacks::release);
    return index;
  }

  static void release(void*, void* owner, CRYPTO_EX_DATA*, int, long, void*) {
    delete static_cast<Owner*>(owner);
  }

  static CURLcode prepareProxy(SSL_CTX* tls) {
    const CertificateStore* store = CertificateStore::shared();
    if (store == nullptr) {
      return CURLE_OUT_OF_MEMORY;
    }
    SSL_CTX_set1_cert_store(tls, store->x509());
    SSL_CTX_set_cert_verify_callback(tls, &HandshakeCallbacks::verifyProxy, nullptr);
    return CURLE_OK;
  }

  static SSL* connectionOf(X509_STORE_CTX* context) {
    return static_cast<SSL*>(X509_STORE_CTX_get_ex_data(context, SSL_get_ex_data_X509_STORE_CTX_idx()));
  }

  /// Nobody is asked about a proxy: its certificate is in order, and for the proxy's name or address (which curl
  /// compares), or it is refused.
  static int verifyProxy(X509_STORE_CTX* context, void*) {
    if (X509_verify_cert(context) != 1 || !ReadAllowance::limit(connectionOf(context))) {
      return 0;
    }
    if (!isAccepted(context)) {
      X509_STORE_CTX_set_error(context, X509_V_ERR_CERT_REJECTED);
      return 0;
    }
    return 1;
  }

  /// OpenSSL by itself looks neither at revocation lists nor at what the user refuses.
  static bool isAccepted(X509_STORE_CTX* context) noexcept {
    try {
      Trust trust(chainOf(context), TrustPolicy::sslAnyHost());
      TrustResult result = TrustResult::Invalid;
      return trust.evaluate(result) == 0 &&
             (result == TrustResult::Unspecified || result == TrustResult::Proceed);
    } catch (const std::bad_alloc&) {
      return false;
    }
  }

  static int verify(X509_STORE_CTX* context, void* argument) {
    auto& handshake = *static_cast<Handshake*>(argument);
    SSL* const tls = connectionOf(context);
    const bool isTrusted =
        handshake.client_ != nullptr && isTrustedServer(handshake, context) && ReadAllowance::limit(tls);
    handshake.client_ = nullptr;
    // Else every read from here on would run as a job of its own.
    SSL_clear_mode(tls, SSL_MODE_ASYNC);
    X509_STORE_CTX_set_error(context, isTrusted ? X509_V_OK : X509_V_ERR_APPLICATION_VERIFICATION);
    return isTrusted ? 1 : 0;
  }

  static bool isTrustedServer(Handshake& handshake, X509_STORE_CTX* context) noexcept {
    try {
      handshake.chain_ = chainOf(context);
      return !handshake.chain_.empty() && ask(handshake);
    } catch (const std::bad_alloc&) {
      handshake.client_->ranOutOfMemory();
      return false;
    }
  }

  /// What the peer has sent, in DER; nothing when there is a certificate that cannot be encoded.
  static std::vector<std::string> chainOf(X509_STORE_CTX* context) {
    std::vector<std::string> chain;
    const STACK_OF(X509)* sent = X509_STORE_CTX_get0_untrusted(context);
    for (int i = 0; i < sk_X509_num(sent); ++i) {
      const X509* certificate = sk_X509_value(sent, i);
      const int length = i2d_X509(certificate, nullptr);
      if (length <= 0) {
        return {};
      }
      std::string& encoded = chain.emplace_back(static_cast<std::size_t>(length), '\0');
      auto* bytes = reinterpret_cast<unsigned char*>(encoded.data());
      i2d_X509(certificate, &bytes);
    }
    return chain;
  }

  static bool ask(Handshake& handshake) {
    if (handshake.chain_.front() == handshake.client_->pinnedLeaf()) {
      return true;
    }
    if (ASYNC_get_current_job() == nullptr || !handshake.client_->mayBeAsked()) {
      return false;  // nobody could be waited for
    }
    handshake.client_->handshakeSuspended(handshake.shared_from_this());
    handshake.isSuspended_ = true;
    while (handshake.verdict_ == Handshake::Verdict::None) {
      if (ASYNC_pause_job() != 1) {
        handshake.isSuspended_ = false;
        return false;
      }
    }
    handshake.isSuspended_ = false;
    return handshake.verdict_ == Handshake::Verdict::Trusted;
  }
};

bool configureTls(CURL* easy, HandshakeClient& client, const std::string& isolation) {
  const auto set = [easy](CURLoption option, auto value) {
    return curl_easy_setopt(easy, option, value) == CURLE_OK;
  };
  // The host name is part of what the client judges. Without a CA file of its own curl does not parse the system's
  // bundle anew for every connection; with a cache of stores it would put one origin's in the place of a proxy's. A
  // session of an earlier connection would go by without a question.
  if (!set(CURLOPT_SSL_VERIFYPEER, 1L) || !set(CURLOPT_SSL_VERIFYHOST, 0L) ||
      !set(CURLOPT_CAINFO, static_cast<char*>(nullptr)) ||
      !set(CURLOPT_CAPATH, static_cast<char*>(nullptr)) || !set(CURLOPT_CA_CACHE_TIMEOUT, 0L) ||
      !set(CURLOPT_SSL_SESSIONID_CACHE, 0L) ||
      !set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2)) ||
      !set(CURLOPT_PROXY_SSL_VERIFYPEER, 1L) || !set(CURLOPT_PROXY_SSL_VERIFYHOST, 2L) ||
      !set(CURLOPT_PROXY_CAINFO, static_cast<char*>(nullptr)) ||
      !set(CURLOPT_PROXY_CAPATH, static_cast<char*>(nullptr)) ||
      !set(CURLOPT_PROXY_SSLVERSION, kVersionsForProxies) ||
      !set(CURLOPT_SSL_CTX_FUNCTION, &HandshakeCallbacks::prepareContext) ||
      !set(CURLOPT_SSL_CTX_DATA, static_cast<void*>(&client))) {
    return false;
  }
  // curl lets connections serve each other's requests when their settings agree, and does not look at callbacks; a
  // folder of certificates that is not there makes them differ.
  return isolation.empty() || set(CURLOPT_CAPATH, isolation.c_str());
}

}  // namespace foundation
