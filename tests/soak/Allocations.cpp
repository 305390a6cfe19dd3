// Counts the bytes that are allocated, in front of the C library's functions for that. What the allocator itself tells
// is less exact by far: it does not know which of its arenas' bytes are in use.

#include <malloc.h>

#include <atomic>
#include <cerrno>
#include <cstddef>

#include "tests/soak/ProcessState.h"

namespace test {
namespace {

std::atomic<std::size_t> bytes = 0;

}  // namespace

std::size_t allocatedBytes() {
  return bytes;
}

}  // namespace test

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

// The C library's own names of its functions.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
extern "C" void* __libc_realloc(void* block, std::size_t size);
extern "C" void* __libc_memalign(std::size_t alignment, std::size_t size);
extern "C" void __libc_free(void* block);
// NOLINTEND(bugprone-reserved-identifier)

namespace {

/// OpenSSL keeps the stacks of as many handshakes as ever stood at once, whose number is chance. They have this size
/// and the room to which the allocator rounds it up; no block of that size counts.
constexpr std::size_t kHandshakeStack = 32768;
constexpr std::size_t kRounding = 16;

std::size_t sizeThatCounts(void* block) {
  const std::size_t size = malloc_usable_size(block);
  return size >= kHandshakeStack && size < kHandshakeStack + kRounding ? 0 : size;
}

void* counted(void* block) {
  test::bytes += sizeThatCounts(block);
  return block;
}

}  // namespace

#define ALLOCATOR extern "C" __attribute__((visibility("default")))

ALLOCATOR void* malloc(std::size_t size) noexcept {
  return counted(__libc_malloc(size));
}

ALLOCATOR void* calloc(std::size_t count, std::size_t size) noexcept {
  return counted(__libc_calloc(count, size));
}

ALLOCATOR void* realloc(void* block, std::size_t size) noexcept {
  const std::size_t before = sizeThatCounts(block);
  void* const moved = __libc_realloc(block, size);
  if (moved != nullptr || size == 0) {
    test::bytes -= before;
  }
  return counted(moved);
}

ALLOCATOR void* memalign(std::size_t alignment, std::size_t size) noexcept {
  return counted(__libc_memalign(alignment, size));
}

ALLOCATOR void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
  return counted(__libc_memalign(alignment, size));
}

ALLOCATOR int posix_memalign(void** block, std::size_t alignment, std::size_t size) noexcept {
  void* const made = counted(__libc_memalign(alignment, size));
  if (made == nullptr) {
    return ENOMEM;
  }
  *block = made;
  return 0;
}

ALLOCATOR void free(void* block) noexcept {
  test::bytes -= sizeThatCounts(block);
  __libc_free(block);
}

#endif
