// Data, Dictionary and Value, Error, JSON texts, the trace.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <limits>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/base/Data.h"
#include "foundation/base/Dictionary.h"
#include "foundation/base/Error.h"
#include "foundation/base/JsonText.h"
#include "foundation/base/Trace.h"

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

std::string textOf(const Data& data) {
  std::string text;
  data.forEachPiece([&](std::string_view piece) {
    text.append(piece);
    return true;
  });
  return text;
}

std::string patternOf(std::size_t length) {
  std::string pattern(length, '\0');
  for (std::size_t i = 0; i < length; ++i) {
    pattern[i] = static_cast<char>(i * 2654435761U >> 24);
  }
  return pattern;
}

TEST(Data, GrowsLargeInPieces) {
  const std::string pattern = patternOf(std::size_t{50} << 20);
  Data data;
  std::size_t step = 1;
  for (std::size_t at = 0; at < pattern.size(); at += step, step = step * 3 % 1'000'003) {
    ASSERT_TRUE(data.append(pattern.data() + at, std::min(step, pattern.size() - at)));
  }
  EXPECT_EQ(data.length(), pattern.size());
  EXPECT_FALSE(data.isInOnePiece());
  EXPECT_TRUE(textOf(data) == pattern);
  EXPECT_LE(data.capacity() - data.length(), std::size_t{34} << 20);
  const Data copy = data;
  EXPECT_TRUE(copy.view() == pattern) << "a copy is in one piece";
}

TEST(Data, TakesLargeDataOverWithoutACopy) {
  const std::string pattern = patternOf(std::size_t{12} << 20);
  Data chunk;
  for (std::size_t at = 0; at < pattern.size(); at += 65536) {
    ASSERT_TRUE(chunk.append(pattern.data() + at, 65536));
  }
  std::vector<const char*> blocks;
  chunk.forEachPiece([&](std::string_view piece) {
    blocks.push_back(piece.data());
    return true;
  });
  Data body("head");
  ASSERT_TRUE(body.append(std::move(chunk)));
  EXPECT_TRUE(chunk.isEmpty());  // NOLINT(bugprone-use-after-move): documented
  std::vector<const char*> taken;
  body.forEachPiece([&](std::string_view piece) {
    taken.push_back(piece.data());
    return true;
  });
  taken.erase(taken.begin());
  EXPECT_EQ(taken, blocks);
  ASSERT_TRUE(body.append("tail", 4));
  EXPECT_TRUE(textOf(body) == "head" + pattern + "tail");
}

