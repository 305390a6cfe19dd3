#include "tests/unit/zep/Allocations.h"

#include <cstdlib>
#include <new>

namespace {

/// How many calls go well before one fails; none fails when negative.
thread_local int left = -1;
thread_local bool failed = false;

}  // namespace

FailingAllocation::FailingAllocation(int count) {
  left = count;
  failed = false;
}

FailingAllocation::~FailingAllocation() {
  left = -1;
}

bool FailingAllocation::hasFailed() const {
  return failed;
}

void* operator new(std::size_t size) {
  if (left >= 0 && left-- == 0) {
    failed = true;
    throw std::bad_alloc();
  }
  if (void* memory = std::malloc(size == 0 ? 1 : size)) {
    return memory;
  }
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
