// Which tasks have a row, and what is in it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "tools/httppool/TaskTable.h"

namespace tooltest {
namespace {

using httppool::LiveRow;
using httppool::TaskOutcome;
using httppool::TaskTable;
using testing::ElementsAre;

const TaskTable::TimePoint kStart{};
const TaskTable::TimePoint kNow = kStart + std::chrono::milliseconds(1200);

TaskOutcome outcome(std::size_t index, ZEP_HTTP_TASK_STATUS status, const std::string& result) {
  TaskOutcome ended;
  ended.index = index;
  ended.status = status;
  ended.elapsed = std::chrono::milliseconds(300);
  ended.result = result;
  return ended;
}

std::vector<std::string> texts(const std::vector<LiveRow>& rows) {
  std::vector<std::string> result;
  for (const LiveRow& row : rows) {
    result.push_back(row.text);
  }
  return result;
}

// Six tasks: the first two are done, the third failed, two run, the last waits.
TaskTable sixTasks(TaskTable::Colours colours = TaskTable::Colours::No) {
  TaskTable table({"a", "b", "c", "d", "e", "f"}, colours);
  table.end(outcome(0, ZEP_HTTP_TASK_DONE, std::string(1234, 'x')));
  table.end(outcome(1, ZEP_HTTP_TASK_DONE, ""));
  table.end(outcome(2, ZEP_HTTP_TASK_FAILED, "{}"));
  table.start(3, kStart);
  table.start(4, kStart);
  return table;
}

TEST(TaskTable, HasARowForEachTask) {
  EXPECT_THAT(
      texts(sixTasks().rows(6, 79, kNow)),
      ElementsAre("successfully done     0.3 s   1.2 kB  a", "successfully done     0.3 s      0 B  b",
                  "task failed           0.3 s           c", "requesting            1.2 s           d",
                  "requesting            1.2 s           e", "waiting                               f"));
}

TEST(TaskTable, SumsUpWhatHasNoRow) {
  EXPECT_THAT(texts(sixTasks().rows(5, 79, kNow)).back(), "… 2 more: 2 done");
  EXPECT_THAT(
      texts(sixTasks().rows(4, 79, kNow)),
      ElementsAre("task failed           0.3 s           c", "requesting            1.2 s           d",
                  "requesting            1.2 s           e", "… 3 more: 2 done, 1 waiting"));
  EXPECT_THAT(texts(sixTasks().rows(2, 79, kNow)),
              ElementsAre("requesting            1.2 s           d",
                          "… 5 more: 2 done, 1 not done, 1 running, 1 waiting"));
  EXPECT_THAT(texts(sixTasks().rows(1, 79, kNow)),
              ElementsAre("… 6 more: 2 done, 1 not done, 2 running, 1 waiting"));
  EXPECT_TRUE(sixTasks().rows(0, 79, kNow).empty());
}

TEST(TaskTable, CutsItsRowsToTheColumns) {
  EXPECT_THAT(texts(sixTasks().rows(1, 8, kNow)), ElementsAre("… 6 mor…"));
  EXPECT_EQ(texts(sixTasks().rows(6, 12, kNow)).front(), "successfull…");
}

TEST(TaskTable, ColoursWhatHasEnded) {
  const std::vector<LiveRow> rows = sixTasks(TaskTable::Colours::Yes).rows(6, 79, kNow);
  EXPECT_EQ(rows[0].colour, LiveRow::Colour::Green);
  EXPECT_EQ(rows[2].colour, LiveRow::Colour::Red);
  EXPECT_EQ(rows[2].colouredBytes, std::string("task failed").size());
  EXPECT_EQ(rows[3].colour, LiveRow::Colour::None);
  for (const LiveRow& row : sixTasks(TaskTable::Colours::No).rows(6, 79, kNow)) {
    EXPECT_EQ(row.colour, LiveRow::Colour::None);
  }
}

TEST(TaskTable, ShowsShortSizes) {
  EXPECT_EQ(httppool::shortSize(0), "0 B");
  EXPECT_EQ(httppool::shortSize(999), "999 B");
  EXPECT_EQ(httppool::shortSize(1000), "1.0 kB");
  EXPECT_EQ(httppool::shortSize(999'949), "999.9 kB");
  EXPECT_EQ(httppool::shortSize(999'950), "1.0 MB");
  EXPECT_EQ(httppool::shortSize(12'345'678'901), "12.3 GB");
}

}  // namespace
}  // namespace tooltest
