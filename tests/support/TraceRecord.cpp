#include "tests/support/TraceRecord.h"

#include <stdexcept>

#include "tests/support/Files.h"

namespace test {

std::vector<TracePiece> readTraceRecord(const std::string& file) {
  const std::string record = fileExists(file) ? readFile(file) : "";
  std::vector<TracePiece> pieces;
  // The writer's name, the text's length, the text, which may hold line ends, a line end.
  for (std::size_t at = 0; at < record.size();) {
    const std::size_t nameEnd = record.find(' ', at);
    const std::size_t lengthEnd = record.find(' ', nameEnd + 1);
    if (nameEnd == std::string::npos || lengthEnd == std::string::npos) {
      throw std::runtime_error("the record ends in the middle: " + record.substr(at));
    }
    const std::size_t length = std::stoul(record.substr(nameEnd + 1, lengthEnd - nameEnd - 1));
    pieces.push_back({record.substr(at, nameEnd - at), record.substr(lengthEnd + 1, length)});
    at = lengthEnd + 1 + length + 1;
  }
  return pieces;
}

}  // namespace test
