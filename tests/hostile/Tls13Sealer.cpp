#include "tests/hostile/Tls13Sealer.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/params.h>

#include <memory>
#include <stdexcept>

namespace test {
namespace {

constexpr std::size_t kTagBytes = 16;

void check(bool isRight) {
  if (!isRight) {
    throw std::runtime_error("cannot protect a record");
  }
}

template <typename T, void (*kFree)(T*)>
struct Free {
  void operator()(T* object) const { kFree(object); }
};

unsigned char* bytesOf(std::string& text) {
  return reinterpret_cast<unsigned char*>(text.data());
}

/// HKDF-Expand-Label (RFC 8446 §7.1) without a context.
std::string expand(std::string secret, std::string label, std::size_t length) {
  const std::unique_ptr<EVP_KDF, Free<EVP_KDF, EVP_KDF_free>> kdf(
      EVP_KDF_fetch(nullptr, OSSL_KDF_NAME_TLS1_3_KDF, nullptr));
  check(kdf != nullptr);
  const std::unique_ptr<EVP_KDF_CTX, Free<EVP_KDF_CTX, EVP_KDF_CTX_free>> context(EVP_KDF_CTX_new(kdf.get()));
  std::string digest = "SHA256";
  std::string prefix = "tls13 ";
  int mode = EVP_KDF_HKDF_MODE_EXPAND_ONLY;
  const auto octets = [](const char* name, std::string& text) {
    return OSSL_PARAM_construct_octet_string(name, text.data(), text.size());
  };
  const OSSL_PARAM parameters[] = {OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digest.data(), 0),
                                   OSSL_PARAM_construct_int(OSSL_KDF_PARAM_MODE, &mode),
                                   octets(OSSL_KDF_PARAM_KEY, secret),
                                   octets(OSSL_KDF_PARAM_PREFIX, prefix),
                                   octets(OSSL_KDF_PARAM_LABEL, label),
                                   OSSL_PARAM_construct_end()};
  std::string result(length, '\0');
  check(EVP_KDF_derive(context.get(), bytesOf(result), length, parameters) == 1);
  return result;
}

}  // namespace

Tls13Sealer::Tls13Sealer(const std::string& secret, std::uint64_t sequence)
    : key_(expand(secret, "key", 16)), iv_(expand(secret, "iv", 12)), sequence_(sequence) {
}

std::string Tls13Sealer::seal(char type, const std::string& content) {
  std::string nonce = iv_;
  for (std::size_t i = 0; i < sizeof(sequence_); ++i) {
    nonce[nonce.size() - 1 - i] ^= static_cast<char>(sequence_ >> (8 * i));
  }
  ++sequence_;
  std::string inner = content + type;
  const std::size_t length = inner.size() + kTagBytes;
  std::string head{23, 3, 3, static_cast<char>(length >> 8), static_cast<char>(length)};
  std::string sealed(inner.size(), '\0');
  std::string tag(kTagBytes, '\0');
  const std::unique_ptr<EVP_CIPHER_CTX, Free<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free>> context(
      EVP_CIPHER_CTX_new());
  int done = 0;
  check(EVP_EncryptInit_ex(context.get(), EVP_aes_128_gcm(), nullptr, bytesOf(key_), bytesOf(nonce)) == 1 &&
        EVP_EncryptUpdate(context.get(), nullptr, &done, bytesOf(head), static_cast<int>(head.size())) == 1 &&
        EVP_EncryptUpdate(context.get(), bytesOf(sealed), &done, bytesOf(inner),
                          static_cast<int>(inner.size())) == 1 &&
        EVP_EncryptFinal_ex(context.get(), bytesOf(tag), &done) == 1 &&
        EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_GET_TAG, static_cast<int>(kTagBytes), bytesOf(tag)) ==
            1);
  return head + sealed + tag;
}

}  // namespace test
