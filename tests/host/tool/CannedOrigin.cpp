#include "CannedOrigin.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <utility>

namespace tooltest {
namespace {

// A request, read to the end of its body; what has come when the client leaves.
std::string readRequest(int connection) {
  std::string request;
  char part[4096];
  for (std::size_t wanted = std::string::npos; request.size() < wanted;) {
    const ssize_t count = recv(connection, part, sizeof(part), 0);
    if (count <= 0) {
      break;
    }
    request.append(part, static_cast<std::size_t>(count));
    const std::size_t head = request.find("\r\n\r\n");
    if (head == std::string::npos) {
      continue;
    }
    const std::size_t field = request.find("Content-Length: ");
    const std::size_t length = field < head ? std::strtoul(request.c_str() + field + 16, nullptr, 10) : 0;
    wanted = head + 4 + length;
  }
  return request;
}

void sendAll(int connection, const std::string& bytes) {
  for (std::size_t sent = 0; sent < bytes.size();) {
    const ssize_t count = send(connection, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (count <= 0) {
      return;
    }
    sent += static_cast<std::size_t>(count);
  }
}

std::string pathOf(const std::string& request) {
  const std::size_t begin = request.find(' ') + 1;
  return request.substr(begin, request.find(' ', begin) - begin);
}

}  // namespace

CannedOrigin::CannedOrigin(std::map<std::string, std::string> answers)
    : answers_(std::move(answers)), socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof(address);
  auto* const any = reinterpret_cast<sockaddr*>(&address);
  if (bind(socket_, any, length) != 0 || listen(socket_, 64) != 0 ||
      getsockname(socket_, any, &length) != 0) {
    throw std::runtime_error("no port for the origin");
  }
  port_ = ntohs(address.sin_port);
  acceptor_ = std::thread([this] { accept(); });
}

CannedOrigin::~CannedOrigin() {
  {
    const std::lock_guard lock(mutex_);
    isEnding_ = true;
    for (const int connection : connections_) {
      shutdown(connection, SHUT_RDWR);
    }
  }
  shutdown(socket_, SHUT_RDWR);
  acceptor_.join();
  for (std::thread& server : servers_) {
    server.join();
  }
  close(socket_);
}

std::string CannedOrigin::url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(port_) + path;
}

std::string CannedOrigin::requestFor(const std::string& path) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, std::chrono::minutes(1), [&] { return requests_.contains(path); });
  return requests_[path];
}

void CannedOrigin::accept() {
  for (int connection = 0; (connection = ::accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
    const std::lock_guard lock(mutex_);
    if (isEnding_) {
      close(connection);
      return;
    }
    connections_.insert(connection);
    servers_.emplace_back([this, connection] { serve(connection); });
  }
}

void CannedOrigin::serve(int connection) {
  const std::string request = readRequest(connection);
  const std::string path = pathOf(request);
  {
    const std::lock_guard lock(mutex_);
    requests_[path] = request;
  }
  changed_.notify_all();
  const auto found = answers_.find(path);
  if (found != answers_.end()) {
    sendAll(connection, found->second);
    shutdown(connection, SHUT_WR);
  }
  // Until the client leaves, or the origin ends.
  char byte = 0;
  while (recv(connection, &byte, 1, 0) > 0) {
  }
  const std::lock_guard lock(mutex_);
  connections_.erase(connection);
  close(connection);
}

std::string answer(const std::string& status, const std::string& body, const std::string& fields) {
  return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) +
         "\r\nContent-Type: text/plain\r\nConnection: close\r\n" + fields + "\r\n" + body;
}

}  // namespace tooltest
