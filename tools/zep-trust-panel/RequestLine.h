#pragma once

#include <optional>
#include <string>

/// Reads one line, without its end, waiting for it; what comes behind it may be read, too, and is dropped. Nothing when
/// the input ends before the line does, cannot be read, or the line is longer than `limit` bytes.
std::optional<std::string> readRequestLine(int descriptor, std::size_t limit);
