#include "ClosedPort.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace httppool {

ClosedPort::ClosedPort() : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof(address);
  auto* const any = reinterpret_cast<sockaddr*>(&address);
  if (bind(socket_, any, length) == 0 && getsockname(socket_, any, &length) == 0) {
    number_ = ntohs(address.sin_port);
  }
}

ClosedPort::~ClosedPort() {
  if (socket_ >= 0) {
    close(socket_);
  }
}

}  // namespace httppool
