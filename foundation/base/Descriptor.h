#pragma once

#include <unistd.h>

#include <utility>

namespace foundation {

/// Owns an open file descriptor, or none (-1). Belongs to whoever holds it; moved, not copied.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() { reset(); }
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    reset(std::exchange(other.number_, -1));
    return *this;
  }

  int number() const { return number_; }
  bool isOpen() const { return number_ >= 0; }
  void reset(int number = -1) {
    if (const int old = std::exchange(number_, number); old >= 0) {
      close(old);
    }
  }

 private:
  int number_ = -1;
};

}  // namespace foundation
