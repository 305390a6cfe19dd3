#include "foundation/security/Certificate.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <array>
#include <climits>
#include <mutex>
#include <vector>

#include "foundation/base/Release.h"
#include "foundation/security/ErrorQueueMark.h"
#include "foundation/security/OpenSSLUse.h"

namespace foundation {
namespace {

using AlternativeNames = std::unique_ptr<GENERAL_NAMES, Release<GENERAL_NAMES_free>>;

std::string upperCaseHex(const unsigned char* bytes, std::size_t length) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string hex;
  hex.reserve(2 * length);
  for (std::size_t i = 0; i < length; ++i) {
    hex += kDigits[bytes[i] >> 4];
    hex += kDigits[bytes[i] & 0xF];
  }
  return hex;
}

std::string digest(std::string_view bytes, const EVP_MD* (*type)()) {
  const OpenSSLUse use;
  if (!use.isAllowed()) {
    return {};
  }
  const ErrorQueueMark mark;
  std::array<unsigned char, EVP_MAX_MD_SIZE> value = {};
  unsigned length = 0;
  if (EVP_Digest(bytes.data(), bytes.size(), value.data(), &length, type(), nullptr) != 1) {
    return {};
  }
  return upperCaseHex(value.data(), length);
}

std::string printable(const ASN1_STRING* string) {
  unsigned char* utf8 = nullptr;
  const int length = ASN1_STRING_to_UTF8(&utf8, string);
  if (length < 0) {
    return {};
  }
  constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
  std::string text;
  for (int i = 0; i < length; ++i) {
    if (utf8[i] < 0x20 || utf8[i] == 0x7F) {
      text += kReplacement;
    } else if (utf8[i] == 0xC2 && i + 1 < length && utf8[i + 1] < 0xA0) {
      text += kReplacement;  // U+0080 to U+009F
      ++i;
    } else {
      text += static_cast<char>(utf8[i]);
    }
  }
  OPENSSL_free(utf8);
  return text;
}

/// The entry at `index`; empty when there is none.
std::string subjectName(const X509_NAME* subject, int index) {
  const X509_NAME_ENTRY* entry = X509_NAME_get_entry(subject, index);
  return entry != nullptr ? printable(X509_NAME_ENTRY_get_data(entry)) : std::string();
}

std::string firstAlternativeName(const X509* x509) {
  const AlternativeNames names(
      static_cast<GENERAL_NAMES*>(X509_get_ext_d2i(x509, NID_subject_alt_name, nullptr, nullptr)));
  for (int i = 0; i < sk_GENERAL_NAME_num(names.get()); ++i) {
    int type = 0;
    const void* value = GENERAL_NAME_get0_value(sk_GENERAL_NAME_value(names.get(), i), &type);
    if (type == GEN_DNS || type == GEN_EMAIL || type == GEN_URI) {
      return printable(static_cast<const ASN1_STRING*>(value));
    }
  }
  return {};
}

struct FreeUnlessOver {
  void operator()(X509* x509) const {
    const OpenSSLUse use;
    if (use.isAllowed()) {
      X509_free(x509);
      return;
    }
    // The process ends. What is left stays known, so that no leak checker takes it for lost.
    static std::mutex& mutex = *new std::mutex;
    static std::vector<X509*>& left = *new std::vector<X509*>;
    const std::lock_guard lock(mutex);
    left.push_back(x509);
  }
};

}  // namespace

struct Certificate::Content {
  std::string der;
  std::unique_ptr<X509, FreeUnlessOver> x509;
};

std::optional<Certificate> Certificate::fromDER(std::string_view der) {
  if (der.empty() || der.size() > INT_MAX) {
    return std::nullopt;
  }
  const OpenSSLUse use;
  if (!use.isAllowed()) {
    return std::nullopt;
  }
  const ErrorQueueMark mark;
  auto content = std::make_shared<Content>();
  content->der = der;
  const auto* begin = reinterpret_cast<const unsigned char*>(content->der.data());
  const unsigned char* next = begin;
  content->x509.reset(d2i_X509(nullptr, &next, static_cast<long>(der.size())));
  if (content->x509 == nullptr || next != begin + der.size()) {
    return std::nullopt;
  }
  return Certificate(std::move(content));
}

const std::string& Certificate::der() const {
  return content_->der;
}

std::string Certificate::pem() const {
  const OpenSSLUse use;
  if (!use.isAllowed()) {
    return {};
  }
  const ErrorQueueMark mark;
  const std::unique_ptr<BIO, Release<BIO_free>> memory(BIO_new(BIO_s_mem()));
  if (memory == nullptr || PEM_write_bio_X509(memory.get(), x509()) != 1) {
    return {};
  }
  char* text = nullptr;
  const long length = BIO_get_mem_data(memory.get(), &text);
  return {text, static_cast<std::size_t>(length)};
}

std::string Certificate::sha1() const {
  return digest(der(), &EVP_sha1);
}

std::string Certificate::sha256() const {
  return digest(der(), &EVP_sha256);
}

std::string Certificate::subjectSummary() const {
  const OpenSSLUse use;
  if (!use.isAllowed()) {
    return {};
  }
  const ErrorQueueMark mark;
  const X509_NAME* subject = X509_get_subject_name(x509());
  // Of several common names the last one is the most specific.
  int commonName = -1;
  for (int next = X509_NAME_get_index_by_NID(subject, NID_commonName, -1); next >= 0;
       next = X509_NAME_get_index_by_NID(subject, NID_commonName, commonName)) {
    commonName = next;
  }
  std::string summary = subjectName(subject, commonName >= 0 ? commonName : 0);
  return !summary.empty() ? summary : firstAlternativeName(x509());
}

x509_st* Certificate::x509() const {
  return content_->x509.get();
}

}  // namespace foundation
