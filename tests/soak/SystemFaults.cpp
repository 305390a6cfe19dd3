#include "tests/soak/SystemFaults.h"

#include <dlfcn.h>
#include <netdb.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <string_view>

namespace test {
namespace {

constexpr int kOneSocketOf = 100;

thread_local bool hasNoThreads = false;
thread_local bool wasThreadRefused = false;

std::atomic<bool> areSocketsRefused = false;
std::atomic<int> sockets = 0;
std::atomic<int> refused = 0;

template <typename Function>
Function* behind(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

ThreadRefusalHere::ThreadRefusalHere() {
  hasNoThreads = true;
  wasThreadRefused = false;
}

ThreadRefusalHere::~ThreadRefusalHere() {
  hasNoThreads = false;
}

bool ThreadRefusalHere::hasRefused() const {
  return wasThreadRefused;
}

void refuseSockets(bool areRefused) {
  areSocketsRefused = areRefused;
}

int refusedSockets() {
  return refused;
}

}  // namespace test

extern "C" __attribute__((visibility("default"))) int pthread_create(pthread_t* thread,
                                                                     const pthread_attr_t* attributes,
                                                                     void* (*entry)(void*), void* argument) {
  if (test::hasNoThreads) {
    test::wasThreadRefused = true;
    return EAGAIN;
  }
  static auto* const original = test::behind<decltype(pthread_create)>("pthread_create");
  return original(thread, attributes, entry, argument);
}

extern "C" __attribute__((visibility("default"))) int socket(int family, int type, int protocol) {
  if (test::areSocketsRefused && family == AF_INET && (type & SOCK_STREAM) != 0 && gettid() != getpid() &&
      ++test::sockets % test::kOneSocketOf == 0) {
    ++test::refused;
    errno = EMFILE;
    return -1;
  }
  static auto* const original = test::behind<decltype(socket)>("socket");
  return original(family, type, protocol);
}

extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* node, const char* service,
                                                                  const addrinfo* hints, addrinfo** found) {
  const std::string_view name = node != nullptr ? node : "";
  if (name == test::kNoSuchHost) {
    return EAI_NONAME;
  }
  if (name == test::kNoNameServer) {
    return EAI_AGAIN;
  }
  static auto* const original = test::behind<decltype(getaddrinfo)>("getaddrinfo");
  return original(node, service, hints, found);
}
