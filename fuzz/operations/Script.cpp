#include "fuzz/operations/Script.h"

namespace operations {

bool Script::isOver() const {
  constexpr int kMostOperations = 80;
  return rest_.empty() || operations_ == kMostOperations;
}

std::uint8_t Script::operation() {
  ++operations_;
  return byte();
}

std::string Script::text() {
  const std::string text(rest_.substr(0, below(24)));
  rest_.remove_prefix(text.size());
  return text.substr(0, text.find('\0'));
}

std::uint8_t Script::byte() {
  if (rest_.empty()) {
    return 0;
  }
  const auto value = static_cast<std::uint8_t>(rest_.front());
  rest_.remove_prefix(1);
  return value;
}

}  // namespace operations
