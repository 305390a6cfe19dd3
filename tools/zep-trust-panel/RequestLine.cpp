#include "RequestLine.h"

#include <unistd.h>

#include <array>
#include <cerrno>

std::optional<std::string> readRequestLine(int descriptor, std::size_t limit) {
  std::string line;
  std::array<char, 16384> bytes;
  while (line.size() <= limit) {
    const ssize_t count = read(descriptor, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      return std::nullopt;
    }
    const std::size_t searchFrom = line.size();
    line.append(bytes.data(), static_cast<std::size_t>(count));
    if (const std::size_t end = line.find('\n', searchFrom); end != std::string::npos) {
      line.resize(end);
      return line.size() <= limit ? std::optional(std::move(line)) : std::nullopt;
    }
  }
  return std::nullopt;
}
