#pragma once

// The server's side of HTTP/2 (RFC 9113) at the level of frames, right and wrong ones, over a TlsPeer. Belongs to the
// connection's thread.

#include <cstdint>
#include <string>

#include "tests/hostile/TlsPeer.h"

namespace test {

enum class FrameType : std::uint8_t {
  Data = 0,
  Headers = 1,
  Priority = 2,
  ResetStream = 3,
  Settings = 4,
  PushPromise = 5,
  Ping = 6,
  GoAway = 7,
  WindowUpdate = 8,
  Continuation = 9,
  Unknown = 0x42,
};

inline constexpr int kEndStream = 1;
inline constexpr int kEndHeaders = 4;
/// Of SETTINGS and PING.
inline constexpr int kAcknowledges = 1;

std::string frame(FrameType type, int flags, std::uint32_t stream, const std::string& payload);
/// In network byte order.
std::string number(std::uint32_t value);
/// A field that enters no table (RFC 7541 §6.2.2); lengths below 2^14.
std::string field(const std::string& name, const std::string& value);
/// ":status: 200".
std::string statusOk();
/// The frames of a whole answer with that body.
std::string answer(std::uint32_t stream, const std::string& body);

class Http2Peer {
 public:
  Http2Peer(RawServer::Connection& connection, const TlsIdentity& identity) : tls_(connection, identity) {}

  /// Shakes hands, exchanges settings and reads until a request has come; false when none does.
  bool takeRequest();
  /// Reads until one more has come.
  bool takeNextRequest();
  bool send(const std::string& frames) { return tls_.send(frames); }
  /// Reads frames until the peer is gone.
  void readToEnd();

 private:
  /// The type of the next frame, or -1.
  int readFrame();

  TlsPeer tls_;
};

}  // namespace test
