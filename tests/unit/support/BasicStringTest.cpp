// BasicString and the comparisons beneath it.

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "support/BasicString.h"
#include "support/StringCompare.h"

namespace {

TEST(StringCompare, TheFirstDifferenceDecides) {
  EXPECT_LT(str::stringcmp("abca", "abcb"), 0);
  EXPECT_EQ(str::stringcmp("abcd", "abca"), 'd' - 'a');
  EXPECT_EQ(str::stringcmp("same", "same"), 0);
  EXPECT_EQ(str::stringcmp("", ""), 0);
  EXPECT_EQ(str::stringcmp("\xff", "a"), 0xff - 'a') << "bytes compare as unsigned";
}

TEST(StringCompare, APrefixIsLower) {
  EXPECT_EQ(str::stringcmp("abc", "abcd"), -'d');
  EXPECT_EQ(str::stringcmp("abcd", "abc"), 'd');
}

TEST(StringCompare, CaseCountsOnlyWhenAsked) {
  EXPECT_EQ(str::stringicmp("MiXed", "mIxED"), 0);
  EXPECT_EQ(str::stringicmp("A", "b"), -1);
  EXPECT_NE(str::stringcmp("MiXed", "mIxED"), 0);
  EXPECT_EQ(str::compare("A", "a", true), 'A' - 'a');
  EXPECT_EQ(str::compare("A", "a", false), 0);
}

TEST(StringCompare, NullIsTheEmptyText) {
  EXPECT_EQ(str::stringcmp(nullptr, ""), 0);
  EXPECT_EQ(str::stringicmp("a", nullptr), 'a');
}

TEST(BasicString, ConvertsFreely) {
  const std::string standard = "text";
  BasicString string = standard;
  const std::string back = string;
  EXPECT_EQ(back, standard);
  EXPECT_STREQ(string.c_str(), "text");
  string = "other";
  EXPECT_EQ(string, "other");
  char buffer[] = "buffer";
  string = buffer;
  EXPECT_EQ(string, "buffer");
  string = std::string("moved");
  EXPECT_EQ(string, "moved");
  string += BasicString(" on");
  EXPECT_EQ(string, "moved on");
  BasicString copy = string;
  EXPECT_EQ(copy, string);
}

TEST(BasicString, TakesLongTextsWhole) {
  std::string text(50'000, 'x');
  BasicString string;
  string = text.data();
  EXPECT_EQ(string.size(), 50'000u);
  EXPECT_EQ(BasicString(text.c_str()).size(), 50'000u);
}

TEST(BasicString, NullIsTheEmptyText) {
  const char* nothing = nullptr;
  char* nothingToChange = nullptr;
  BasicString string(nothing);
  EXPECT_EQ(string, "");
  string = "x";
  string = nothing;
  EXPECT_EQ(string, "");
  string = "x";
  string = nothingToChange;
  EXPECT_EQ(string, "");
  EXPECT_EQ(BasicString(nothingToChange), "");
  EXPECT_EQ(string.compare(nothing), 0);
}

TEST(BasicString, Compares) {
  const BasicString string = "Name";
  EXPECT_EQ(string.compare("Name"), 0);
  EXPECT_LT(string.compare("name"), 0);
  EXPECT_EQ(string.compareNoCase("nAME"), 0);
  EXPECT_GT(string.compareNoCase("nam"), 0);
}

TEST(BasicString, TrimRightCutsARunButNotAWholeText) {
  BasicString string = "a//";
  EXPECT_EQ(&string.trimRight('/'), &string);
  EXPECT_EQ(string, "a");
  string = "//";
  EXPECT_EQ(string.trimRight('/'), "//");
  string = "";
  EXPECT_EQ(string.trimRight('/'), "");
  string = "/a/b";
  EXPECT_EQ(string.trimRight('/'), "/a/b");
}

TEST(BasicString, FormatReplacesTheContent) {
  BasicString string = "before";
  EXPECT_EQ(string.format("%s %s", "pool", "task"), "pool task");
  EXPECT_EQ(string.format("%d%%", 5), "5%");
  EXPECT_EQ(string.format("<%s>", string.c_str()), "<5%>");
}

TEST(BasicString, FormatIsBounded) {
  BasicString string;
  const std::string text(10'000, 'y');
  string.format("%s", text.c_str());
  EXPECT_EQ(string, std::string(1023, 'y'));
  string.format("%s", text.substr(0, 1023).c_str());
  EXPECT_EQ(string.size(), 1023u);
}

}  // namespace
