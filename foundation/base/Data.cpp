#include "foundation/base/Data.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

namespace foundation {

Data::Data(const void* bytes, std::size_t length) {
  if (!reserve(length) || !append(bytes, length)) {
    throw std::bad_alloc();
  }
}

Data::Data(Data&& other) noexcept
    : bytes_(std::exchange(other.bytes_, nullptr)),
      length_(std::exchange(other.length_, 0)),
      capacity_(std::exchange(other.capacity_, 0)) {
}

Data& Data::operator=(Data other) noexcept {
  std::swap(bytes_, other.bytes_);
  std::swap(length_, other.length_);
  std::swap(capacity_, other.capacity_);
  return *this;
}

Data::~Data() {
  std::free(bytes_);
}

bool Data::append(const void* bytes, std::size_t length) noexcept {
  if (length == 0) {
    return true;
  }
  if (length > std::numeric_limits<std::size_t>::max() - length_) {
    return false;
  }
  const std::size_t needed = length_ + length;
  if (needed > capacity_) {
    const std::size_t grown =
        capacity_ <= std::numeric_limits<std::size_t>::max() / 2 ? capacity_ * 2 : needed;
    // Where the doubled block does not fit, the exact one still may.
    if (!reserve(std::max(needed, grown)) && !reserve(needed)) {
      return false;
    }
  }
  std::memcpy(bytes_ + length_, bytes, length);
  length_ = needed;
  return true;
}

bool Data::append(Data&& other) noexcept {
  if (isEmpty() && other.capacity_ >= capacity_) {
    *this = std::move(other);
    return true;
  }
  if (!append(other.bytes_, other.length_)) {
    return false;
  }
  other.clear();
  return true;
}

bool Data::reserve(std::size_t capacity) noexcept {
  if (capacity <= capacity_) {
    return true;
  }
  void* moved = std::realloc(bytes_, capacity);
  if (moved == nullptr) {
    return false;
  }
  bytes_ = static_cast<char*>(moved);
  capacity_ = capacity;
  return true;
}

void Data::clear() noexcept {
  std::free(bytes_);
  bytes_ = nullptr;
  length_ = capacity_ = 0;
}

}  // namespace foundation
