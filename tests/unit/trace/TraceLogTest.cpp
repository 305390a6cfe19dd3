#include <gtest/gtest.h>

#include <string>

#include "WrittenLog.h"

namespace httppool {
namespace {

std::string times(std::size_t count, const std::string& text) {
  std::string result;
  for (std::size_t i = 0; i < count; ++i) {
    result += text;
  }
  return result;
}

TEST(TraceLogTest, JoinsThePiecesOfEachThreadsLine) {
  const std::string first = "GetSuccessResult, " + std::string(2028, 'a');
  ASSERT_EQ(first.size(), TraceLog::kPiece);
  const std::string escaped = times(TraceLog::kPiece, "\\n");
  const ReadLog log = readLog(WrittenLog()
                                  .line(1, downloader(7), first)
                                  .line(2, downloader(8), "a line between")
                                  .line(3, downloader(7), escaped)
                                  .line(4, downloader(7), "the end")
                                  .line(5, downloader(7), "another line"));
  ASSERT_EQ(log.records.size(), 3U);
  EXPECT_EQ(log.records[0].text, "a line between");
  EXPECT_EQ(log.records[1].text, first + std::string(TraceLog::kPiece, '\n') + "the end");
  EXPECT_EQ(log.records[1].length, 2 * TraceLog::kPiece + 7);
  EXPECT_EQ(log.records[1].time % 1'000'000, 1000) << "the time of its beginning counts";
  EXPECT_EQ(log.records[2].text, "another line");
  EXPECT_EQ(log.recordCount, 5U);
}

/// The records of the plug-in for a line of the library: pieces of 2046 characters of the text and its line end, each
/// without a line end at its own end.
WrittenLog written(const std::string& text) {
  const std::string line = text + "\n";
  WrittenLog log;
  log.line(1, host(), "before");
  // The terminator counts, too, unless all of it fits into one piece.
  const std::size_t pieces = line.size() <= TraceLog::kPiece ? 1 : line.size() / TraceLog::kPiece + 1;
  for (std::size_t i = 0; i < pieces; ++i) {
    std::string piece = line.substr(i * TraceLog::kPiece, TraceLog::kPiece);
    if (piece.ends_with('\n')) {
      piece.pop_back();
    }
    for (std::size_t at = 0; (at = piece.find('\n', at)) != std::string::npos;) {
      piece.replace(at, 1, "\\n");
    }
    log.line(2, host(), piece);
  }
  return log.line(3, host(), "--> ZEP_HttpPool_GetSnapshot");
}

TEST(TraceLogTest, LinesOfEveryLengthComeBackWhole) {
  for (const char character : {'a', '\n'}) {
    for (const std::size_t pieces : {1U, 2U, 3U}) {
      for (std::size_t length = pieces * TraceLog::kPiece - 3; length < pieces * TraceLog::kPiece + 4;
           ++length) {
        if (character == '\n' && length == pieces * TraceLog::kPiece) {
          continue;  // has the same records as the text that is shorter by a line end
        }
        const std::string text = "GetSuccessResult, " + std::string(length - 18, character);
        const ReadLog log = readLog(written(text));
        ASSERT_EQ(log.records.size(), 3U) << length << (character == 'a' ? "" : " line ends");
        EXPECT_EQ(log.records[1].text, text) << length;
        EXPECT_EQ(log.records[1].length, length);
        EXPECT_EQ(log.records[2].text, "--> ZEP_HttpPool_GetSnapshot");
      }
    }
  }
}

TEST(TraceLogTest, AJoinedLineThatTheLogEndsInIsPassedOn) {
  const ReadLog log = readLog(WrittenLog().line(1, host(), std::string(TraceLog::kPiece, 'a')));
  ASSERT_EQ(log.records.size(), 1U);
  EXPECT_EQ(log.records[0].length, TraceLog::kPiece);
}

TEST(TraceLogTest, AJoinedLineKeepsItsBeginningAndItsLength) {
  WrittenLog written;
  for (int i = 0; i < 1000; ++i) {
    written.line(i, host(), std::string(TraceLog::kPiece, static_cast<char>('a' + i % 26)));
  }
  const ReadLog log = readLog(written.line(1001, host(), "end"));
  ASSERT_EQ(log.records.size(), 1U);
  EXPECT_EQ(log.records[0].length, 1000 * TraceLog::kPiece + 3);
  EXPECT_EQ(log.records[0].text.size(), TraceLog::kLongestText);
  EXPECT_EQ(log.records[0].text.substr(0, TraceLog::kPiece), std::string(TraceLog::kPiece, 'a'));
}

TEST(TraceLogTest, ForeignLinesAreCountedAndPassedOver) {
  const ReadLog log = readLog(WrittenLog()
                                  .raw("a stranger\n\n")
                                  .line(1, host(), "one")
                                  .raw(std::string(3 * TraceLog::kLongestLine, 'x') + "\n")
                                  .raw(std::string("\0\xff\n", 3))
                                  .line(1, host(), std::string(TraceLog::kLongestLine, 'x'))
                                  .line(2, host(), "two"));
  ASSERT_EQ(log.records.size(), 2U);
  EXPECT_EQ(log.records[1].text, "two");
  EXPECT_EQ(log.foreignLines, 4U);
  EXPECT_EQ(log.tornLines, 0U);
}

TEST(TraceLogTest, ATornLastLineIsNotUsed) {
  std::string torn = WrittenLog().line(1, host(), "one").line(2, host(), "two, and more").text();
  torn.resize(torn.size() - 6);
  const ReadLog log = readLog({torn, WrittenLog().line(3, host(), "three").text()});
  ASSERT_EQ(log.records.size(), 2U);
  EXPECT_EQ(log.records[0].text, "one");
  EXPECT_EQ(log.records[1].text, "three");
  EXPECT_EQ(log.tornLines, 1U);
  EXPECT_EQ(log.foreignLines, 0U);
}

TEST(TraceLogTest, AClockThatIsSetBackIsNoticed) {
  // Threads among themselves may be written in another order than they looked at the clock.
  const ReadLog log = readLog(WrittenLog()
                                  .line(5000, host(), "one")
                                  .line(4000, downloader(7), "of another thread")
                                  .line(2500, host(), "two")
                                  .line(2600, host(), "three")
                                  .line(2599, host(), "four"));
  EXPECT_EQ(log.records.size(), 5U);
  EXPECT_EQ(log.stepsBack, 2U);
  EXPECT_EQ(log.longestStepBack, 2'500'000);
}

TEST(TraceLogTest, AnyNumberOfThreadsIsRead) {
  WrittenLog written;
  for (std::uint32_t i = 0; i < 2 * TraceLog::kMostThreads; ++i) {
    written.line(1, downloader(i), std::string(i % 1000 == 0 ? TraceLog::kPiece : 3, 'a'));
  }
  EXPECT_EQ(readLog(written).records.size(), 2 * TraceLog::kMostThreads);
}

}  // namespace
}  // namespace httppool
