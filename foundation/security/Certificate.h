#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/base/Export.h"

struct x509_st;

namespace foundation {

/// An X.509 certificate (RFC 5280): an immutable value, cheap to copy; copies share its bytes and may be used on
/// several threads at once.
class FOUNDATION_EXPORT Certificate {
 public:
  /// Nothing when the bytes are not exactly one certificate.
  static std::optional<Certificate> fromDER(std::string_view der);

  const std::string& der() const;
  /// The textual encoding (RFC 7468), ending with a newline.
  std::string pem() const;
  /// The digests of the whole certificate in upper-case hexadecimal digits, without separators.
  std::string sha1() const;
  std::string sha256() const;
  /// One line for people, UTF-8: the subject's common name, else the first name of the subject, else the first
  /// alternative name; empty when there is none. Control characters are shown as U+FFFD.
  std::string subjectSummary() const;

  bool operator==(const Certificate& other) const { return der() == other.der(); }

  /// OpenSSL's object, owned by the certificate; for what evaluates certificates inside this library.
  x509_st* x509() const;

 private:
  struct Content;
  explicit Certificate(std::shared_ptr<const Content> content) : content_(std::move(content)) {}

  std::shared_ptr<const Content> content_;
};

}  // namespace foundation
