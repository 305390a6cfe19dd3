// A program that evaluates the certificate of a revoked server again and again and is refused memory meanwhile: its
// malloc(3) family fails the n-th time it is called, for each n until the evaluation is through before.
//
//   trust_memory_host FILE COUNT
//
// FILE: the certificate in DER. COUNT allocations in a row are refused. Prints where the server passed, and at the end
// how many evaluations there were.

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

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    return 2;
  }
  std::ifstream file(argv[1], std::ios::binary);
  const std::vector<std::string> chain = {
      std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>())};
  count = 0;
  if (evaluate(chain) != TrustResult::FatalTrustFailure) {
    std::printf("passes with all memory\n");
    return 1;
  }
  count = std::atol(argv[2]);
  for (first = 0;; ++first) {
    calls = 0;
    const TrustResult result = evaluate(chain);
    if (calls <= first) {
      break;  // it is through before
    }
    if (result != TrustResult::FatalTrustFailure && result != TrustResult::OtherError) {
      std::printf("passes without memory from the call %ld on: %d\n", first, static_cast<int>(result));
    }
  }
  std::printf("%ld evaluations\n", first);
  return 0;
}
