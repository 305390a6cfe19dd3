#include "Secret.h"

#include <cstring>
#include <utility>

namespace httppool {

Secret::~Secret() {
  if (!bytes_.empty()) {
    explicit_bzero(bytes_.data(), bytes_.size());
  }
}

Secret& Secret::operator=(Secret other) noexcept {
  bytes_.swap(other.bytes_);
  return *this;
}

void Secret::append(std::string_view part) {
  if (bytes_.capacity() - bytes_.size() < part.size()) {
    // The vector would grow by itself, but leave the bytes in the memory it gives back.
    Secret larger;
    larger.bytes_.reserve((bytes_.size() + part.size()) * 2);
    larger.bytes_.assign(bytes_.begin(), bytes_.end());
    bytes_.swap(larger.bytes_);
  }
  bytes_.insert(bytes_.end(), part.begin(), part.end());
}

}  // namespace httppool
