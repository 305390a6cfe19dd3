#include "tests/hostile/Namespace.h"

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

#include "tests/support/Files.h"

namespace test {
namespace {

void check(bool isRight, const std::string& what) {
  if (!isRight) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
  }
}

}  // namespace

void enterNamespaces(int kinds) {
  const uid_t user = geteuid();
  const gid_t group = getegid();
  check(unshare(kinds | (user == 0 ? 0 : CLONE_NEWUSER)) == 0, "no namespace");
  if (user != 0) {
    writeFile("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
    // Whoever has no group there can make no files in a file system that is mounted there.
    writeFile("/proc/self/setgroups", "deny");
    writeFile("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
  }
  if ((kinds & CLONE_NEWNS) != 0) {
    // What is mounted here stays here.
    check(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "no private mounts");
  }
}

void switchLoopback(bool on) {
  const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq request{};
  std::strcpy(request.ifr_name, "lo");
  request.ifr_flags = static_cast<short>(on ? IFF_UP : 0);
  const bool isDone = ioctl(socket, SIOCSIFFLAGS, &request) == 0;
  close(socket);
  check(isDone, "the loopback interface stays as it is");
}

}  // namespace test
