#pragma once

#include <optional>
#include <string>

#include "foundation/url/Credential.h"
#include "foundation/url/ProtectionSpace.h"
#include "foundation/url/URL.h"

namespace foundation {

/// A credential together with what it opens: it goes nowhere else.
struct Authorization {
  ProtectionSpace space;
  Credential credential;

  /// It opens a connection, by an exchange of several requests, not a single request.
  bool signsConnectionIn() const { return space.authenticationMethod == AuthenticationMethod::NTLM; }
};

/// What one load knows about signing in: the credential that goes with its current request, what was accepted
/// before a redirect, what the URL brings, and how often it was refused. Lives with its transfer.
class Authentication {
 public:
  enum class Step {
    Ask,      ///< the delegate is to be asked; previousFailureCount() tells how often that failed
    Resend,   ///< a credential is at hand already: authorization()
    TooMany,  ///< no further challenge is taken
  };

  explicit Authentication(const URL& url);

  /// A redirect is followed to `url`: nothing goes with that request unless it is challenged again.
  void redirected(const URL& url);
  /// The current request was answered with a challenge.
  Step challenged(const ProtectionSpace& space);
  /// Why the latest challenge cannot be answered with `credential`; nothing when it can.
  std::optional<std::string> objectionTo(const Credential& credential) const;
  /// The latest challenge is answered with `credential`.
  void use(const Credential& credential);

  /// What goes with the request; nothing at first.
  const std::optional<Authorization>& authorization() const { return authorization_; }
  /// Credentials refused in a row for the space of the latest challenge.
  int previousFailureCount() const { return failures_; }

 private:
  std::optional<Credential> urlCredential_;
  std::optional<Authorization> authorization_;
  /// Let in before a redirect.
  std::optional<Authorization> accepted_;
  std::optional<ProtectionSpace> asked_;
  int failures_ = 0;
  int challenges_ = 0;
};

}  // namespace foundation
