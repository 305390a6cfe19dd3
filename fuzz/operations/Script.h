#pragma once

// The bytes of an input, one after another, as what the host has to decide; zeros when there are no more. Lives as long
// as the input.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace operations {

class Script {
 public:
  explicit Script(std::string_view bytes) : rest_(bytes) {}

  /// An input may cost only so many operations.
  bool isOver() const;
  std::uint8_t operation();
  std::size_t below(std::size_t end) { return byte() % end; }
  std::string text();

 private:
  std::uint8_t byte();

  std::string_view rest_;
  int operations_ = 0;
};

}  // namespace operations
