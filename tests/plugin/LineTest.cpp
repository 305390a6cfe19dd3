// What a line of the reference plug-in looks like.

#include <gtest/gtest.h>

#include <chrono>
#include <sstream>

#include "tests/plugin/TracedHost.h"

namespace test {
namespace {

class TraceLine : public testing::Test {
 protected:
  /// What the one line of that text says.
  std::string shown(const std::string& text) {
    host.run({"texts", "2", text});
    const auto texts = host.texts();
    return texts.empty() ? "nothing" : texts.back();
  }

  TracedHost host{PLUGIN_HOST};
};

using Texts = std::vector<std::string>;

TEST_F(TraceLine, HasTimeLevelProcessThreadAndName) {
  using namespace std::chrono;
  const auto before = floor<microseconds>(system_clock::now());
  std::istringstream threads(host.run({"names", "zep.downloader"}));
  const auto after = floor<microseconds>(system_clock::now());
  const auto lines = host.lines();
  ASSERT_EQ(lines.size(), 2U);
  for (const TracedLine& line : lines) {
    EXPECT_GE(line.time, before);
    EXPECT_LE(line.time, after);
    EXPECT_EQ(line.letter, 'I');
    EXPECT_EQ(line.process, lines[0].thread) << "the first line is of the main thread";
    int thread = 0;
    threads >> thread;
    EXPECT_EQ(line.thread, thread);
  }
  EXPECT_EQ(lines[0].name, "host") << "the program's name, where a thread has none";
  EXPECT_EQ(lines[1].name, "zep.downloader");
  EXPECT_EQ(textsOf(lines), (Texts{"main", "named"}));
}

TEST_F(TraceLine, KeepsTheNameOneWord) {
  host.run({"names", "two words", "a\nb\x1b[c\x7f", " ", "", "caf\xc3\xa9"});
  Texts names;
  for (const TracedLine& line : host.lines()) {
    names.push_back(line.name);
  }
  EXPECT_EQ(names, (Texts{"host", "two_words", "a_b_[c_", "_", "_", "caf\xc3\xa9"}));
}

TEST_F(TraceLine, HasTheLocalTimesOffset) {
  using namespace std::chrono;
  const std::map<std::string, std::string> zones = {{"UTC0", "+00:00"},
                                                    {"AAA-5:45", "+05:45"},
                                                    {"BBB3:30", "-03:30"},
                                                    {"CCC-1DDD-2,J1/0,J365/25", "+02:00"}};
  for (const auto& [zone, offset] : zones) {
    const auto before = floor<microseconds>(system_clock::now());
    host.run({"texts", "2", zone}, {{"TZ", zone}});
    const auto after = floor<microseconds>(system_clock::now());
    const auto lines = host.lines();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back().offset, offset) << zone;
    EXPECT_GE(lines.back().time, before) << zone;
    EXPECT_LE(lines.back().time, after) << zone;
  }
}

TEST_F(TraceLine, TakesItsTextLiterally) {
  EXPECT_EQ(shown("%s%n%s%n %d %1000000d %%"), "%s%n%s%n %d %1000000d %%");
}

TEST_F(TraceLine, IsOneLineWhateverTheTextHolds) {
  EXPECT_EQ(shown("a\n2026-11-21T14:31:53.123456+01:00 E 1/1 forged | b"),
            "a\\n2026-11-21T14:31:53.123456+01:00 E 1/1 forged | b");
  EXPECT_EQ(shown("\x1b[31m\r\t\x01\x7f\\n"), "\\x1b[31m\\r\\t\\x01\\x7f\\\\n");
  EXPECT_EQ(shown("caf\xc3\xa9 \xff\x80"), "caf\xc3\xa9 \xff\x80");
  EXPECT_EQ(shown(""), "");
}

TEST_F(TraceLine, EndsOnceWhetherTheTextHasALineEndOrNot) {
  EXPECT_EQ(shown("text"), "text");
  EXPECT_EQ(shown("text\n"), "text");
  EXPECT_EQ(shown("text\n\n"), "text\\n");
  EXPECT_EQ(shown("\n"), "");
  EXPECT_EQ(host.lines().size(), 4U);
}

TEST_F(TraceLine, IsAnsweredByTheBytesOfTheText) {
  EXPECT_EQ(host.run({"texts", "2", "", "text", "text\n", "\x1b\x1b"}), "0\n4\n5\n2\n");
}

TEST_F(TraceLine, IsWrittenWholeUpTo64Kilobytes) {
  EXPECT_EQ(host.run({"longText", "2046", "1"}), "2046\n");
  EXPECT_EQ(host.run({"longText", "2047", "1"}), "2047\n");
  EXPECT_EQ(host.run({"longText", "65536", "120"}), "65536\n");
  EXPECT_EQ(host.run({"longText", "65536", "27"}), "65536\n");
  const auto texts = host.texts();
  ASSERT_EQ(texts.size(), 4U);
  EXPECT_EQ(texts[0].size(), 4U * 2046);
  EXPECT_EQ(texts[1].size(), 4U * 2047);
  EXPECT_EQ(texts[2], std::string(65536, 'x'));
  std::string escaped;
  for (int i = 0; i < 65536; ++i) {
    escaped += "\\x1b";
  }
  EXPECT_EQ(texts[3], escaped);
}

TEST_F(TraceLine, ThatIsLongerIsCutWithAMark) {
  EXPECT_EQ(host.run({"longText", "65537", "120"}), "65537\n");
  EXPECT_EQ(host.run({"longText", "1000000", "120"}), "1000000\n");
  EXPECT_EQ(host.texts(), (Texts{std::string(65536, 'x') + " ... [cut, 65537 bytes]",
                                 std::string(65536, 'x') + " ... [cut, 1000000 bytes]"}));
}

TEST_F(TraceLine, HasTheLettersOfItsLevel) {
  EXPECT_EQ(host.run({"levels"}), "threshold 1\n");
  std::string letters;
  for (const TracedLine& line : host.lines()) {
    letters += line.letter;
  }
  EXPECT_EQ(letters, "DDIWED");
  EXPECT_EQ(host.texts(), (Texts{"--> frame", "debug", "info", "warning", "error", "<-- frame"}));
}

}  // namespace
}  // namespace test
