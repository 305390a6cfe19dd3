#pragma once

#include <curl/curl.h>

#include <memory>
#include <string>
#include <vector>

namespace foundation {

class Handshake;

/// Who has a handshake made for it.
class HandshakeClient {
 public:
  /// The server has sent its certificates, and the handshake stands still until Handshake::answer(). On the loader
  /// thread, in the middle of the handshake and on a small stack: only to take note.
  virtual void handshakeSuspended(const std::shared_ptr<Handshake>& handshake) = 0;
  /// False: nobody is left who could answer, and a server that is not pinned is refused.
  virtual bool mayBeAsked() const = 0;
  /// There was no memory for the handshake, which fails. In the middle of it as well.
  virtual void ranOutOfMemory() noexcept = 0;
  /// The certificate (DER) that this very server may show without a question; empty: none.
  virtual const std::string& pinnedLeaf() const = 0;

 protected:
  ~HandshakeClient() = default;
};

/// One TLS handshake from the server's certificates to the verdict on them. Kept by its connection and by whoever
/// has to answer. Loader thread.
class Handshake : public std::enable_shared_from_this<Handshake> {
 public:
  enum class Verdict { None, Trusted, Refused };

  explicit Handshake(HandshakeClient& client) : client_(&client) {}

  /// What the server has sent, in DER, its own certificate first.
  const std::vector<std::string>& chain() const { return chain_; }
  /// It stands still: from the server's certificates on until curl drives the connection after an answer.
  bool isSuspended() const { return isSuspended_; }
  bool isAnswered() const { return verdict_ != Verdict::None; }
  /// The last one counts.
  void answer(Verdict verdict) { verdict_ = verdict; }

 private:
  friend struct HandshakeCallbacks;

  /// Null once the handshake is over: the connection may outlive its first client.
  HandshakeClient* client_;
  std::vector<std::string> chain_;
  Verdict verdict_ = Verdict::None;
  bool isSuspended_ = false;
};

/// Verification of the server by the client's answer, of an https proxy without one, TLS 1.2 at least. Connections with
/// different `isolation` never serve each other's requests; empty: shared as usual. False when there is no memory. `client`
/// must outlive the transfer.
bool configureTls(CURL* easy, HandshakeClient& client, const std::string& isolation);

}  // namespace foundation
