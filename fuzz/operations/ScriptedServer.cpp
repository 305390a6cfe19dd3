#include "fuzz/operations/ScriptedServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <list>
#include <thread>
#include <vector>

#include "fuzz/Require.h"
#include "fuzz/operations/Path.h"

namespace operations {
namespace {

std::string answer(const std::string& status, const std::string& fields, const std::string& body) {
  return "HTTP/1.1 " + status + "\r\n" + fields + "Content-Length: " + std::to_string(body.size()) +
         "\r\n\r\n" + body;
}

/// One client's. Not blocking.
class Connection {
 public:
  explicit Connection(int socket) : socket_(socket) {}
  ~Connection() { close(socket_); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  int socket() const { return socket_; }
  short events() const { return static_cast<short>(POLLIN | (out_.empty() ? 0 : POLLOUT)); }

  /// False when it is over.
  bool advance(short events) {
    if ((events & (POLLIN | POLLHUP | POLLERR)) != 0 && !receive()) {
      return false;
    }
    while (!isClosing_ && takeRequest()) {
    }
    return send() && !(isClosing_ && out_.empty());
  }

 private:
  bool receive() {
    std::vector<char> buffer(std::size_t{16} << 10);
    const ssize_t count = recv(socket_, buffer.data(), buffer.size(), 0);
    if (count > 0) {
      in_.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return count > 0 || (count < 0 && (errno == EAGAIN || errno == EINTR));
  }

  bool send() {
    const ssize_t count = out_.empty() ? 0 : ::send(socket_, out_.data(), out_.size(), MSG_NOSIGNAL);
    if (count > 0) {
      out_.erase(0, static_cast<std::size_t>(count));
    }
    return count >= 0 || errno == EAGAIN || errno == EINTR;
  }

  bool takeRequest() {
    const std::size_t end = in_.find("\r\n\r\n");
    if (end == std::string::npos) {
      return false;
    }
    const std::string head = in_.substr(0, end + 4);
    const std::size_t length = head.find("Content-Length: ");
    const std::size_t body =
        length == std::string::npos ? 0 : std::strtoul(head.c_str() + length + 16, nullptr, 10);
    if (in_.size() < head.size() + body) {
      return false;
    }
    in_.erase(0, head.size() + body);
    const std::size_t path = head.find(' ') + 1;
    respond(head.substr(path, head.find(' ', path) - path), head);
    return true;
  }

  void respond(const std::string& path, const std::string& head) {
    const bool isSignedIn = head.find("Authorization: Basic dTpw\r\n") != std::string::npos;
    if (path == "/ok") {
      out_ += answer("200 OK", "Set-Cookie: a=b\r\n", "ok");
    } else if (path == "/chunked") {
      out_ +=
          "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nchu\r\n4\r\nnked\r\n0\r\nTrailer: "
          "x\r\n\r\n";
    } else if (path == "/404") {
      out_ += answer("404 Not Found", "", "none");
    } else if (path == "/429") {
      out_ += answer("429 Too Many Requests", "Retry-After: 7\r\n", "later");
    } else if (path == "/500") {
      out_ += answer("500 Internal Server Error", "", "broken");
    } else if (path == "/redirect") {
      out_ += answer("302 Found", "Location: /ok\r\n", "there");
    } else if (path == "/loop") {
      out_ += answer("307 Temporary Redirect", "Location: /loop\r\n", "");
    } else if (path == "/basic" && !isSignedIn) {
      out_ += answer("401 Unauthorized", "WWW-Authenticate: Basic realm=\"r\"\r\n", "who?");
    } else if (path == "/basic") {
      out_ += answer("200 OK", "", "signed in");
    } else if (path == "/never") {
      out_ += answer("401 Unauthorized", "WWW-Authenticate: Basic realm=\"n\"\r\n", "no");
    } else if (path == "/big") {
      out_ += answer("200 OK", "", std::string(kBigBody.begin(), kBigBody.end()));
    } else if (path == "/stall") {
      out_ += "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nst";
    } else if (path == "/early") {
      out_ += "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nearly";
      isClosing_ = true;
    } else if (path == "/noise") {
      out_ += "this is not HTTP\r\n\r\n";
      isClosing_ = true;
    } else if (path == "/reset") {
      const linger now{.l_onoff = 1, .l_linger = 0};
      setsockopt(socket_, SOL_SOCKET, SO_LINGER, &now, sizeof(now));
      isClosing_ = true;
    }
    // "/silent" gets none.
  }

  const int socket_;
  std::string in_;
  std::string out_;
  bool isClosing_ = false;
};

}  // namespace

ScriptedServer& ScriptedServer::shared() {
  static ScriptedServer& server = *new ScriptedServer;
  return server;
}

ScriptedServer::ScriptedServer() : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof(address);
  require(listener_ >= 0 && bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0);
  require(listen(listener_, SOMAXCONN) == 0);
  require(getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) == 0);
  port_ = ntohs(address.sin_port);
  std::thread([this] { serve(); }).detach();
}

std::string ScriptedServer::url(std::string_view path) const {
  return "http://127.0.0.1:" + std::to_string(port_) + std::string(path);
}

void ScriptedServer::serve() const {
  pthread_setname_np(pthread_self(), "server");
  std::list<Connection> connections;
  for (;;) {
    std::vector<pollfd> sockets = {{.fd = listener_, .events = POLLIN, .revents = 0}};
    for (const Connection& connection : connections) {
      sockets.push_back({.fd = connection.socket(), .events = connection.events(), .revents = 0});
    }
    poll(sockets.data(), sockets.size(), -1);
    auto connection = connections.begin();
    for (std::size_t i = 1; i < sockets.size(); ++i) {
      const bool isAlive = sockets[i].revents == 0 || connection->advance(sockets[i].revents);
      connection = isAlive ? std::next(connection) : connections.erase(connection);
    }
    if (sockets[0].revents != 0) {
      const int accepted = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
      if (accepted >= 0) {
        connections.emplace_back(accepted);
      }
    }
  }
}

}  // namespace operations
