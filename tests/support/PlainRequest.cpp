#include "tests/support/PlainRequest.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace test {

std::string plainGet(int port, const std::string& target) {
  const int connection = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const timeval limit{.tv_sec = 20, .tv_usec = 0};
  setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<uint16_t>(port));
  const std::string request = "GET " + target + " HTTP/1.0\r\n\r\n";
  std::string answer;
  if (connect(connection, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0 &&
      send(connection, request.data(), request.size(), MSG_NOSIGNAL) ==
          static_cast<ssize_t>(request.size())) {
    char buffer[4096];
    for (ssize_t count = 0; (count = recv(connection, buffer, sizeof(buffer), 0)) > 0;) {
      answer.append(buffer, static_cast<std::size_t>(count));
    }
  }
  close(connection);
  return answer;
}

}  // namespace test
