#pragma once

#include <memory>
#include <optional>

#include "foundation/base/Data.h"
#include "foundation/base/Error.h"
#include "foundation/base/Export.h"
#include "foundation/url/AuthenticationChallenge.h"
#include "foundation/url/ProtectionSpace.h"
#include "foundation/url/URLRequest.h"
#include "foundation/url/URLResponse.h"

namespace foundation {

class URLConnection;

/// Receives a connection's events, on the thread that made the connection, each in a turn of that thread's
/// run loop: any number of redirect proposals and challenges, then one response, its data, and one of finish or
/// failure.
class FOUNDATION_EXPORT URLConnectionDelegate {
 public:
  virtual ~URLConnectionDelegate();

  /// A redirect is proposed: the request to go on with (usually `request`), or nothing to take the redirect
  /// response itself as the answer. `redirectResponse` is null when a request is about to be sent that no
  /// response asked for.
  virtual std::optional<URLRequest> connectionWillSendRequest(URLConnection& connection,
                                                              const URLRequest& request,
                                                              const URLResponse* redirectResponse) = 0;
  /// Whether credentials that this delegate answers with are kept as their persistence says. Asked once, before
  /// the first challenge. True unless overridden.
  virtual bool connectionShouldUseCredentialStorage(URLConnection& connection);
  /// Whether challenges of this space are for the delegate; if not, the response that carries the challenge is
  /// the answer. False unless overridden.
  virtual bool connectionCanAuthenticateAgainstProtectionSpace(URLConnection& connection,
                                                               const ProtectionSpace& space);
  /// A credential is demanded. The load waits, without a time limit, until the challenge is answered. Cancels it
  /// unless overridden.
  virtual void connectionDidReceiveAuthenticationChallenge(
      URLConnection& connection, const std::shared_ptr<AuthenticationChallenge>& challenge);
  virtual void connectionDidReceiveResponse(URLConnection& connection, const URLResponse& response) = 0;
  /// The bytes that arrived since the last turn, in one piece; the delegate may keep them by moving.
  virtual void connectionDidReceiveData(URLConnection& connection, Data&& data) = 0;
  virtual void connectionDidFinishLoading(URLConnection& connection) = 0;
  virtual void connectionDidFailWithError(URLConnection& connection, const Error& error) = 0;
};

/// One load of one request. Starts as soon as it is made. Belongs to the thread that makes it; that thread's
/// run loop delivers the events (http, https and file URLs; anything else fails with UnsupportedURL).
///
/// Nothing here ever waits for the network or for the loader thread.
class FOUNDATION_EXPORT URLConnection {
 public:
  /// The delegate is not owned and must outlive the connection.
  URLConnection(URLRequest request, URLConnectionDelegate& delegate);
  /// Cancels.
  ~URLConnection();
  URLConnection(const URLConnection&) = delete;
  URLConnection& operator=(const URLConnection&) = delete;

  /// Nothing is delivered after the return. May be called inside an event. A second call does nothing.
  void cancel();

 private:
  class Inbox;
  std::shared_ptr<Inbox> inbox_;
};

}  // namespace foundation
