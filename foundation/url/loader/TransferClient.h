#pragma once

#include <cstddef>

#include "foundation/base/Error.h"
#include "foundation/url/ProtectionSpace.h"
#include "foundation/url/URLRequest.h"
#include "foundation/url/URLResponse.h"

namespace foundation {

/// Who a load reports to. Called on the loader thread or a worker, never by two at once, in this order:
/// redirect proposals and challenges, one response, data, and one of finished or failed, after which nothing
/// follows. The calls must not block. One that throws std::bad_alloc counts as not made. Held by the load until its
/// end.
class TransferClient {
 public:
  enum class Taken { Yes, NoMemory, NotWanted };

  virtual ~TransferClient() = default;

  /// The load goes on when Loader::answerRedirect is called.
  virtual void redirectProposed(URLRequest request, URLResponse response) = 0;
  /// The load goes on when Loader::declineChallenge is called, or Loader::takeChallenge and then, sooner or
  /// later, Loader::useCredential or Loader::cancelChallenge.
  virtual void challenged(ProtectionSpace space, int previousFailureCount) = 0;
  /// `expectedLength` is what the body will have, a hint from the peer; 0 when unknown.
  virtual void responseReceived(URLResponse response, std::size_t expectedLength) = 0;
  virtual Taken dataReceived(const char* bytes, std::size_t length) = 0;
  virtual void finished() = 0;
  virtual void failed(Error error) = 0;
  /// False: nobody is there any more, and the load may end. It is asked only when telling the loader so has failed.
  virtual bool isWaiting() const { return true; }
};

}  // namespace foundation
