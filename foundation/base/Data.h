#pragma once

#include <cassert>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <vector>

#include "foundation/base/Export.h"
#include "foundation/base/Release.h"

namespace foundation {

/// A growable run of bytes, owned by whoever holds it; not shared between threads.
/// Growth reports failure instead of throwing: a body that does not fit into memory fails its request,
/// never the process.
///
/// Large data is in several pieces: so it grows, and takes other data over, without a copy. What is made in one go is
/// in one piece. Pages that were reserved but never written cost nothing.
class FOUNDATION_EXPORT Data {
 public:
  Data() noexcept = default;
  /// Copies `length` bytes into one piece. Throws std::bad_alloc.
  Data(const void* bytes, std::size_t length);
  explicit Data(std::string_view text) : Data(text.data(), text.size()) {}
  /// In one piece. Throws std::bad_alloc.
  Data(const Data& other);
  Data(Data&& other) noexcept;
  Data& operator=(Data other) noexcept;
  ~Data() = default;

  /// Appends a copy. False when there is no memory; the content is then unchanged.
  [[nodiscard]] bool append(const void* bytes, std::size_t length) noexcept;
  /// Appends `other` and leaves it empty. Large data is taken over without a copy, and so is any by an empty receiver.
  [[nodiscard]] bool append(Data&& other) noexcept;
  /// Makes room for `capacity` bytes in all, in one piece when the data is. False when there is no memory.
  [[nodiscard]] bool reserve(std::size_t capacity) noexcept;
  /// Empties the data and gives its memory back.
  void clear() noexcept;

  std::size_t length() const noexcept { return length_; }
  bool isEmpty() const noexcept { return length_ == 0; }
  /// The length that it can grow to as it is.
  std::size_t capacity() const noexcept { return length_ + room(); }

  bool isInOnePiece() const noexcept { return pieces_.size() <= 1; }
  /// Of data in one piece only; null when there never was a byte.
  const char* bytes() const noexcept {
    assert(isInOnePiece());
    return pieces_.empty() ? nullptr : pieces_.front().bytes.get();
  }
  /// Of data in one piece only.
  std::string_view view() const noexcept { return {bytes(), length_}; }
  /// Calls `function` with each piece in order, as a std::string_view, for as long as it answers true.
  template <typename Function>
  void forEachPiece(Function function) const {
    for (const Piece& piece : pieces_) {
      if (!function(std::string_view(piece.bytes.get(), piece.length))) {
        return;
      }
    }
  }

 private:
  struct Piece {
    std::unique_ptr<char, Release<std::free>> bytes;
    std::size_t length = 0;
    std::size_t capacity = 0;
  };

  std::size_t room() const noexcept {
    return pieces_.empty() ? 0 : pieces_.back().capacity - pieces_.back().length;
  }
  bool growLast(std::size_t length) noexcept;
  bool addPiece(std::size_t length) noexcept;
  void put(const char* bytes, std::size_t length) noexcept;
  bool takeOver(Data& other) noexcept;
  static bool resize(Piece& piece, std::size_t capacity) noexcept;

  std::vector<Piece> pieces_;
  std::size_t length_ = 0;
};

}  // namespace foundation
