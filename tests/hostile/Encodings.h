#pragma once

// Texts in the encodings that the library decodes. Any thread.

#include <string>

namespace test {

std::string gzipped(const std::string& text);
/// The zlib format (RFC 1950).
std::string deflated(const std::string& text);
std::string brotlied(const std::string& text);
std::string zstandarded(const std::string& text);

}  // namespace test
