#pragma once

#include <openssl/ssl.h>

namespace foundation {

/// How much a TLS connection may read in one turn of the loader thread. curl reads a connection until nothing is left
/// or some of a body has come, and OpenSSL until a message has come that is not to be skipped; a peer who sends what is
/// neither (requests for a hello; of HTTP/2 pings, windows, padding) faster than it is read would have the thread for
/// itself. Loader thread.
class ReadAllowance {
 public:
  /// A turn begins: every connection may read again.
  static void beginTurn();
  /// The connection reads no more than that from now on; it may do so already. False when there is no memory.
  static bool limit(SSL* tls);
};

}  // namespace foundation
