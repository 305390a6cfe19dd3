#pragma once

// Memory for rapidjson, which takes it for granted that there is some: here the lack of it is an exception, as
// everywhere else. Any thread.

#include <cstddef>
#include <cstdlib>
#include <new>

namespace foundation {

class ThrowingAllocator {
 public:
  // NOLINTNEXTLINE(readability-identifier-naming): rapidjson's name for "Free() must be called"
  static const bool kNeedFree = true;

  void* Malloc(std::size_t size) { return size > 0 ? Checked(std::malloc(size)) : nullptr; }
  void* Realloc(void* memory, std::size_t /*size*/, std::size_t newSize) {
    if (newSize == 0) {
      std::free(memory);
      return nullptr;
    }
    return Checked(std::realloc(memory, newSize));
  }
  static void Free(void* memory) noexcept { std::free(memory); }

  bool operator==(const ThrowingAllocator& /*other*/) const { return true; }
  bool operator!=(const ThrowingAllocator& /*other*/) const { return false; }

 private:
  static void* Checked(void* memory) {
    if (memory == nullptr) {
      throw std::bad_alloc();
    }
    return memory;
  }
};

}  // namespace foundation
