// JSON values and documents.

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <utility>

#include "support/JsonDocumentT.h"
#include "support/JsonValueT.h"

using Type = JsonValueT::ValueType;

namespace {

TEST(JsonValue, SerialisesCompactly) {
  JsonValueT value(Type::Object);
  value.addMember("errorID", 1).addMember("errorReason", 0);
  EXPECT_EQ(value.valueToString(), "{\"errorID\":1,\"errorReason\":0}");
  EXPECT_EQ(JsonValueT(Type::Array).valueToString(), "[]");
  EXPECT_EQ(JsonValueT(Type::Object).valueToString(), "{}");
  EXPECT_EQ(JsonValueT().valueToString(), "null");
}

TEST(JsonValue, HoldsEveryKind) {
  JsonValueT list(Type::Array);
  list.append(JsonValueT()).append(true).append(false).append(-1).append(4'000'000'000U);
  list.append(std::numeric_limits<long long>::min()).append(std::numeric_limits<unsigned long long>::max());
  list.append(0.5).append("c").append(std::string("s\0z", 3)).append(JsonValueT(Type::Number));
  EXPECT_EQ(
      list.valueToString(),
      "[null,true,false,-1,4000000000,-9223372036854775808,18446744073709551615,0.5,\"c\",\"s\\u0000z\",0]");
  EXPECT_EQ(list.size(), 11u);
  EXPECT_EQ(list[1].type(), Type::True);
  EXPECT_EQ(list[2].type(), Type::False);
  EXPECT_EQ(list[3].type(), Type::Number);
  EXPECT_EQ(list[8].asString(), "c");
  EXPECT_EQ(list[3].asString(), "");
}

TEST(JsonValue, NumbersWithoutAFormAreNull) {
  EXPECT_EQ(JsonValueT(std::nan("")).valueToString(), "null");
  EXPECT_EQ(JsonValueT(std::numeric_limits<double>::infinity()).valueToString(), "null");
}

TEST(JsonValue, KeepsMembersInOrderAndDuplicates) {
  JsonValueT value(Type::Object);
  value.addMember("b", 1).addMember("a", 2).addMember("b", 3);
  std::string names;
  for (const JsonValueT::Member& member : value) {
    names += member.name.asString();
  }
  EXPECT_EQ(names, "bab");
  EXPECT_EQ(value.valueToString(), "{\"b\":1,\"a\":2,\"b\":3}");
}

TEST(JsonValue, OtherKindsTakeNoMembersOrElements) {
  JsonValueT number(1);
  number.addMember("a", 1).append(2);
  EXPECT_EQ(number.valueToString(), "1");
  EXPECT_EQ(number.begin(), number.end());
  EXPECT_EQ(JsonValueT(Type::Array).addMember("a", 1).valueToString(), "[]");
  EXPECT_EQ(JsonValueT(Type::Object).append(1).valueToString(), "{}");
}

TEST(JsonValue, CopiesAreDeep) {
  JsonValueT list(Type::Array);
  list.reserve(10);
  list.append("a");
  JsonValueT copy = list.clone();
  copy.append("b");
  EXPECT_EQ(list.valueToString(), "[\"a\"]");
  list = copy;
  EXPECT_EQ(list.valueToString(), "[\"a\",\"b\"]");
  const JsonValueT moved = std::move(list);
  EXPECT_EQ(moved.size(), 2u);
  copy.setNull();
  EXPECT_TRUE(copy.isNull());
}

TEST(JsonValue, EscapesTexts) {
  EXPECT_EQ(JsonValueT("\"\\/\b\f\n\r\t\x01\xc3\xa4").valueToString(),
            "\"\\\"\\\\/\\b\\f\\n\\r\\t\\u0001\xc3\xa4\"");
  const char* nothing = nullptr;
  EXPECT_EQ(JsonValueT(nothing).valueToString(), "\"\"");
}

TEST(JsonDocument, ReadsWhatValuesWrite) {
  const std::string text =
      R"({"null":null,"t":true,"f":false,"i":-5,"big":18446744073709551615,"d":1.5,"s":"x\u0000ä","a":[1,[2],{}],"o":{"k":"v"}})";
  JsonDocumentT document(1024);
  EXPECT_FALSE(document.parse(text).hasParseError());
  EXPECT_TRUE(document.isObject());
  EXPECT_EQ(document.valueToString(), text);
  EXPECT_EQ(document.parseErrorCode(), 0);
  EXPECT_EQ(document.parseErrorOffset(), 0u);
}

TEST(JsonDocument, AnEmptyTextFailsAndLeavesNull) {
  JsonDocumentT document;
  document.parse("{}");
  EXPECT_TRUE(document.isObject());
  EXPECT_TRUE(document.parse("").hasParseError());
  EXPECT_TRUE(document.isNull());
  EXPECT_FALSE(document.isObject());
  EXPECT_NE(document.parseErrorCode(), 0);
}

TEST(JsonDocument, RefusesWhatIsNoJson) {
  for (const char* text :
       {" ",      "{",  "[",          "{\"a\"}", "{\"a\":1,}",  "[1,]", "{a:1}", "nul", "01", "1 2",
        "\"\n\"", "+1", "{\"a\":1}}", "\"\\x\"", "\"\\ud800\"", "[1}",  "{]",    "'a'", "//", "NaN"}) {
    JsonDocumentT document;
    EXPECT_TRUE(document.parse(text).hasParseError()) << text;
    EXPECT_TRUE(document.isNull()) << text;
  }
  JsonDocumentT document;
  EXPECT_GT(document.parse("[1, 2, x]").parseErrorOffset(), 0u);
}

TEST(JsonDocument, NestsToADepthAndNoDeeper) {
  const auto nested = [](size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); };
  JsonDocumentT document;
  EXPECT_FALSE(document.parse(nested(JsonDocumentT::kMaxDepth)).hasParseError());
  EXPECT_EQ(document.valueToString(), nested(JsonDocumentT::kMaxDepth));
  EXPECT_TRUE(document.parse(nested(JsonDocumentT::kMaxDepth + 1)).hasParseError());
  EXPECT_TRUE(document.parse(nested(2'000'000)).hasParseError());
  EXPECT_TRUE(document.parse(std::string(2'000'000, '[')).hasParseError());
}

TEST(JsonDocument, KeepsDuplicateNamesInOrder) {
  JsonDocumentT document;
  document.parse(R"({"a":"1","b":"2","a":"3"})");
  EXPECT_EQ(document.valueToString(), R"({"a":"1","b":"2","a":"3"})");
}

TEST(JsonDocument, HasNoValueLeftOfAnEarlierParse) {
  JsonDocumentT document(0);
  document.parse("[1,2]");
  document.parse("{\"a\":");
  EXPECT_EQ(document.valueToString(), "null");
  document.parse("7");
  EXPECT_EQ(document.valueToString(), "7");
  EXPECT_FALSE(document.hasParseError());
}

TEST(JsonDocument, DoublesComeBackAsTheyWere) {
  std::mt19937_64 bits(7);
  for (int i = 0; i < 20'000; ++i) {
    const auto number = std::bit_cast<double>(bits());
    if (!std::isfinite(number)) {
      continue;
    }
    const std::string text = JsonValueT(number).valueToString();
    ASSERT_EQ(JsonDocumentT().parse(text).valueToString(), text);
  }
}

TEST(JsonDocument, KeepsOrRefusesNumbersTooLarge) {
  EXPECT_EQ(JsonDocumentT().parse("1.7976931348623157e308").valueToString(), "1.7976931348623157e308");
  EXPECT_TRUE(JsonDocumentT().parse("1e309").hasParseError());
  // What rounds to infinity parses, as it does in the default grammar, and has no form to be written in.
  EXPECT_FALSE(JsonDocumentT().parse("1.8e308").hasParseError());
  EXPECT_EQ(JsonDocumentT().parse("[1.8e308]").valueToString(), "[null]");
}

TEST(JsonDocument, ReadsAZeroWithAnExponentAsZero) {
  for (const char* text : {"0e40", "0.0e200", "0e308", "0E-99", "0.0"}) {
    EXPECT_EQ(JsonDocumentT().parse(text).valueToString(), "0.0") << text;
  }
  EXPECT_EQ(JsonDocumentT().parse("-0e40").valueToString(), "-0.0");
}

TEST(JsonDocument, ReadsIntegersUpToTheirEnds) {
  for (const char* text :
       {"0", "-1", "9223372036854775807", "-9223372036854775808", "18446744073709551615"}) {
    EXPECT_EQ(JsonDocumentT().parse(text).valueToString(), text);
  }
  EXPECT_EQ(JsonDocumentT().parse("18446744073709551616").valueToString(), "18446744073709553000.0");
  EXPECT_EQ(JsonDocumentT().parse("-9223372036854775809").valueToString(), "-9223372036854776000.0");
}

TEST(JsonValue, DeepValuesDoNotUseUpTheStack) {
  constexpr size_t kPairs = 100'000;
  JsonValueT value(Type::Object);
  for (size_t i = 0; i < kPairs; ++i) {
    JsonValueT list(Type::Array);
    list.append(std::move(value));
    value = JsonValueT(Type::Object);
    value.addMember("k", std::move(list));
  }
  const JsonValueT copy = value.clone();
  const std::string text = copy.valueToString();
  EXPECT_EQ(text.size(), kPairs * std::string("{\"k\":[]}").size() + 2);
  EXPECT_EQ(text.substr(0, 11), "{\"k\":[{\"k\":");
  EXPECT_EQ(value.valueToString(), text);
}

TEST(JsonValue, MayBeReplacedByAPartOfItself) {
  JsonValueT value(Type::Object);
  value.addMember("a", JsonValueT(Type::Array).append("a text too long for the value itself"));
  JsonValueT part = value;
  part = part.begin()->value;
  EXPECT_EQ(part.valueToString(), "[\"a text too long for the value itself\"]");
  value = std::move(value.begin()->value);
  EXPECT_EQ(value.valueToString(), "[\"a text too long for the value itself\"]");
}

}  // namespace
