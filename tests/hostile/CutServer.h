#pragma once

// A server that has something done to the network in the middle of its first answer; its later answers are whole. The
// server's thread calls what is to be done; everything else belongs to the test's thread.

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/host/HostPool.h"
#include "tests/hostile/TlsPeer.h"
#include "tests/support/RawServer.h"

namespace test {

/// What the server has sent when the network goes: all up to there, and then the rest.
struct Cut {
  const char* name;
  std::string before;
  std::string behind;
  std::string post = {};
};

inline constexpr std::size_t kCutBodyBytes = 1 << 20;
/// Its blocks are numbered.
const std::string& cutBody();
/// Cuts of an answer with that body: before it, in its head, in its body, and in the request for it.
std::vector<Cut> cutsOfAnAnswer();

/// Requests of this process end by what becomes of their packets alone.
void neverTimeOut();

class CutServer {
 public:
  using AtTheCut = std::function<void(int port)>;

  /// With an identity by TLS.
  CutServer(Cut cut, AtTheCut atTheCut, std::shared_ptr<TlsIdentity> identity = nullptr);

  const char* name() const { return cut_.name; }
  int port() const { return port_; }
  Call call() const;

 private:
  void serve(RawServer::Connection& connection);
  template <typename Peer>
  void answer(Peer& peer);
  void cutOnce();

  const Cut cut_;
  const AtTheCut atTheCut_;
  const std::shared_ptr<TlsIdentity> identity_;
  std::atomic<int> port_{0};
  std::atomic<bool> isCut_{false};
  RawServer server_;
};

using CutServers = std::vector<std::unique_ptr<CutServer>>;

/// Two for each cut, without TLS and with it.
CutServers serversOf(const std::vector<Cut>& cuts, const CutServer::AtTheCut& atTheCut,
                     const std::shared_ptr<TlsIdentity>& identity);
/// Runs a task for each server, all at once, and expects that outcome of each.
void expectAll(const CutServers& servers, HostPool& pool, const Outcome& expected);

}  // namespace test