TEST(Data, TakesOverWhatFollowsAReservation) {
  Data body;
  ASSERT_TRUE(body.reserve(1 << 20));
  Data chunk(patternOf(100'000));
  ASSERT_TRUE(body.append(std::move(chunk)));
  EXPECT_TRUE(body.view() == patternOf(100'000));
  Data second(patternOf(200'000));
  ASSERT_TRUE(body.append(std::move(second)));
  EXPECT_TRUE(textOf(body) == patternOf(100'000) + patternOf(200'000));
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // these keep a map of all memory
TEST(Data, AnnouncedBytesCostNoMemory) {
  const auto residentPages = [] {
    std::ifstream file("/proc/self/statm");
    long size = 0;
    long resident = 0;
    file >> size >> resident;
    return resident;
  };
  const long before = residentPages();
  std::vector<Data> announced(50);
  for (Data& data : announced) {
    ASSERT_TRUE(data.reserve(16 << 20));
    ASSERT_TRUE(data.append("x", 1));
  }
  EXPECT_LT((residentPages() - before) * sysconf(_SC_PAGESIZE), 20 << 20);
}
#endif

TEST(Data, ThePiecesStopWhenTheirReaderDoes) {
  Data data(patternOf(100'000));
  ASSERT_TRUE(data.append(Data(patternOf(100'000))));
  int pieces = 0;
  data.forEachPiece([&](std::string_view) { return ++pieces < 1; });
  EXPECT_EQ(pieces, 1);
}

TEST(Data, ReportsThatThereIsNoMemory) {
  Data data("kept");
  EXPECT_FALSE(data.reserve(std::numeric_limits<std::size_t>::max() / 2));
  EXPECT_FALSE(data.reserve(std::numeric_limits<std::size_t>::max()));
  EXPECT_FALSE(data.append("x", std::numeric_limits<std::size_t>::max() - 2));
  EXPECT_FALSE(data.append("x", std::numeric_limits<std::size_t>::max()));
  EXPECT_FALSE(Data().append("x", std::numeric_limits<std::size_t>::max()));
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

TEST(JsonText, MayBeginWithAByteOrderMark) {
  EXPECT_TRUE(dictionaryFromJsonText("\xEF\xBB\xBF{\"a\":1}"));
  for (const char* text : {"\xEF{\"a\":1}", "\xEF\xBB{\"a\":1}", "\xEF\xBB\xBF\xEF\xBB\xBF{\"a\":1}"}) {
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
TEST(Data, ReservesExactlyAndGrowsGeometrically) {
  Data data;
  ASSERT_TRUE(data.reserve(1000));
  EXPECT_EQ(data.capacity(), 1000u);
  ASSERT_TRUE(data.reserve(10));
  EXPECT_EQ(data.capacity(), 1000u);
  int moves = 0;
  std::size_t before = data.capacity();
  for (int i = 0; i < 1'000'000; ++i) {
    ASSERT_TRUE(data.append("x", 1));
    moves += data.capacity() != before ? 1 : 0;
    before = data.capacity();
  }
  EXPECT_LE(moves, 20);
  EXPECT_LE(data.capacity(), 2 * data.length());
}

TEST(Error, HasASentenceOfItsOwnForEveryCode) {
  std::set<std::string> sentences;
  for (const int code : {-1,    -1000, -1001, -1002, -1003, -1004, -1005, -1006, -1007, -1009,
                         -1010, -1011, -1012, -1013, -1016, -1100, -1102, -1103, -1200, -1202}) {
    const Error error = makeURLError(static_cast<URLErrorCode>(code), "");
    EXPECT_EQ(error.code, code);
    EXPECT_EQ(error.description, "NSURLErrorDomain " + std::to_string(code));
    EXPECT_TRUE(sentences.insert(error.localizedDescription).second) << error.localizedDescription;
  }
}

TEST(JsonText, ReadsEscapes) {
  const auto read = dictionaryFromJsonText(R"({"\u0061\n":"\ud83d\ude00\u0000\/\"\\\b\f\r\t"})");
  ASSERT_TRUE(read);
  EXPECT_EQ(read->text("a\n"), std::string_view("\xf0\x9f\x98\x80\0/\"\\\b\f\r\t", 12));
  EXPECT_EQ(*dictionaryFromJsonText(jsonText(*read)), *read);
  for (const char* text : {R"({"a":"\ud83d"})", R"({"a":"\ude00"})", R"({"\ude00":1})", R"({"a":"\ud83dx"})",
                           R"({"a":"\x41"})", R"({"a":"\u12"})", "{\"a\":\"\n\"}", "{\"a\":\"x}"}) {
    EXPECT_FALSE(dictionaryFromJsonText(text)) << text;
  }
}

TEST(JsonText, ReadsNumbersAsTheyAre) {
  const auto value = [](const std::string& number) {
    const auto read = dictionaryFromJsonText("{\"n\":" + number + "}");
    return read ? *read->find("n") : Value("refused");
  };
  EXPECT_EQ(value("0"), Value(0));
  EXPECT_EQ(value("-1"), Value(-1));
  EXPECT_EQ(value("4294967296"), Value(std::int64_t{1} << 32));
  EXPECT_EQ(value("9223372036854775807"), Value(std::numeric_limits<std::int64_t>::max()));
  EXPECT_EQ(value("-9223372036854775808"), Value(std::numeric_limits<std::int64_t>::min()));
  EXPECT_EQ(value("18446744073709551615"), Value(18446744073709551615.0));
  EXPECT_EQ(value("1.0"), Value(1.0));
  EXPECT_EQ(value("1e3"), Value(1000.0));
  for (const char* number :
       {"01", "+1", "1.", ".5", "1e", "0x1", "NaN", "Infinity", "-", "1e400", "1.8e308"}) {
    EXPECT_EQ(value(number), Value("refused")) << number;
  }
}

TEST(JsonText, ReadsAZeroWithAnExponentAsZero) {
  for (const char* number : {"0e40", "-0e40", "0.0e200", "0e308", "0E-99"}) {
    const auto read = dictionaryFromJsonText(std::string("{\"n\":") + number + "}");
    ASSERT_TRUE(read) << number;
    EXPECT_EQ(*read->find("n"), Value(0.0)) << number;
  }
}

TEST(JsonText, KeepsRealsToTheLastBit) {
  for (const double number :
       {0.1, 1.0 / 3, 123456789.123456789, 1.7976931348623157e308, 2.2250738585072014e-308, 5e-324, 8.533e+68,
        9007199254740993.0, -6.02214076e23}) {
    const auto read = dictionaryFromJsonText(jsonText(Dictionary{{"n", number}}));
    ASSERT_TRUE(read) << number;
    EXPECT_EQ(*read->find("n"), Value(number)) << number;
  }
}

TEST(JsonText, NeverWritesWhatIsNoNumber) {
  const double infinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(jsonText({{"a", infinity}, {"b", -infinity}, {"c", std::nan("")}}),
            "{\"a\":null,\"b\":null,\"c\":null}");
}

TEST(JsonText, IsAlwaysUtf8) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"\xc3\xa4 \xe2\x82\xac \xed\x9f\xbf \xef\xbf\xbf \xf0\x9f\x98\x80 \xf4\x8f\xbf\xbf",
       "\xc3\xa4 \xe2\x82\xac \xed\x9f\xbf \xef\xbf\xbf \xf0\x9f\x98\x80 \xf4\x8f\xbf\xbf"},
      {"\xe4", "\xef\xbf\xbd"},                                                  // Latin-1
      {"a\xc3", "a\xef\xbf\xbd"},                                                // cut off
      {"\xc3z", "\xef\xbf\xbdz"},                                                // the next one stays
      {"\xc0\x80", "\xef\xbf\xbd\xef\xbf\xbd"},                                  // overlong
      {"\xed\xa0\x80", "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd"},                  // a surrogate
      {"\xf4\x90\x80\x80", "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd"},  // beyond the last one
      {"\xff", "\xef\xbf\xbd"},
  };
  for (const auto& [given, written] : cases) {
    const auto read = dictionaryFromJsonText(jsonText(Dictionary{{given, given}}));
    ASSERT_TRUE(read) << testing::PrintToString(given);
    EXPECT_EQ(read->text(written), written) << testing::PrintToString(given);
  }
}

TEST(JsonText, EndsWhereTheTextEnds) {
  EXPECT_TRUE(dictionaryFromJsonText(" {} \n"));
  EXPECT_TRUE(dictionaryFromJsonText("\xef\xbb\xbf{}"));
  EXPECT_FALSE(dictionaryFromJsonText(std::string_view("{}\0", 3)));
  EXPECT_FALSE(dictionaryFromJsonText(std::string_view("{}\0{}", 5)));
  EXPECT_FALSE(dictionaryFromJsonText(std::string_view("{\"a\":1}", 6)));
}

std::string traced;

TEST(Trace, GoesToTheSinkThatIsSet) {
  trace(TraceLevel::Error, "nobody hears it");
  setTraceSink([](TraceLevel level, std::string_view text) {
    traced += std::to_string(static_cast<unsigned>(level)) + std::string(text) + ";";
  });
  trace(TraceLevel::Debug, "a");
  trace(TraceLevel::Warning, "b");
  setTraceSink(nullptr);
  trace(TraceLevel::Info, "c");
  EXPECT_EQ(traced, "1a;4b;");
}

}  // namespace
}  // namespace foundation
