#pragma once

#include <cstddef>
#include <string_view>

#include "foundation/base/Export.h"

namespace foundation {

/// A growable run of bytes, owned by whoever holds it; not shared between threads.
/// Growth reports failure instead of throwing: a body that does not fit into memory fails its request,
/// never the process. Memory comes from realloc, so a large block moves by remapping and pages that were
/// reserved but never written cost nothing.
class FOUNDATION_EXPORT Data {
 public:
  Data() noexcept = default;
  /// Copies `length` bytes. Throws std::bad_alloc.
  Data(const void* bytes, std::size_t length);
  explicit Data(std::string_view text) : Data(text.data(), text.size()) {}
  Data(const Data& other) : Data(other.bytes_, other.length_) {}
  Data(Data&& other) noexcept;
  Data& operator=(Data other) noexcept;
  ~Data();

  /// Appends a copy. False when there is no memory; the content is then unchanged.
  [[nodiscard]] bool append(const void* bytes, std::size_t length) noexcept;
  /// Appends `other` and leaves it empty; an empty receiver takes the block over without a copy.
  [[nodiscard]] bool append(Data&& other) noexcept;
  /// Makes room for `capacity` bytes in all. False when there is no memory.
  [[nodiscard]] bool reserve(std::size_t capacity) noexcept;
  /// Empties the data and gives its memory back.
  void clear() noexcept;

  const char* bytes() const noexcept { return bytes_; }
  std::size_t length() const noexcept { return length_; }
  std::size_t capacity() const noexcept { return capacity_; }
  bool isEmpty() const noexcept { return length_ == 0; }
  std::string_view view() const noexcept { return {bytes_, length_}; }

 private:
  char* bytes_ = nullptr;
  std::size_t length_ = 0;
  std::size_t capacity_ = 0;
};

}  // namespace foundation
