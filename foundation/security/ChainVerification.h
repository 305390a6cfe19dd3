#pragma once

#include <cstddef>
#include <ctime>
#include <vector>

#include "foundation/security/Certificate.h"
#include "foundation/security/Trust.h"

namespace foundation {

/// One thing that is wrong with a chain.
struct Finding {
  /// Of the certificate in the chain.
  std::size_t index;
  TrustStatus status;
};

/// Whether a user may decide to accept a certificate in spite of it.
bool isRecoverable(TrustStatus status);

/// Everything that is wrong with a chain (leaf first, not empty) at that time, the host name left aside, by the
/// process's certificate store: the verification goes on after each finding. Any thread.
std::vector<Finding> verifyChain(const std::vector<Certificate>& chain, bool isServer, std::time_t date);

}  // namespace foundation
