// TLS handshakes that a load is given up in: nothing of them is left, wherever they stand.

#include <gtest/gtest.h>
#include <malloc.h>
#include <openssl/ssl.h>

#include <cstdlib>
#include <future>
#include <memory>
#include <string>
#include <utility>

#include "foundation/url/URL.h"
#include "foundation/url/loader/Loader.h"
#include "tests/hostile/TlsPeer.h"
#include "tests/support/CertificateAuthority.h"
#include "tests/support/RawServer.h"

using foundation::Loader;
using foundation::TransferClient;

namespace test {
namespace {

/// Two threads meet there: the first waits for the second.
class Gate {
 public:
  void pass() {
    reached_.set_value();
    opened_.get_future().wait();
  }
  void awaitReached() { reached_.get_future().wait(); }
  void open() { opened_.set_value(); }

 private:
  std::promise<void> reached_;
  std::promise<void> opened_;
};

class SilentClient : public TransferClient {
 public:
  void redirectProposed(foundation::URLRequest, foundation::URLResponse) override {}
  void challenged(foundation::ProtectionSpace, int) override {}
  void responseReceived(foundation::URLResponse, std::size_t) override {}
  Taken dataReceived(const char*, std::size_t) override { return Taken::Yes; }
  void finished() override {}
  void failed(foundation::Error) override {}
};

/// Holds the loader thread in the middle of its commands when its load is cancelled.
class HoldingClient : public SilentClient {
 public:
  explicit HoldingClient(Gate& gate) : gate_(gate) {}
  ~HoldingClient() override { gate_.pass(); }

 private:
  Gate& gate_;
};

int waitAtGate(SSL*, int*, void* gate) {
  static_cast<Gate*>(gate)->pass();
  return SSL_CLIENT_HELLO_SUCCESS;
}

class LoadInHandshake : public testing::Test {
 protected:
  static Loader::LoadId start(const std::string& url, std::shared_ptr<TransferClient> client) {
    return Loader::shared().start(foundation::URLRequest(foundation::URL::parse(url).value()),
                                  std::move(client));
  }
  static Loader::LoadId startHolding(Gate& gate) {
    return start("http://127.0.0.1:1/", std::make_shared<HoldingClient>(gate));
  }

  /// The server's certificates come when the loader thread has begun the turn that ends the load, and is not there yet.
  void cancelAsTheCertificatesCome() {
    const TlsIdentity identity(authority_.good(), {});
    Gate hello;
    SSL_CTX_set_client_hello_cb(identity.context(), &waitAtGate, &hello);
    std::promise<void> isAnswered;
    std::promise<void> isClosed;
    RawServer server([&](RawServer::Connection& connection) {
      TlsPeer peer(connection, identity);
      peer.answerHello();
      isAnswered.set_value();
      connection.readToEnd();
      isClosed.set_value();
    });
    const Loader::LoadId load =
        start("https://127.0.0.1:" + std::to_string(server.port()) + "/", std::make_shared<SilentClient>());
    hello.awaitReached();

    Loader& loader = Loader::shared();
    Gate turnBefore;
    loader.cancel(startHolding(turnBefore));
    turnBefore.awaitReached();
    Gate sameTurn;
    loader.cancel(startHolding(sameTurn));
    loader.cancel(load);
    turnBefore.open();
    sameTurn.awaitReached();
    hello.open();
    isAnswered.get_future().wait();
    sameTurn.open();
    isClosed.get_future().wait();
  }

 private:
  CertificateAuthority authority_;
};

TEST_F(LoadInHandshake, ThatIsCancelledAsTheCertificatesComeLeavesNothing) {
  cancelAsTheCertificatesCome();
  // Under a sanitizer this says nothing, but the leak sanitizer does.
  const std::size_t before = mallinfo2().uordblks;
  constexpr std::size_t kRounds = 20;
  for (std::size_t round = 0; round < kRounds; ++round) {
    cancelAsTheCertificatesCome();
  }
  // A handshake that is left standing keeps its stack of 32 KB.
  EXPECT_LT(mallinfo2().uordblks, before + kRounds * 16 * 1024);
}

}  // namespace
}  // namespace test
