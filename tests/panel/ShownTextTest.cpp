// Texts as the panel shows them.

#include <gtest/gtest.h>

#include "tools/zep-trust-panel/DisplayText.h"

namespace {

constexpr const char* kBad = "\xEF\xBF\xBD";

TEST(ShownText, OrdinaryTextsStayAsTheyAre) {
  const std::string text = "<b>&amp; \xC3\xA4\xE6\xBC\xA2\xF0\x9F\x94\x92</b>\nline";
  EXPECT_EQ(shownText(text, 100), text);
  EXPECT_EQ(shownLine("", 10), "");
}

TEST(ShownText, LinesAreKeptOrJoined) {
  EXPECT_EQ(shownText("a\nb\tc\r\nd", 100), "a\nb c \nd");
  EXPECT_EQ(shownLine("a\nb\tc\r\nd", 100), "a b c  d");
}

TEST(ShownText, WhatHidesOrTurnsAroundIsReplaced) {
  for (const char* mark : {"\x01", "\x7F", "\xC2\x9B", "\xE2\x80\xAE", "\xE2\x80\xAA", "\xE2\x81\xA6",
                           "\xE2\x81\xA9", "\xE2\x80\x8B", "\xEF\xBB\xBF", "\xE2\x80\xA8", "\xE2\x80\xA9",
                           "\xC2\xAD", "\xEE\x80\x80", "\xF3\xA0\x81\x81", "\xFF"}) {
    const std::string text = std::string("a") + mark + "b";
    EXPECT_EQ(shownText(text, 100), std::string("a") + kBad + "b");
    EXPECT_EQ(shownHost(text, 100), std::string("a") + kBad + "b");
  }
  EXPECT_EQ(shownText(std::string("a\0b", 3), 100), std::string("a") + kBad + "b");
}

TEST(ShownText, DirectionMarksAreLeftOutAndJoinersKept) {
  EXPECT_EQ(shownText("a\xE2\x80\x8E\xE2\x80\x8F\xD8\x9C"
                      "b",
                      100),
            "ab");
  EXPECT_EQ(shownText("a\xE2\x80\x8C\xE2\x80\x8D"
                      "b",
                      100),
            "a\xE2\x80\x8C\xE2\x80\x8D"
            "b");
}

TEST(ShownText, LongTextsLoseTheirEnd) {
  EXPECT_EQ(shownText("\xC3\xA4\xC3\xB6\xC3\xBC", 3), "\xC3\xA4\xC3\xB6\xC3\xBC");
  EXPECT_EQ(shownText("\xC3\xA4\xC3\xB6\xC3\xBC", 2), "\xC3\xA4\xC3\xB6\xE2\x80\xA6");
  EXPECT_EQ(shownLine("abc", 1), "a\xE2\x80\xA6");
}

TEST(ShownText, LongHostNamesLoseTheirBeginning) {
  EXPECT_EQ(shownHost("www.bank.example.evil.test", 9),
            "\xE2\x80\xA6"
            "evil.test");
  EXPECT_EQ(shownHost("evil.test", 9), "evil.test");
}

TEST(ShownText, LongRunsCanBeBroken) {
  const std::string run(40, 'a');
  EXPECT_EQ(breakable(run + " " + run), run + " " + run);
  EXPECT_EQ(breakable(run + run + "b"), run + "\xE2\x80\x8B" + run + "\xE2\x80\x8B" + "b");
  EXPECT_EQ(breakable(""), "");
}

}  // namespace
