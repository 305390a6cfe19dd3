// What a terminal shows of the bytes that are written to it: as much of one as the program's table needs. A control
// function that it does not know fails the test. Values.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tooltest {

class Screen {
 public:
  Screen(std::size_t rows, std::size_t columns) : rows_(rows), columns_(columns), lines_(1) {}

  void write(std::string_view bytes);
  // Makes it narrower or wider, and breaks the lines anew as most terminals do.
  void setColumns(std::size_t columns);

  // From the first line ever written to the last one, without blanks at their ends.
  std::vector<std::string> lines() const;
  bool hasLine(std::string_view beginning) const;

 private:
  using Line = std::vector<std::string>;  // a character for each column

  void put(std::string character);
  void control(char function, std::string_view parameter);
  void down();

  std::size_t rows_;
  std::size_t columns_;
  std::vector<Line> lines_;
  std::size_t row_ = 0;
  std::size_t column_ = 0;
};

}  // namespace tooltest
