// The texts that go between host and library.

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "httpPool/cpp/Json.hpp"

namespace test {
namespace {

using httpPool::JsonObject;
using httpPool::JsonWriter;
using Texts = std::vector<std::string>;

/// The text member "t" of {"t":VALUE}.
std::optional<std::string> readText(const std::string& value) {
  const auto object = JsonObject::parse("{\"t\":" + value + "}");
  return object ? object->text("t") : std::nullopt;
}

TEST(CppJsonWriter, EscapesQuotesBackslashesAndControlCharacters) {
  EXPECT_EQ(JsonWriter().str(), "{}");
  EXPECT_EQ(JsonWriter().text("a\"b", "c\\d/e").flag("f", true).flag("g", false).str(),
            R"({"a\"b":"c\\d/e","f":true,"g":false})");
  EXPECT_EQ(JsonWriter().text("t", std::string("\0\x01\n\x1F\x7F", 5)).str(),
            "{\"t\":\"\\u0000\\u0001\\u000a\\u001f\x7F\"}");
}

TEST(CppJsonWriter, TakesOtherBytesAsTheyAre) {
  EXPECT_EQ(JsonWriter().text("t", "\xC3\xA4\xF0\x9F\x8C\x8D\xFF").str(),
            "{\"t\":\"\xC3\xA4\xF0\x9F\x8C\x8D\xFF\"}");
}

TEST(CppJsonObject, ReadsWhatTheWriterWrites) {
  std::string every;
  for (int byte = 0; byte < 0x80; ++byte) {
    every += static_cast<char>(byte);
  }
  every += "\xC3\xA4\xF0\x9F\x8C\x8D";
  const auto object = JsonObject::parse(JsonWriter().text(every, every).str());
  ASSERT_TRUE(object);
  EXPECT_EQ(object->text(every), every);
}

TEST(CppJsonObject, ReadsEveryKindOfMember) {
  const auto object = JsonObject::parse(
      " {\t\"text\" : \"a\" ,\r\n\"whole\":-17,\"real\":1.5e+3,\"yes\":true,\"no\":false,\"none\":null,"
      "\"texts\":[\"a\" , \"b\"],\"empty\":[ ],\"mixed\":[1,\"a\"],\"nested\":{\"a\":[{}],\"b\":{ }}, "
      "\"\":\"\"} ");
  ASSERT_TRUE(object);
  EXPECT_EQ(object->text("text"), "a");
  EXPECT_EQ(object->number("whole"), -17);
  EXPECT_EQ(object->number("real"), std::nullopt);
  EXPECT_EQ(object->flag("yes"), true);
  EXPECT_EQ(object->flag("no"), false);
  EXPECT_EQ(object->texts("texts"), (Texts{"a", "b"}));
  EXPECT_EQ(object->texts("empty"), Texts{});
  EXPECT_EQ(object->text(""), "");
  for (const char* name :
       {"text", "whole", "real", "yes", "no", "none", "texts", "empty", "mixed", "nested"}) {
    EXPECT_TRUE(object->has(name)) << name;
  }
  EXPECT_FALSE(object->has("a"));
}

TEST(CppJsonObject, AMemberOfAnotherKindIsNone) {
  const auto object =
      JsonObject::parse(R"({"text":"1","number":1,"flag":true,"texts":["1"],"mixed":["1",1]})");
  ASSERT_TRUE(object);
  for (const char* name : {"number", "flag", "texts", "missing"}) {
    EXPECT_EQ(object->text(name), std::nullopt) << name;
  }
  for (const char* name : {"text", "flag", "texts", "missing"}) {
    EXPECT_EQ(object->number(name), std::nullopt) << name;
  }
  for (const char* name : {"text", "number", "texts", "missing"}) {
    EXPECT_EQ(object->flag(name), std::nullopt) << name;
  }
  for (const char* name : {"text", "number", "flag", "mixed", "missing"}) {
    EXPECT_EQ(object->texts(name), std::nullopt) << name;
  }
}

TEST(CppJsonObject, OfTwoMembersTheLaterCounts) {
  EXPECT_EQ(JsonObject::parse(R"({"a":"1","a":"2"})")->text("a"), "2");
}

TEST(CppJsonObject, WholeNumbersAreOf64Bits) {
  const auto number = [](const std::string& text) {
    return JsonObject::parse("{\"n\":" + text + "}")->number("n");
  };
  EXPECT_EQ(number("9223372036854775807"), INT64_MAX);
  EXPECT_EQ(number("-9223372036854775808"), INT64_MIN);
  EXPECT_EQ(number("9223372036854775808"), std::nullopt);
  EXPECT_EQ(number("0"), 0);
  EXPECT_EQ(number("-0"), 0);
}

TEST(CppJsonObject, ReadsEveryEscape) {
  EXPECT_EQ(readText(R"("\"\\\/\b\f\n\r\t")"), "\"\\/\b\f\n\r\t");
  EXPECT_EQ(readText(R"("\u0041\u00e4\u20AC")"), "A\xC3\xA4\xE2\x82\xAC");
  EXPECT_EQ(readText(R"("a\u0000b")"), std::string("a\0b", 3));
  EXPECT_EQ(readText("\"\xC3\xA4\""), "\xC3\xA4");
}

TEST(CppJsonObject, ReadsSurrogatePairs) {
  EXPECT_EQ(readText(R"("\uD83C\uDF0D")"), "\xF0\x9F\x8C\x8D");
  EXPECT_EQ(readText(R"("\ud800\udc00\uDBFF\uDFFF")"), "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF");
}

TEST(CppJsonObject, HalfAPairIsReplaced) {
  const std::string replaced = "\xEF\xBF\xBD";
  EXPECT_EQ(readText(R"("\uD83C")"), replaced);
  EXPECT_EQ(readText(R"("\uDF0Dx")"), replaced + "x");
  EXPECT_EQ(readText(R"("\uD83Cx")"), replaced + "x");
  EXPECT_EQ(readText(R"("\uD83C\n")"), replaced + "\n");
  EXPECT_EQ(readText(R"("\uD83C\u0041")"), replaced + "A");
  EXPECT_EQ(readText(R"("\uD83C\uD83C\uDF0D")"), replaced + "\xF0\x9F\x8C\x8D");
}

class CppMalformedJson : public testing::TestWithParam<std::string> {};

TEST_P(CppMalformedJson, IsNoObject) {
  EXPECT_FALSE(JsonObject::parse(GetParam()).has_value());
}

INSTANTIATE_TEST_SUITE_P(All, CppMalformedJson,
                         testing::Values("", " ", "null", "[]", "\"a\"", "{", "}", "{}{}", "{} x", "{\"a\"}",
                                         "{\"a\":}", "{\"a\":1,}", "{,}", "{a:1}", "{'a':1}",
                                         "{\"a\":1 \"b\":2}", "{\"a\":01}", "{\"a\":+1}", "{\"a\":.5}",
                                         "{\"a\":1.}", "{\"a\":1e}", "{\"a\":-}", "{\"a\":tru}",
                                         "{\"a\":nulll}", "{\"a\":\"b}", "{\"a\":\"\\x\"}",
                                         "{\"a\":\"\\u12G4\"}", "{\"a\":\"\\u12\"}", "{\"a\":\"\\u+123\"}",
                                         "{\"a\":\"\\uD83C\\uXXXX\"}", "{\"a\":\"\\", "{\"a\":\"\n\"}",
                                         "{\"a\":[1,]}", "{\"a\":[1 2]}", "{\"a\":[}", "{\"a\":{\"b\"}}",
                                         std::string("{}\0", 3), std::string("{\"a\":\"\0\"}", 9)));

TEST(CppJsonObject, DeepNestingIsRefusedInTime) {
  const auto nested = [](std::size_t depth) {
    return "{\"a\":" + std::string(depth, '[') + std::string(depth, ']') + "}";
  };
  EXPECT_TRUE(JsonObject::parse(nested(511)).has_value());
  EXPECT_FALSE(JsonObject::parse(nested(512)).has_value());
  EXPECT_FALSE(JsonObject::parse(nested(10'000'000)).has_value());
}

}  // namespace
}  // namespace test
