#include <gtest/gtest.h>

#include <string>

#include "httpPool/Utf8Text.h"

namespace {

using namespace std::string_literals;

struct Case {
  const char* what;
  std::string bytes;
  bool isUtf8;
};

class Utf8TextTest : public testing::TestWithParam<Case> {};

TEST_P(Utf8TextTest, IsJudgedByRfc3629) {
  EXPECT_EQ(IsUtf8(GetParam().bytes), GetParam().isUtf8);
  // At any distance from the blocks that the ASCII road takes.
  for (std::size_t padding = 1; padding < 10; ++padding) {
    EXPECT_EQ(IsUtf8(std::string(padding, 'x') + GetParam().bytes), GetParam().isUtf8) << padding;
    EXPECT_EQ(IsUtf8(GetParam().bytes + std::string(padding, 'x')), GetParam().isUtf8) << padding;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Texts, Utf8TextTest,
    testing::Values(
        Case{"Empty", "", true}, Case{"Ascii", "plain text, long enough for two blocks", true},
        Case{"ZeroByte", "a\0b"s, true}, Case{"LowestOfTwo", "\xC2\x80", true},
        Case{"HighestOfTwo", "\xDF\xBF", true}, Case{"LowestOfThree", "\xE0\xA0\x80", true},
        Case{"BelowSurrogates", "\xED\x9F\xBF", true}, Case{"AboveSurrogates", "\xEE\x80\x80", true},
        Case{"HighestOfThree", "\xEF\xBF\xBF", true}, Case{"LowestOfFour", "\xF0\x90\x80\x80", true},
        Case{"HighestOfAll", "\xF4\x8F\xBF\xBF", true}, Case{"LoneContinuation", "\x80", false},
        Case{"OverlongSlash", "\xC0\xAF", false}, Case{"OverlongC1", "\xC1\xBF", false},
        Case{"OverlongOfThree", "\xE0\x9F\xBF", false}, Case{"Surrogate", "\xED\xA0\x80", false},
        Case{"LastSurrogate", "\xED\xBF\xBF", false}, Case{"OverlongOfFour", "\xF0\x8F\xBF\xBF", false},
        Case{"AboveTheLast", "\xF4\x90\x80\x80", false}, Case{"F5", "\xF5\x80\x80\x80", false},
        Case{"FF", "\xFF", false}, Case{"CutOff", "\xE2\x82", false}, Case{"BadThird", "\xE2\x82\x41", false},
        Case{"BadFourth", "\xF0\x9F\x98\x41", false}, Case{"Latin1", "caf\xE9", false}),
    [](const auto& info) { return info.param.what; });

TEST(AssignTextTest, TakesUtf8WholeZeroBytesIncluded) {
  BasicString out("before");
  AssignText(out, foundation::Data("a\0\xC3\xA9"s));
  EXPECT_EQ(std::string(out), "a\0\xC3\xA9"s);
}

TEST(AssignTextTest, TakesDataInPiecesAsOneText) {
  // The pieces part in the middle of a character.
  const std::string head = std::string(70'000, 'a') + '\xC3';
  const std::string tail = '\xA9' + std::string(70'000, 'b');
  foundation::Data data{std::string_view(head)};
  ASSERT_TRUE(data.append(foundation::Data(std::string_view(tail))));
  ASSERT_FALSE(data.isInOnePiece());
  BasicString out("before");
  AssignText(out, data);
  EXPECT_TRUE(out == head + tail);

  foundation::Data bytes{std::string_view(head)};
  ASSERT_TRUE(bytes.append(foundation::Data(std::string_view("b\0" + tail))));
  ASSERT_TRUE(bytes.append(foundation::Data(std::string(70'000, '\0'))));
  AssignText(out, bytes);
  EXPECT_TRUE(out == head + "b" + tail);
}

TEST(AssignTextTest, TakesOtherBytesUpToTheFirstZeroByte) {
  BasicString out("before");
  AssignText(out, foundation::Data("a\xFF\0b"s));
  EXPECT_EQ(std::string(out), "a\xFF");
  AssignText(out, foundation::Data("\xFF\xFE"s));
  EXPECT_EQ(std::string(out), "\xFF\xFE");
  AssignText(out, foundation::Data("\0\xFF"s));
  EXPECT_EQ(std::string(out), "");
}

}  // namespace
