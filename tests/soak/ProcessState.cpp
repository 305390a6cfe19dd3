#include "tests/soak/ProcessState.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace test {
namespace {

std::size_t entriesOf(const char* folder) {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder)) {
    ++count;
  }
  return count;
}

/// Where a socket leads; empty: nowhere any more.
std::string peerOf(int socket) {
  sockaddr_in address{};
  socklen_t length = sizeof(address);
  if (getpeername(socket, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    return "";
  }
  if (address.sin_family != AF_INET) {
    return "this machine";
  }
  tcp_info info{};
  length = sizeof(info);
  getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &length);
  return info.tcpi_state == TCP_ESTABLISHED ? "port " + std::to_string(ntohs(address.sin_port)) : "";
}

void describeDescriptors(ProcessState& state) {
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    // The folder's own is gone when the listing is.
    std::error_code error;
    std::string what = std::filesystem::read_symlink(entry.path(), error).string();
    if (what.starts_with("socket:")) {
      what = peerOf(std::stoi(entry.path().filename()));
      state.deadConnections += what.empty() ? 1 : 0;
    }
    if (!what.empty() && !what.starts_with("/proc/")) {
      state.descriptors.push_back(what);
    }
  }
  std::sort(state.descriptors.begin(), state.descriptors.end());
}

}  // namespace

ProcessState ProcessState::now() {
  ProcessState state;
  describeDescriptors(state);
  state.threads = entriesOf("/proc/self/task");
  state.allocated = allocatedBytes();
  return state;
}

std::size_t requestThreads() {
  std::size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
    // A thread may be gone meanwhile; then there is no name.
    std::ifstream file(entry.path() / "comm");
    std::string name;
    std::getline(file, name);
    count += name.starts_with("zep.") && !name.starts_with("zep.urlloader") ? 1 : 0;
  }
  return count;
}

}  // namespace test
