#include "foundation/url/CredentialStorage.h"

namespace foundation {

CredentialStorage& CredentialStorage::sharedCredentialStorage() {
  // Never destroyed: threads may still ask while the process exits.
  static CredentialStorage* const storage = new CredentialStorage;
  return *storage;
}

CredentialStorage::CredentialStorage() = default;
CredentialStorage::~CredentialStorage() = default;

std::vector<Credential> CredentialStorage::credentialsForProtectionSpace(const ProtectionSpace& space) const {
  std::vector<Credential> credentials;
  const std::lock_guard lock(mutex_);
  if (const auto users = spaces_.find(space); users != spaces_.end()) {
    for (const auto& [name, credential] : users->second) {
      credentials.push_back(credential);
    }
  }
  return credentials;
}

void CredentialStorage::setCredential(const Credential& credential, const ProtectionSpace& space) {
  if (credential.persistence() == CredentialPersistence::None) {
    return;
  }
  const std::lock_guard lock(mutex_);
  spaces_[space].insert_or_assign(credential.user(), credential);
}

void CredentialStorage::removeCredential(const Credential& credential, const ProtectionSpace& space) {
  const std::lock_guard lock(mutex_);
  const auto users = spaces_.find(space);
  if (users == spaces_.end()) {
    return;
  }
  const auto found = users->second.find(credential.user());
  if (found != users->second.end() && found->second == credential) {
    users->second.erase(found);
  }
  if (users->second.empty()) {
    spaces_.erase(users);
  }
}

}  // namespace foundation
