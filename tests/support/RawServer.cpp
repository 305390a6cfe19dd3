#include "tests/support/RawServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <utility>

namespace test {

RawServer::Connection::~Connection() {
  ::close(socket_);
}

bool RawServer::Connection::fill() {
  char buffer[16384];
  const ssize_t count = recv(socket_, buffer, sizeof(buffer), 0);
  if (count > 0) {
    pending_.append(buffer, static_cast<std::size_t>(count));
  }
  return count > 0;
}

std::string RawServer::Connection::readRequest() {
  std::size_t end = 0;
  while ((end = pending_.find("\r\n\r\n")) == std::string::npos) {
    if (!fill()) {
      return std::exchange(pending_, {});
    }
  }
  std::string result = pending_.substr(0, end + 4);
  pending_.erase(0, end + 4);
  return result;
}

std::string RawServer::Connection::read(std::size_t bytes) {
  while (pending_.size() < bytes && fill()) {
  }
  std::string result = pending_.substr(0, bytes);
  pending_.erase(0, result.size());
  return result;
}

std::string RawServer::Connection::readSome() {
  if (pending_.empty()) {
    fill();
  }
  return std::exchange(pending_, {});
}

void RawServer::Connection::readToEnd() {
  while (fill()) {
    pending_.clear();
  }
}

bool RawServer::Connection::send(const std::string& text) {
  for (std::size_t sent = 0; sent < text.size();) {
    const ssize_t count = ::send(socket_, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
    if (count <= 0) {
      return false;
    }
    sent += static_cast<std::size_t>(count);
  }
  return true;
}

void RawServer::Connection::close() {
  shutdown(socket_, SHUT_RDWR);
}

void RawServer::Connection::reset() {
  // With a linger time of 0 the end of the connection is a reset; connecting to no address ends it, and the
  // descriptor stays valid for the destructor.
  const linger now{.l_onoff = 1, .l_linger = 0};
  setsockopt(socket_, SOL_SOCKET, SO_LINGER, &now, sizeof(now));
  sockaddr none{};
  none.sa_family = AF_UNSPEC;
  connect(socket_, &none, sizeof(none));
}

RawServer::Script RawServer::answering(std::string text) {
  return [text = std::move(text)](Connection& connection) {
    connection.readRequest();
    connection.send(text);
    // A close with bytes unread would be a reset; the peer's end comes first here.
    shutdown(connection.socket_, SHUT_WR);
    connection.readToEnd();
  };
}

RawServer::RawServer(Script script)
    : script_(std::move(script)), listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof(address);
  if (listener_ < 0 || bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
      listen(listener_, SOMAXCONN) != 0 ||
      getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    throw std::runtime_error("cannot listen");
  }
  port_ = ntohs(address.sin_port);
  acceptor_ = std::thread([this] { acceptAll(); });
}

RawServer::~RawServer() {
  shutdown(listener_, SHUT_RDWR);
  acceptor_.join();
  close(listener_);
  for (Served& served : served_) {
    shutdown(served.connection.socket_, SHUT_RDWR);
  }
  for (Served& served : served_) {
    served.thread.join();
  }
}

std::string RawServer::url(const std::string& target) const {
  return "http://127.0.0.1:" + std::to_string(port_) + target;
}

void RawServer::acceptAll() {
  for (;;) {
    const int socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket < 0) {
      return;
    }
    ++accepted_;
    const std::lock_guard lock(mutex_);
    Served& served = served_.emplace_back(socket);
    served.thread = std::thread([this, &served] {
      script_(served.connection);
      // Closed to the peer now; the descriptor itself stays until the server goes, so that its number is not
      // reused.
      shutdown(served.connection.socket_, SHUT_RDWR);
    });
  }
}

}  // namespace test
