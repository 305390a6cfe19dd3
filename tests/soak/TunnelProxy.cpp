#include "tests/soak/TunnelProxy.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "tests/support/Files.h"

namespace test {
namespace {

sockaddr_in here(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  return address;
}

bool sendAll(int socket, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = send(socket, text.data(), text.size(), MSG_NOSIGNAL);
    if (count <= 0) {
      return false;
    }
    text.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

/// Some bytes go on to the other side; false when there are no more.
bool passOn(int from, int to) {
  char buffer[16384];
  const ssize_t count = recv(from, buffer, sizeof(buffer), 0);
  return count > 0 && sendAll(to, {buffer, static_cast<std::size_t>(count)});
}

void connectThrough(int client, int port) {
  const int server = socket(AF_INET, SOCK_STREAM, 0);
  const sockaddr_in address = here(port);
  if (connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
      !sendAll(client, "HTTP/1.1 200 Connected\r\n\r\n")) {
    return;
  }
  pollfd ends[] = {{.fd = client, .events = POLLIN, .revents = 0},
                   {.fd = server, .events = POLLIN, .revents = 0}};
  while (poll(ends, 2, -1) > 0) {
    if ((ends[0].revents != 0 && !passOn(client, server)) ||
        (ends[1].revents != 0 && !passOn(server, client))) {
      return;
    }
  }
}

void serve(int client) {
  std::string request;
  char buffer[4096];
  while (request.find("\r\n\r\n") == std::string::npos) {
    const ssize_t count = recv(client, buffer, sizeof(buffer), 0);
    if (count <= 0) {
      return;
    }
    request.append(buffer, static_cast<std::size_t>(count));
  }
  std::string method;
  std::string target;
  std::istringstream(request) >> method >> target;
  if (target.starts_with(TunnelProxy::kForbidden)) {
    sendAll(client, "HTTP/1.1 403 No\r\nContent-Length: 0\r\n\r\n");
  } else if (target.starts_with(TunnelProxy::kLocked)) {
    sendAll(client, "HTTP/1.1 407 Who\r\nProxy-Authenticate: Basic realm=\"p\"\r\nContent-Length: 0\r\n\r\n");
  } else if (method == "CONNECT") {
    connectThrough(client, std::stoi(target.substr(target.rfind(':') + 1)));
  }
}

/// A process for each connection, which ends with it.
[[noreturn]] void serveAll(int listener) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  signal(SIGCHLD, SIG_IGN);
  for (;;) {
    const int client = accept(listener, nullptr, nullptr);
    if (client >= 0 && fork() == 0) {
      close(listener);
      serve(client);
      _exit(0);
    }
    close(client);
  }
}

}  // namespace

TunnelProxy::TunnelProxy() {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = here(0);
  socklen_t length = sizeof(address);
  auto* const any = reinterpret_cast<sockaddr*>(&address);
  if (bind(listener, any, length) != 0 || listen(listener, SOMAXCONN) != 0 ||
      getsockname(listener, any, &length) != 0) {
    throw std::runtime_error("the proxy cannot listen");
  }
  port_ = ntohs(address.sin_port);
  process_ = fork();
  if (process_ == 0) {
    serveAll(listener);
  }
  close(listener);
}

bool TunnelProxy::hasTunnels() const {
  const std::string process = std::to_string(process_);
  return !readFile("/proc/" + process + "/task/" + process + "/children").empty();
}

TunnelProxy::~TunnelProxy() {
  kill(process_, SIGKILL);
  waitpid(process_, nullptr, 0);
}

}  // namespace test
