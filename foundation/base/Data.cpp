#include "foundation/base/Data.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <limits>
#include <new>
#include <utility>

namespace foundation {
namespace {

/// A piece grows to this size; what comes then goes to the next one.
constexpr std::size_t kGrownPiece = std::size_t{4} << 20;
constexpr std::size_t kLargestPiece = std::size_t{32} << 20;
/// Less is copied rather than kept as a piece of its own.
constexpr std::size_t kSmallData = std::size_t{64} << 10;
/// Of a page that spares the kernel 511 others.
constexpr std::size_t kHugePage = std::size_t{2} << 20;

/// In huge pages, which the kernel gives whole: for data that has come, not for what is announced.
char* allocateHuge(std::size_t capacity) {
  void* bytes = std::aligned_alloc(kHugePage, capacity);
  if (bytes != nullptr) {
    // Only advice: most of the time that a large body takes went into its page faults.
    [[maybe_unused]] const int ignored = madvise(bytes, capacity, MADV_HUGEPAGE);
  }
  return static_cast<char*>(bytes);
}

}  // namespace

Data::Data(const void* bytes, std::size_t length) {
  if (!reserve(length) || !append(bytes, length)) {
    throw std::bad_alloc();
  }
}

Data::Data(const Data& other) {
  if (!reserve(other.length_)) {
    throw std::bad_alloc();
  }
  other.forEachPiece([this](std::string_view piece) {
    put(piece.data(), piece.size());
    return true;
  });
}

Data::Data(Data&& other) noexcept
    : pieces_(std::move(other.pieces_)), length_(std::exchange(other.length_, 0)) {
  other.pieces_.clear();
}

Data& Data::operator=(Data other) noexcept {
  std::swap(pieces_, other.pieces_);
  std::swap(length_, other.length_);
  return *this;
}

bool Data::append(const void* bytes, std::size_t length) noexcept {
  if (length == 0) {
    return true;
  }
  if (length > std::numeric_limits<std::size_t>::max() - length_) {
    return false;
  }
  if (length <= room() || growLast(length)) {
    put(static_cast<const char*>(bytes), length);
    return true;
  }
  const std::size_t here = room();
  if (!addPiece(length - here)) {
    return false;
  }
  if (here > 0) {
    Piece& last = *std::prev(pieces_.end(), 2);
    std::memcpy(last.bytes.get() + last.length, bytes, here);
    last.length += here;
    length_ += here;
  }
  put(static_cast<const char*>(bytes) + here, length - here);
  return true;
}

bool Data::append(Data&& other) noexcept {
  if (isEmpty() && other.capacity() >= capacity()) {
    *this = std::move(other);
    return true;
  }
  if (other.length_ < kSmallData) {
    // So small it is in one piece: only what has grown large is not.
    if (!append(other.bytes(), other.length_)) {
      return false;
    }
    other.clear();
    return true;
  }
  return takeOver(other);
}

bool Data::reserve(std::size_t capacity) noexcept {
  if (capacity <= this->capacity()) {
    return true;
  }
  return pieces_.empty() ? addPiece(capacity)
                         : resize(pieces_.back(), pieces_.back().length + (capacity - length_));
}

void Data::clear() noexcept {
  std::vector<Piece>().swap(pieces_);
  length_ = 0;
}

/// Makes room for `length` bytes more in the last piece, unless it would become too large.
bool Data::growLast(std::size_t length) noexcept {
  if (pieces_.empty()) {
    return addPiece(length);
  }
  Piece& last = pieces_.back();
  if (length > kGrownPiece - std::min(last.length, kGrownPiece)) {
    return false;
  }
  const std::size_t needed = last.length + length;
  // Where the doubled block does not fit, the exact one still may.
  return resize(last, std::max(needed, std::min(2 * last.capacity, kGrownPiece))) || resize(last, needed);
}

/// Adds an empty piece for at least `length` bytes; for just these when it is the first.
bool Data::addPiece(std::size_t length) noexcept {
  Piece piece;
  if (pieces_.empty()) {
    piece.capacity = length;
    piece.bytes.reset(static_cast<char*>(std::malloc(length)));
  } else if (length <= std::numeric_limits<std::size_t>::max() - kHugePage) {
    const std::size_t wanted = std::max(length, std::clamp(length_, kGrownPiece, kLargestPiece));
    piece.capacity = (wanted + kHugePage - 1) / kHugePage * kHugePage;
    piece.bytes.reset(allocateHuge(piece.capacity));
  }
  if (piece.bytes == nullptr) {
    return false;
  }
  try {
    pieces_.push_back(std::move(piece));
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

/// Into the last piece, which has the room.
void Data::put(const char* bytes, std::size_t length) noexcept {
  if (length > 0) {
    Piece& last = pieces_.back();
    std::memcpy(last.bytes.get() + last.length, bytes, length);
    last.length += length;
    length_ += length;
  }
}

bool Data::takeOver(Data& other) noexcept {
  try {
    pieces_.reserve(pieces_.size() + other.pieces_.size());
  } catch (const std::bad_alloc&) {
    return false;
  }
  // Nothing is put into the last piece any more.
  if (!pieces_.empty() && pieces_.back().length == 0) {
    pieces_.pop_back();
  } else if (!pieces_.empty()) {
    resize(pieces_.back(), pieces_.back().length);
  }
  std::move(other.pieces_.begin(), other.pieces_.end(), std::back_inserter(pieces_));
  length_ += other.length_;
  other.clear();
  return true;
}

bool Data::resize(Piece& piece, std::size_t capacity) noexcept {
  char* bytes = static_cast<char*>(std::realloc(piece.bytes.get(), capacity));
  if (bytes == nullptr) {
    return false;
  }
  static_cast<void>(piece.bytes.release());
  piece.bytes.reset(bytes);
  piece.capacity = capacity;
  return true;
}

}  // namespace foundation
