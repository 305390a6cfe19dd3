#include <gtest/gtest.h>

#include "tools/httppool/TraceRecord.h"

namespace httppool {
namespace {

// 2026-11-21 13:31:53 UTC
constexpr std::int64_t kSecond = 1'795'267'913;

TEST(TraceRecord, HasEveryFieldOfALine) {
  const auto record =
      readTraceRecord("2026-11-21T14:31:53.123456+01:00 I 4711/4713 zep.downloader | the text | more");
  ASSERT_TRUE(record);
  EXPECT_EQ(record->time, kSecond * 1'000'000 + 123'456);
  EXPECT_EQ(record->offsetMinutes, 60);
  EXPECT_EQ(record->level, 'I');
  EXPECT_EQ(record->thread, (TraceThread{4711, 4713}));
  EXPECT_EQ(record->threadName, "zep.downloader");
  EXPECT_EQ(record->text, "the text | more");
  EXPECT_EQ(record->length, 15U);
}

TEST(TraceRecord, OneInstantIsTheSameInEveryZone) {
  for (const char* local : {"2026-11-21T13:31:53.000000+00:00", "2026-11-21T08:01:53.000000-05:30",
                            "2026-11-22T03:31:53.000000+14:00"}) {
    const auto record = readTraceRecord(std::string(local) + " D 1/1 a | ");
    ASSERT_TRUE(record) << local;
    EXPECT_EQ(record->time, kSecond * 1'000'000) << local;
    std::string shown = dayAndTime(record->time, record->offsetMinutes);
    shown.replace(shown.find(' '), 1, "T").erase(shown.rfind(' '), 1);
    EXPECT_EQ(shown, local);
  }
  EXPECT_EQ(timeOfDay(kSecond * 1'000'000 + 7, -330), "08:01:53.000007");
}

TEST(TraceRecord, UndoesTheEscapes) {
  const auto record =
      readTraceRecord(R"(2026-11-21T14:31:53.123456+01:00 W 1/2 a | \n\r\t\x1b\x00\\n\q\x1 \)");
  ASSERT_TRUE(record);
  EXPECT_EQ(record->text, std::string("\n\r\t\x1b\0\\n\\q\\x1 \\", 14));
  EXPECT_EQ(record->length, 14U);
}

class ForeignLine : public testing::TestWithParam<const char*> {};

TEST_P(ForeignLine, IsNoRecord) {
  EXPECT_FALSE(readTraceRecord(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Lines, ForeignLine,
                         testing::Values("", "hello", "2026-11-21T14:31:53.123456+01:00",
                                         "2026-11-21T14:31:53.123456+01:00 I 4711/4713 a",
                                         "2026-11-21T14:31:53.123456+01:00 I 4711/4713 a |text",
                                         "2026-11-21T14:31:53.123456+01:00 X 4711/4713 a | text",
                                         "2026-11-21T14:31:53.123456+01:00 I 4711 a | text",
                                         "2026-11-21T14:31:53.123456+01:00 I 4711/99999999999 a | text",
                                         "2026-11-21T14:31:53.123456+01:00 I -1/2 a | text",
                                         "2026-11-21T14:31:53.123456+01:00 I 1/2 a b | text",
                                         "2026-11-21T14:31:53.123456+01:00 I 1/2  | text",
                                         "2026-11-21T14:31:53.12345+01:00 I 1/2 a | text",
                                         "2026-11-21T14:31:53.123456 I 1/2 a | text",
                                         "2026-02-30T14:31:53.123456+01:00 I 1/2 a | text",
                                         "2026-11-21T24:31:53.123456+01:00 I 1/2 a | text",
                                         "2026-11-21T14:60:53.123456+01:00 I 1/2 a | text",
                                         " 2026-11-21T14:31:53.123456+01:00 I 1/2 a | t"));

}  // namespace
}  // namespace httppool
