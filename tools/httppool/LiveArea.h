// Rows at the end of what a terminal shows, drawn again in their place: makes the bytes to be written. The cursor rests
// at the beginning of the line beneath them. One thread at a time; values only.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace httppool {

struct LiveRow {
  enum class Colour { None, Green, Red };

  std::string text;
  std::size_t colouredBytes = 0;  // of its beginning
  Colour colour = Colour::None;

  bool operator==(const LiveRow&) const = default;
};

class LiveArea {
 public:
  // Whether a terminal that becomes narrower breaks the lines that are there already.
  enum class Rewrap { No, Yes };

  explicit LiveArea(Rewrap rewrap) : rewrap_(rewrap) {}

  // Only what differs is written; empty when nothing does. Every row must fit into the columns.
  std::string redraw(const std::vector<LiveRow>& rows, std::size_t columns);
  // Takes the rows away; empty when there are none.
  std::string erase(std::size_t columns);
  // The rows stay where they are, whatever has become of them, and are not drawn in place any more.
  void forget() { drawn_.clear(); }

 private:
  std::string toTheTop(std::size_t columns) const;

  const Rewrap rewrap_;
  std::vector<LiveRow> drawn_;
  std::size_t columns_ = 0;  // when they were drawn
};

}  // namespace httppool
