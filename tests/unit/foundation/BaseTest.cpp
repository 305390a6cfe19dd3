// Data, Dictionary and Value, Error, JSON texts.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>

#include "foundation/base/Data.h"
#include "foundation/base/Dictionary.h"
#include "foundation/base/Error.h"
#include "foundation/base/JsonText.h"

namespace foundation {
namespace {

TEST(Data, GrowsByAppending) {
  Data data;
  std::string expected;
  for (int i = 0; i < 1000; ++i) {
    const std::string piece(static_cast<std::size_t>(i % 37), static_cast<char>('a' + i % 26));
    ASSERT_TRUE(data.append(piece.data(), piece.size()));
    expected += piece;
  }
  EXPECT_EQ(data.view(), expected);
  EXPECT_GE(data.capacity(), data.length());
}

TEST(Data, HoldsAnyBytes) {
  const std::string bytes("a\0b\xff", 4);
  EXPECT_EQ(Data(bytes).view(), bytes);
  EXPECT_TRUE(Data("").isEmpty());
}

TEST(Data, CopiesAndMoves) {
  Data first("text");
  Data copy = first;
  ASSERT_TRUE(copy.append("!", 1));
  EXPECT_EQ(first.view(), "text");
  EXPECT_EQ(copy.view(), "text!");
  const char* const block = copy.bytes();
  Data moved = std::move(copy);
  EXPECT_EQ(moved.bytes(), block);
  first = std::move(moved);
  EXPECT_EQ(first.view(), "text!");
}

TEST(Data, AnEmptyOneTakesTheBlockOver) {
  Data chunk("chunk");
  const char* const block = chunk.bytes();
  Data body;
  ASSERT_TRUE(body.append(std::move(chunk)));
  EXPECT_EQ(body.bytes(), block);
  EXPECT_TRUE(chunk.isEmpty());  // NOLINT(bugprone-use-after-move): documented
  Data more(" more");
  ASSERT_TRUE(body.append(std::move(more)));
  EXPECT_EQ(body.view(), "chunk more");
}

TEST(Data, ReportsThatThereIsNoMemory) {
  Data data("kept");
  EXPECT_FALSE(data.reserve(std::numeric_limits<std::size_t>::max() / 2));
  EXPECT_FALSE(data.append("x", std::numeric_limits<std::size_t>::max() - 2));
  EXPECT_EQ(data.view(), "kept");
}

TEST(Data, ClearGivesTheMemoryBack) {
  Data data("text");
  data.clear();
  EXPECT_TRUE(data.isEmpty());
  EXPECT_EQ(data.capacity(), 0u);
}

TEST(Dictionary, KeepsTheOrderOfInsertion) {
  Dictionary dictionary{{"b", 1}, {"a", "text"}, {"c", true}};
  dictionary.set("a", 2.5);
  dictionary.set("d", Array{1, "x"});
  std::string keys;
  for (const auto& [key, value] : dictionary.entries()) {
    keys += key;
  }
  EXPECT_EQ(keys, "bacd");
  EXPECT_EQ(*dictionary.find("a")->real(), 2.5);
  EXPECT_TRUE(dictionary.remove("b"));
  EXPECT_FALSE(dictionary.remove("b"));
  EXPECT_EQ(dictionary.size(), 3u);
}

TEST(Dictionary, TextIsEmptyForOtherKinds) {
  const Dictionary dictionary{{"t", "text"}, {"n", 1}};
  EXPECT_EQ(dictionary.text("t"), "text");
  EXPECT_EQ(dictionary.text("n"), "");
  EXPECT_EQ(dictionary.text("missing"), "");
  EXPECT_EQ(dictionary.find("T"), nullptr);
}

TEST(Value, HasABooleanMeaning) {
  for (const Value& value :
       {Value(true), Value(1), Value(-1), Value(0.5), Value("YES"), Value("yes"), Value("true"), Value("T"),
        Value("1"), Value("  +0007"), Value("-9"), Value("00y")}) {
    EXPECT_TRUE(value.boolValue()) << value.storage().index();
  }
  for (const Value& value : {Value(), Value(false), Value(0), Value(0.0), Value(""), Value("NO"), Value("no"),
                             Value("false"), Value("0"), Value("000"), Value("x1"), Value(" "),
                             Value(Array{true}), Value(Dictionary{{"a", true}})}) {
    EXPECT_FALSE(value.boolValue()) << value.storage().index();
  }
}

TEST(Error, NamesItsDomainCodeAndDetail) {
  const Error error = makeURLError(URLErrorCode::TimedOut, "60000 ms");
  EXPECT_EQ(error.domain, "NSURLErrorDomain");
  EXPECT_EQ(error.code, -1001);
  EXPECT_EQ(error.description, "NSURLErrorDomain -1001: 60000 ms");
  EXPECT_FALSE(error.localizedDescription.empty());
}

TEST(JsonText, WritesCompactText) {
  const Dictionary dictionary{{"s", "a\"\n\xc3\xa4"},
                              {"n", 42},
                              {"big", std::int64_t{1} << 60},
                              {"d", 0.5},
                              {"t", true},
                              {"null", Value()},
                              {"nan", std::nan("")},
                              {"a", Array{1, "x", Dictionary{{"k", false}}}}};
  EXPECT_EQ(
      jsonText(dictionary),
      "{\"s\":\"a\\\"\\n\xc3\xa4\",\"n\":42,\"big\":1152921504606846976,\"d\":0.5,\"t\":true,\"null\":null,"
      "\"nan\":null,\"a\":[1,\"x\",{\"k\":false}]}");
  EXPECT_EQ(jsonText({}), "{}");
}

TEST(JsonText, ReadsWhatItWrites) {
  const Dictionary dictionary{
      {"s", "\xf0\x9f\x98\x80 \\"}, {"n", -7}, {"d", 1e300}, {"a", Array{Array{}, Dictionary{}}}};
  const auto read = dictionaryFromJsonText(jsonText(dictionary));
  ASSERT_TRUE(read);
  EXPECT_TRUE(*read == dictionary);
}

TEST(JsonText, OfMembersWithTheSameNameTheLastCounts) {
  EXPECT_EQ(dictionaryFromJsonText(R"({"a":1,"b":2,"a":3})")->entries().size(), 2u);
  EXPECT_EQ(*dictionaryFromJsonText(R"({"a":1,"a":3})")->find("a")->integer(), 3);
}

TEST(JsonText, RefusesWhatIsNoObject) {
  for (const char* text :
       {"", " ", "null", "1", "\"x\"", "[]", "{", "}", "{\"a\"}", "{\"a\":}", "{a:1}", "{'a':1}",
        "{\"a\":1,}", "{}x", "{\"a\":\"\xff\"}", "{\"a\":\"\xed\xa0\x80\"}", "{\"a\":1}{"}) {
    EXPECT_FALSE(dictionaryFromJsonText(text)) << text;
  }
}

TEST(JsonText, NestsToADepthAndNoDeeper) {
  const auto nested = [](std::size_t arrays) {
    return "{\"a\":" + std::string(arrays, '[') + std::string(arrays, ']') + "}";
  };
  EXPECT_TRUE(dictionaryFromJsonText(nested(511)));
  EXPECT_FALSE(dictionaryFromJsonText(nested(512)));
  EXPECT_FALSE(dictionaryFromJsonText(nested(1'000'000)));
}

}  // namespace
}  // namespace foundation
