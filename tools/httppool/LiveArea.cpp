#include "LiveArea.h"

#include <algorithm>
#include <string_view>

#include "TextWidth.h"

namespace httppool {
namespace {

// ECMA-48 control functions, and DEC's private mode 7.
constexpr const char* kEraseRestOfLine = "\x1b[K";
constexpr const char* kEraseBelow = "\x1b[J";
constexpr const char* kPlain = "\x1b[m";
constexpr const char* kWrapOff = "\x1b[?7l";
constexpr const char* kWrapOn = "\x1b[?7h";

std::string coloured(const LiveRow& row) {
  if (row.colour == LiveRow::Colour::None) {
    return row.text;
  }
  const std::string_view text = row.text;
  const std::size_t bytes = std::min(row.colouredBytes, text.size());
  std::string bytesOfRow = row.colour == LiveRow::Colour::Green ? "\x1b[32m" : "\x1b[31m";
  bytesOfRow.append(text.substr(0, bytes)).append(kPlain).append(text.substr(bytes));
  return bytesOfRow;
}

}  // namespace

std::string LiveArea::redraw(const std::vector<LiveRow>& rows, std::size_t columns) {
  if (rows == drawn_ && columns == columns_) {
    return {};
  }
  // A row whose width the terminal sees otherwise must not take two lines.
  std::string bytes = kWrapOff + toTheTop(columns);
  const bool isSameWidth = columns == columns_;
  if (!isSameWidth && !drawn_.empty()) {
    bytes += kEraseBelow;
  }
  for (std::size_t index = 0; index < rows.size(); ++index) {
    const bool isThere = isSameWidth && index < drawn_.size() && drawn_[index] == rows[index];
    if (!isThere) {
      bytes += coloured(rows[index]) + kEraseRestOfLine;
    }
    bytes += '\n';
  }
  bytes += kEraseBelow;  // rows that are no more, and what was typed beneath
  bytes += kWrapOn;
  drawn_ = rows;
  columns_ = columns;
  return bytes;
}

std::string LiveArea::erase(std::size_t columns) {
  if (drawn_.empty()) {
    return {};
  }
  std::string bytes = toTheTop(columns) + kEraseBelow;
  drawn_.clear();
  return bytes;
}

std::string LiveArea::toTheTop(std::size_t columns) const {
  std::size_t lines = 0;
  for (const LiveRow& row : drawn_) {
    const std::size_t width = rewrap_ == Rewrap::Yes ? columnsOf(row.text) : 0;
    lines += columns == 0 || width == 0 ? 1 : (width + columns - 1) / columns;
  }
  return lines == 0 ? "\r" : "\r\x1b[" + std::to_string(lines) + "A";
}

}  // namespace httppool
