#include "tests/hostile/CutServer.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <utility>

#include "tests/support/NginxServer.h"

namespace test {

const std::string& cutBody() {
  static const std::string body = NginxServer::bigBody(kCutBodyBytes);
  return body;
}

std::vector<Cut> cutsOfAnAnswer() {
  const std::string& body = cutBody();
  const std::string half = body.substr(0, kCutBodyBytes / 2);
  const std::string rest = body.substr(kCutBodyBytes / 2);
  const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(kCutBodyBytes) + "\r\n\r\n";
  return {
      {"before the answer", "", head + body},
      {"in the head", head.substr(0, 20), head.substr(20) + body},
      {"in the body", head + half, rest},
      {"in the request", "", head + body, std::string(4 << 20, 'p')},
  };
}

void neverTimeOut() {
  setenv("ZEP_URL_TIMEOUT_MS", "3600000", 1);
}

CutServer::CutServer(Cut cut, AtTheCut atTheCut, std::shared_ptr<TlsIdentity> identity)
    : cut_(std::move(cut)),
      atTheCut_(std::move(atTheCut)),
      identity_(std::move(identity)),
      server_([this](RawServer::Connection& connection) { serve(connection); }) {
  port_ = server_.port();
}

Call CutServer::call() const {
  return {.url = (identity_ ? "https" : "http") + server_.url("/").substr(4), .post = cut_.post};
}

void CutServer::serve(RawServer::Connection& connection) {
  if (identity_) {
    TlsPeer peer(connection, *identity_);
    if (peer.shakeHands()) {
      answer(peer);
    }
  } else {
    answer(connection);
  }
  connection.readToEnd();
}

template <typename Peer>
void CutServer::answer(Peer& peer) {
  peer.readRequest();
  if (cut_.post.empty()) {
    peer.send(cut_.before);
    cutOnce();
  } else {
    peer.read(1000);
    cutOnce();
    peer.read(cut_.post.size() - 1000);
    peer.send(cut_.before);
  }
  peer.send(cut_.behind);
}

void CutServer::cutOnce() {
  if (!isCut_.exchange(true)) {
    atTheCut_(port_);
  }
}

CutServers serversOf(const std::vector<Cut>& cuts, const CutServer::AtTheCut& atTheCut,
                     const std::shared_ptr<TlsIdentity>& identity) {
  CutServers servers;
  for (const Cut& cut : cuts) {
    servers.push_back(std::make_unique<CutServer>(cut, atTheCut));
    servers.push_back(std::make_unique<CutServer>(cut, atTheCut, identity));
  }
  return servers;
}

void expectAll(const CutServers& servers, HostPool& pool, const Outcome& expected) {
  for (std::size_t i = 0; i < servers.size(); ++i) {
    pool.add(std::to_string(i), servers[i]->call());
    pool.launch(std::to_string(i));
  }
  EXPECT_TRUE(pool.await());
  for (std::size_t i = 0; i < servers.size(); ++i) {
    EXPECT_EQ(pool.outcome(std::to_string(i)), expected) << servers[i]->name();
  }
}

}  // namespace test
