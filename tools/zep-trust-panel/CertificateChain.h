#pragma once

#include <gcr/gcr-base.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

/// The certificates of a request, leaf first, as the toolkit shows them and as the library judges them.
/// Immutable; main thread.
class CertificateChain {
 public:
  /// Nothing when there is none, or one of them is not a certificate.
  static std::optional<CertificateChain> fromPem(const std::vector<std::string>& certificates);

  std::size_t size() const { return certificates_.size(); }
  GcrCertificate* at(std::size_t index) const { return certificates_.at(index).get(); }
  const std::vector<std::string>& der() const { return der_; }

  /// Lines for people, never empty: the name that says most, and the whole distinguished name (RFC 4514).
  std::string name(std::size_t index) const;
  std::string wholeName(std::size_t index) const;
  std::string issuerName(std::size_t index) const;
  std::string wholeIssuerName(std::size_t index) const;
  /// Days, as the user's language writes them.
  std::string firstDay(std::size_t index) const;
  std::string lastDay(std::size_t index) const;
  /// SHA-256, pairs of upper-case hexadecimal digits.
  std::string fingerprint(std::size_t index) const;

 private:
  struct Unref {
    void operator()(GcrCertificate* certificate) const { g_object_unref(certificate); }
  };

  CertificateChain() = default;

  std::vector<std::string> der_;
  std::vector<std::string> names_;
  std::vector<std::unique_ptr<GcrCertificate, Unref>> certificates_;
};
