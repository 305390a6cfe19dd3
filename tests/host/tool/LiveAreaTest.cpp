// Rows that are drawn in their place, as a terminal shows them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Screen.h"
#include "tools/httppool/LiveArea.h"
#include "tools/httppool/TextWidth.h"

namespace tooltest {
namespace {

using httppool::LiveArea;
using httppool::LiveRow;
using testing::ElementsAre;

std::vector<LiveRow> rows(const std::vector<std::string>& texts) {
  std::vector<LiveRow> result;
  for (const std::string& text : texts) {
    result.push_back({text});
  }
  return result;
}

// As the terminal's driver passes it on: a line feed also returns the cursor.
std::string passed(const std::string& bytes) {
  std::string result;
  for (const char byte : bytes) {
    result += byte == '\n' ? std::string("\r\n") : std::string(1, byte);
  }
  return result;
}

TEST(LiveArea, IsDrawnAgainInItsPlace) {
  LiveArea area(LiveArea::Rewrap::Yes);
  Screen screen(10, 20);
  screen.write(passed("$ command\n"));
  screen.write(passed(area.redraw(rows({"one", "two long", "three"}), 20)));
  screen.write(passed(area.redraw(rows({"one", "two", "three!"}), 20)));
  EXPECT_THAT(screen.lines(), ElementsAre("$ command", "one", "two", "three!"));
  screen.write(passed(area.redraw(rows({"one", "two"}), 20)));
  EXPECT_THAT(screen.lines(), ElementsAre("$ command", "one", "two"));
}

TEST(LiveArea, WritesOnlyTheRowsThatDiffer) {
  LiveArea area(LiveArea::Rewrap::Yes);
  area.redraw(rows({"first", "second"}), 20);
  const std::string bytes = area.redraw(rows({"first", "other"}), 20);
  EXPECT_EQ(bytes.find("first"), std::string::npos) << bytes;
  EXPECT_NE(bytes.find("other"), std::string::npos) << bytes;
  EXPECT_EQ(area.redraw(rows({"first", "other"}), 20), "");
}

TEST(LiveArea, ClearsWhatIsTypedBeneath) {
  LiveArea area(LiveArea::Rewrap::Yes);
  Screen screen(10, 20);
  screen.write(passed(area.redraw(rows({"one"}), 20) + "^C"));
  screen.write(passed(area.redraw(rows({"two"}), 20)));
  EXPECT_THAT(screen.lines(), ElementsAre("two"));
}

TEST(LiveArea, IsErasedWithoutATrace) {
  LiveArea area(LiveArea::Rewrap::Yes);
  Screen screen(10, 20);
  screen.write(passed("$ command\n"));
  screen.write(passed(area.redraw(rows({"one", "two"}), 20)));
  screen.write(passed(area.erase(20)));
  EXPECT_THAT(screen.lines(), ElementsAre("$ command"));
  EXPECT_EQ(area.erase(20), "");
}

TEST(LiveArea, StaysInItsPlaceWhenTheTerminalBreaksItsLines) {
  LiveArea area(LiveArea::Rewrap::Yes);
  Screen screen(10, 20);
  screen.write(passed("$ command\n"));
  screen.write(passed(area.redraw(rows({"a row of 19 columns", "short"}), 20)));
  screen.setColumns(8);
  screen.write(passed(area.redraw(rows({"a row …", "short"}), 8)));
  EXPECT_THAT(screen.lines(), ElementsAre("$ comman", "d", "a row …", "short"));
}

TEST(LiveArea, LeavesOtherLinesAloneWhenTheTerminalKeepsItsLines) {
  LiveArea area(LiveArea::Rewrap::No);
  Screen screen(10, 20);
  screen.write(passed("$ command\n"));
  screen.write(passed(area.redraw(rows({"a row of 19 columns", "short"}), 20)));
  screen.write(passed(area.redraw(rows({"a row …", "short"}), 8)));
  EXPECT_THAT(screen.lines(), ElementsAre("$ command", "a row …", "short"));
}

TEST(LiveArea, IsDrawnAnewWhenForgotten) {
  LiveArea area(LiveArea::Rewrap::Yes);
  Screen screen(10, 20);
  screen.write(passed(area.redraw(rows({"one"}), 20) + "[1]+ Stopped\n"));
  area.forget();
  screen.write(passed(area.redraw(rows({"one"}), 20)));
  EXPECT_THAT(screen.lines(), ElementsAre("one", "[1]+ Stopped", "one"));
}

TEST(LiveArea, ColoursTheBeginningOfARow) {
  LiveArea area(LiveArea::Rewrap::Yes);
  const std::string bytes =
      area.redraw({{"done it", 4, LiveRow::Colour::Green}, {"no", 2, LiveRow::Colour::Red}}, 20);
  EXPECT_NE(bytes.find("\x1b[32mdone\x1b[m it"), std::string::npos) << bytes;
  EXPECT_NE(bytes.find("\x1b[31mno\x1b[m"), std::string::npos) << bytes;
}

TEST(TextWidth, CountsWideAndCombiningCharacters) {
  EXPECT_EQ(httppool::columnsOf("abc"), 3U);
  EXPECT_EQ(httppool::columnsOf("\u4e16\u754c"), 4U);
  EXPECT_EQ(httppool::columnsOf("e\u0301"), 1U);
}

TEST(TextWidth, CutsWhatDoesNotFit) {
  EXPECT_EQ(httppool::fitted("abcd", 4), "abcd");
  EXPECT_EQ(httppool::fitted("abcde", 4), "abc…");
  EXPECT_EQ(httppool::fitted("\u4e16\u754c\u4e16", 4), "\u4e16…");
  EXPECT_EQ(httppool::fitted("\u4e16\u754c", 4), "\u4e16\u754c");
  EXPECT_EQ(httppool::fitted("abc", 1), "…");
  EXPECT_EQ(httppool::fitted("abc", 0), "");
}

}  // namespace
}  // namespace tooltest
