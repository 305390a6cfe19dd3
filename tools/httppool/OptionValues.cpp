#include "OptionValues.h"

#include <charconv>
#include <cmath>
#include <string>
#include <system_error>

namespace httppool {
namespace {

template <typename Number>
std::optional<Number> whole(std::string_view text) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

}  // namespace

std::optional<std::chrono::milliseconds> timeFrom(std::string_view text) {
  constexpr double kLongest = 1e6;
  const auto seconds = whole<double>(text);
  if (!seconds || !(*seconds > 0 && *seconds <= kLongest)) {
    return std::nullopt;
  }
  return std::chrono::milliseconds(static_cast<long>(std::ceil(*seconds * 1000)));
}

std::optional<std::uint64_t> numberFrom(std::string_view text) {
  const auto number = whole<std::uint64_t>(text);
  return number == std::uint64_t{0} ? std::nullopt : number;
}

std::optional<HeaderField> headerFieldFrom(std::string_view text) {
  const std::size_t colon = text.find(':');
  if (colon == std::string_view::npos) {
    return std::nullopt;
  }
  const std::string_view value = text.substr(colon + 1);
  const std::size_t first = value.find_first_not_of(" \t");
  const std::size_t last = value.find_last_not_of(" \t");
  return HeaderField{
      std::string(text.substr(0, colon)),
      std::string(first == std::string_view::npos ? "" : value.substr(first, last - first + 1))};
}

}  // namespace httppool
