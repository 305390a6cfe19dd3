#pragma once

#include <map>
#include <mutex>
#include <vector>

#include "foundation/base/Export.h"
#include "foundation/url/Credential.h"
#include "foundation/url/ProtectionSpace.h"

namespace foundation {

/// The credentials that are kept until the process ends, in memory only. Any thread.
class FOUNDATION_EXPORT CredentialStorage {
 public:
  /// The process's own.
  static CredentialStorage& sharedCredentialStorage();

  CredentialStorage();
  ~CredentialStorage();
  CredentialStorage(const CredentialStorage&) = delete;
  CredentialStorage& operator=(const CredentialStorage&) = delete;

  /// Those kept for the space, one for each user name, in the order of the user names.
  std::vector<Credential> credentialsForProtectionSpace(const ProtectionSpace& space) const;
  /// Keeps a credential in place of an earlier one of the same user. One that is not to be kept (persistence
  /// None) changes nothing.
  void setCredential(const Credential& credential, const ProtectionSpace& space);
  /// Forgets exactly this credential; another password of the same user, kept meanwhile, stays.
  void removeCredential(const Credential& credential, const ProtectionSpace& space);

 private:
  using Users = std::map<std::string, Credential>;

  mutable std::mutex mutex_;
  std::map<ProtectionSpace, Users> spaces_;
};

}  // namespace foundation
