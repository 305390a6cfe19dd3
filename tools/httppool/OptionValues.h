// The values of options, read from their texts. Any thread; values only.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

#include "Job.h"

namespace httppool {

// Seconds above 0 and up to 1000000, rounded up to milliseconds.
std::optional<std::chrono::milliseconds> timeFrom(std::string_view text);

// A whole number above 0.
std::optional<std::uint64_t> numberFrom(std::string_view text);

// "Name: value", without the blanks around the value.
std::optional<HeaderField> headerFieldFrom(std::string_view text);

}  // namespace httppool
