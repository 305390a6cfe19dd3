#pragma once

// Puts a server's certificate that did not hold to the user, and answers the challenge by what the user and the
// user's trust settings say. Remembers for the life of the process which hosts were accepted, and for which a wrong
// host name was shown. Class operations only; called on downloaders' threads, returns at once, and answers at once
// or later on the main thread.

#include <memory>

#include "foundation/url/AuthenticationChallenge.h"

class CertificationConfirmingHelper {
 public:
  CertificationConfirmingHelper() = delete;

  /// The challenge must be one of server trust.
  static void confirmUntrustedCert(const std::shared_ptr<foundation::AuthenticationChallenge>& challenge);

  /// Evaluates the trust anew for the challenge's host. False, against what the name suggests and on purpose, when
  /// the host's name is what is wrong with the leaf certificate first of all; else true.
  static bool checkHostNameMismatch(const foundation::AuthenticationChallenge& challenge);
};
