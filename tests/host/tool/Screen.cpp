#include "Screen.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

namespace tooltest {

void Screen::write(std::string_view bytes) {
  for (std::size_t at = 0; at < bytes.size();) {
    const auto byte = static_cast<unsigned char>(bytes[at]);
    if (bytes.substr(at, 2) == "\x1b[") {
      const std::size_t end = bytes.find_first_not_of("0123456789;?", at + 2);
      if (end == std::string_view::npos) {
        return;  // not yet whole
      }
      control(bytes[end], bytes.substr(at + 2, end - at - 2));
      at = end + 1;
    } else if (byte < 0x20) {
      EXPECT_TRUE(byte == '\r' || byte == '\n') << "control character " << static_cast<int>(byte);
      byte == '\n' ? down() : void(column_ = 0);
      ++at;
    } else {
      const std::size_t length = byte < 0x80 ? 1 : byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
      put(std::string(bytes.substr(at, length)));
      at += length;
    }
  }
}

void Screen::put(std::string character) {
  if (column_ >= columns_) {
    down();
    column_ = 0;
  }
  Line& line = lines_[row_];
  line.resize(std::max(line.size(), column_ + 1), " ");
  line[column_++] = std::move(character);
}

void Screen::control(char function, std::string_view parameter) {
  Line& line = lines_[row_];
  if (function == 'A') {
    const std::size_t top = lines_.size() > rows_ ? lines_.size() - rows_ : 0;
    const auto count = static_cast<std::size_t>(std::atoi(std::string(parameter).c_str()));
    row_ = row_ - top > count ? row_ - count : top;
  } else if (function == 'K' || function == 'J') {
    line.resize(std::min(line.size(), column_));
    for (std::size_t row = row_ + 1; function == 'J' && row < lines_.size(); ++row) {
      lines_[row].clear();
    }
  } else {
    const bool isKnown = function == 'm' || ((function == 'h' || function == 'l') && parameter == "?7");
    EXPECT_TRUE(isKnown) << "control function " << parameter << function;
  }
}

void Screen::down() {
  if (++row_ == lines_.size()) {
    lines_.emplace_back();
  }
}

void Screen::setColumns(std::size_t columns) {
  std::vector<Line> broken;
  std::size_t row = 0;
  for (std::size_t index = 0; index < lines_.size(); ++index) {
    row = index == row_ ? broken.size() : row;
    Line rest = lines_[index];
    for (; rest.size() > columns; rest.erase(rest.begin(), rest.begin() + static_cast<long>(columns))) {
      broken.emplace_back(rest.begin(), rest.begin() + static_cast<long>(columns));
    }
    broken.push_back(rest);
  }
  lines_ = std::move(broken);
  row_ = row;
  columns_ = columns;
}

std::vector<std::string> Screen::lines() const {
  std::vector<std::string> texts;
  for (const Line& line : lines_) {
    std::string text;
    for (const std::string& character : line) {
      text += character;
    }
    texts.push_back(text.substr(0, text.find_last_not_of(' ') + 1));
  }
  while (!texts.empty() && texts.back().empty()) {
    texts.pop_back();
  }
  return texts;
}

bool Screen::hasLine(std::string_view beginning) const {
  const std::vector<std::string> all = lines();
  return std::any_of(all.begin(), all.end(),
                     [&](const std::string& line) { return line.starts_with(beginning); });
}

}  // namespace tooltest
