#pragma once

#include <atomic>
#include <memory>

#include "foundation/base/Export.h"
#include "foundation/url/Credential.h"
#include "foundation/url/ProtectionSpace.h"

namespace foundation {

class AuthenticationChallenge;

/// Who put a challenge and takes its answer. Called on the thread that answers, at most once for each
/// challenge.
class FOUNDATION_EXPORT AuthenticationChallengeSender {
 public:
  virtual ~AuthenticationChallengeSender();
  virtual void useCredential(const Credential& credential, const AuthenticationChallenge& challenge) = 0;
  virtual void cancelAuthenticationChallenge(const AuthenticationChallenge& challenge) = 0;
};

/// A server's or proxy's demand for a credential, to be answered once, on any thread, at any time. Whoever is
/// asked may keep it. One that is dropped without an answer leaves its load waiting until the connection is
/// cancelled; an answer that comes after that finds nobody.
class FOUNDATION_EXPORT AuthenticationChallenge {
 public:
  /// `sender` must not be null.
  AuthenticationChallenge(ProtectionSpace space, int previousFailureCount,
                          std::shared_ptr<AuthenticationChallengeSender> sender);
  AuthenticationChallenge(const AuthenticationChallenge&) = delete;
  AuthenticationChallenge& operator=(const AuthenticationChallenge&) = delete;

  const ProtectionSpace& protectionSpace() const { return space_; }
  /// How many credentials have been refused in a row for this space and load.
  int previousFailureCount() const { return previousFailureCount_; }

  /// Goes on with this credential, and keeps it as its persistence says.
  void useCredential(const Credential& credential);
  /// The load fails with UserCancelledAuthentication.
  void cancel();

 private:
  /// False, with a line traced, when the challenge has been answered before.
  bool takeAnswer();

  const ProtectionSpace space_;
  const int previousFailureCount_;
  const std::shared_ptr<AuthenticationChallengeSender> sender_;
  std::atomic<bool> isAnswered_ = false;
};

}  // namespace foundation
