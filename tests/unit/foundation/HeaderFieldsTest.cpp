#include <gtest/gtest.h>

#include "foundation/url/HeaderFields.h"

using foundation::HeaderFields;

namespace {

TEST(HeaderFields, NamesCompareWithoutCase) {
  HeaderFields fields;
  fields.set("Content-Type", "a");
  fields.set("X", "1");
  fields.set("content-TYPE", "b");
  ASSERT_EQ(fields.fields().size(), 2u);
  EXPECT_EQ(*fields.value("CONTENT-TYPE"), "b");
  EXPECT_EQ(fields.fields().front(), HeaderFields::Field("content-TYPE", "b"));
}

TEST(HeaderFields, FindWantsTheExactSpelling) {
  HeaderFields fields;
  fields.set("Location", "x");
  EXPECT_NE(fields.find("Location"), nullptr);
  EXPECT_EQ(fields.find("location"), nullptr);
}

TEST(HeaderFields, FurtherValuesAreJoined) {
  HeaderFields fields;
  fields.append("Via", "a");
  fields.append("via", "b");
  EXPECT_EQ(*fields.value("Via"), "a, b");
  fields.remove("VIA");
  EXPECT_TRUE(fields.isEmpty());
}

TEST(HeaderFields, KnowsTokensAndSafeValues) {
  for (const char* token : {"A", "x-y_z", "!#$%&'*+-.^_`|~09"}) {
    EXPECT_TRUE(HeaderFields::isToken(token)) << token;
  }
  for (const char* other : {"", "a b", "a:b", "a\r\nb", "a(b)", "\xc3\xa4", "a;b", "a,b", "a\"b", "a/b"}) {
    EXPECT_FALSE(HeaderFields::isToken(other)) << other;
  }
  EXPECT_TRUE(HeaderFields::isSafeValue("anything else, \t and \xc3\xa4"));
  EXPECT_FALSE(HeaderFields::isSafeValue("a\rb"));
  EXPECT_FALSE(HeaderFields::isSafeValue("a\nb"));
  EXPECT_FALSE(HeaderFields::isSafeValue(std::string_view("a\0b", 3)));
}

}  // namespace
