#pragma once

#include <chrono>
#include <cstddef>
#include <optional>

namespace foundation {

/// A body that nobody wants, of a redirect that is followed or of a challenge that is met, while it is read away so
/// that its connection can be used again. It has bounds in bytes and in time (Limits.h). A value of its transfer.
class UnwantedBody {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// Whether the end of a body of that length would be seen; one of unknown length is tried.
  static bool isWorthReading(std::optional<std::size_t> length);

  explicit UnwantedBody(Time now);

  /// Further bytes; false when they are too many.
  bool take(std::size_t length);
  /// When the reading ends, if no byte comes after `lastByte`.
  Time deadline(Time lastByte) const;

 private:
  Time end_;
  std::size_t bytes_ = 0;
};

}  // namespace foundation
