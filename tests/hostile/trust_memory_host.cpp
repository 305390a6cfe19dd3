// A program that evaluates the certificate of a revoked server and is refused memory meanwhile: its malloc(3) family
// fails the n-th time it is called, in a child process for each n until the evaluation is through before.
//
//   trust_memory_host FILE COUNT [NEW LIST]
//
// FILE: the certificate in DER. COUNT allocations in a row are refused. NEW is renamed to LIST, the revocation list,
// when the server has passed without it. Prints where the server passed after that, and at the end how many evaluations
// there were.

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <new>
#include <string>
#include <vector>

#include "foundation/security/Trust.h"

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
}

namespace {

bool isArmed = false;
long calls = 0;
long first = 0;
long count = 0;

bool isRefused() {
  if (!isArmed) {
    return false;
  }
  const long call = calls++;
  if (call < first || call >= first + count) {
    return false;
  }
  errno = ENOMEM;
  return true;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) void* malloc(std::size_t size) noexcept {
  return isRefused() ? nullptr : __libc_malloc(size);
}

extern "C" __attribute__((visibility("default"))) void* calloc(std::size_t number,
                                                               std::size_t size) noexcept {
  return isRefused() ? nullptr : __libc_calloc(number, size);
}

extern "C" __attribute__((visibility("default"))) void* realloc(void* memory, std::size_t size) noexcept {
  return isRefused() ? nullptr : __libc_realloc(memory, size);
}

namespace {

using foundation::TrustResult;

TrustResult evaluate(const std::vector<std::string>& chain) {
  foundation::Trust trust(chain, foundation::TrustPolicy::ssl("localhost"));
  TrustResult result = TrustResult::Invalid;
  isArmed = true;
  try {
    trust.evaluate(result);
  } catch (const std::bad_alloc&) {
    result = TrustResult::OtherError;
  }
  isArmed = false;
  return result;
}

enum Exit : int { kRefused, kPassed, kThrough };

/// In a child, so that each evaluation finds what the first one did.
int evaluateInChild(const std::vector<std::string>& chain) {
  const pid_t child = fork();
  if (child == 0) {
    const TrustResult result = evaluate(chain);
    const bool isRefused = result == TrustResult::FatalTrustFailure || result == TrustResult::OtherError;
    _exit(!isRefused ? kPassed : calls <= first ? kThrough : kRefused);
  }
  int status = -1;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3 && argc != 5) {
    return 2;
  }
  const bool isListNew = argc == 5;
  std::ifstream file(argv[1], std::ios::binary);
  const std::vector<std::string> chain = {
      std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>())};
  const TrustResult before = evaluate(chain);
  if (before != (isListNew ? TrustResult::Unspecified : TrustResult::FatalTrustFailure) ||
      (isListNew && std::rename(argv[3], argv[4]) != 0)) {
    std::printf("with all memory: %d\n", static_cast<int>(before));
    return 1;
  }
  count = std::atol(argv[2]);
  for (int exit = kRefused; exit != kThrough; ++first) {
    calls = 0;
    exit = evaluateInChild(chain);
    if (exit != kRefused && exit != kThrough) {
      std::printf("refused from the call %ld on: %s\n", first, exit == kPassed ? "passes" : "ends");
    }
  }
  std::printf("%ld evaluations\n", first);
  return 0;
}
