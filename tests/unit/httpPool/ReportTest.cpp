#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "TraceLog.h"
#include "httpPool/Pool.h"
#include "httpPool/Report.h"

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

/// Friday, 5 January 2024, 03:04:05.678 UTC
constexpr std::chrono::system_clock::time_point kStart{milliseconds(1704423845678)};

struct Reported : CReport {
  std::chrono::system_clock::time_point Now() const override { return now; }
  std::chrono::system_clock::time_point now = kStart;
};

class ReportTest : public testing::Test {
 protected:
  ReportTest() {
    setenv("TZ", "UTC", 1);
    tzset();
    takeTrace();
  }

  void report(ENUM_POOL_EVENT event, const char* pool, const char* task = nullptr) {
    reported.UpdatePoolTaskStatus(pool, task, event);
  }
  void wait(int ms) { reported.now += milliseconds(ms); }
  /// The one document written since the last call, without its two line ends; the empty text without one.
  static std::string document() {
    const std::vector<TraceLine> lines = takeTrace();
    if (lines.empty()) {
      return "";
    }
    EXPECT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].level, 1);
    EXPECT_TRUE(lines[0].text.ends_with("\n\n")) << "the writer's line end and the line's";
    const std::string text = lines[0].text.substr(0, lines[0].text.size() - 2);
    EXPECT_EQ(text.find('\n'), std::string::npos);
    return text;
  }

  Reported reported;
};

/// A pool's record that was made at kStart.
std::string pool(const std::string& name, int age, const std::string& laterEvents = "",
                 const std::string& tasks = "") {
  return R"({"age":)" + std::to_string(age) +
         R"(,"baseTime":"Fri Jan  5 03:04:05 2024","log":[{"event":"created","time":0})" + laterEvents +
         R"(],"milliTime":1704423845678,"poolName":")" + name + "\"" +
         (tasks.empty() ? "" : R"(,"tasks":[)" + tasks + "]") + "}";
}

TEST_F(ReportTest, TheEventsHaveTheirNumbers) {
  EXPECT_EQ(POOL_EVENT_POOL_CREATED, 0);
  EXPECT_EQ(POOL_EVENT_POOL_DESTROYED, 5);
  EXPECT_EQ(POOL_EVENT_TASK_CREATED, 10);
  EXPECT_EQ(POOL_EVENT_TASK_SUBMIT, 20);
  EXPECT_EQ(POOL_EVENT_TASK_GOT_RESP, 30);
}

TEST_F(ReportTest, TheEntryPointIsSwitchedOff) {
  for (const ENUM_POOL_EVENT event :
       {POOL_EVENT_POOL_CREATED, POOL_EVENT_TASK_CREATED, POOL_EVENT_TASK_SUBMIT, POOL_EVENT_TASK_GOT_RESP,
        POOL_EVENT_POOL_DESTROYED}) {
    for (const char* taskName : {"task", static_cast<const char*>(nullptr)}) {
      reported.UpdateStatus("pool", taskName, event);
      reported.UpdateStatus(nullptr, taskName, event);
      CPool::m_sReport.UpdateStatus("pool", taskName, event);
    }
  }
  EXPECT_EQ(reported.FindPoolIndex("pool"), -1);
  EXPECT_EQ(CPool::m_sReport.FindPoolIndex("pool"), -1);
  // Any event would write a document that is there.
  report(POOL_EVENT_TASK_SUBMIT, "pool", "task");
  EXPECT_EQ(document(), "");
}

TEST_F(ReportTest, APoolIsRecordedWhenItIsCreated) {
  report(POOL_EVENT_POOL_CREATED, "p");
  EXPECT_EQ(document(), "[" + pool("p", 0) + "]");
}

TEST_F(ReportTest, ATaskIsCreatedSubmittedAndAnswered) {
  report(POOL_EVENT_POOL_CREATED, "p");
  wait(9);
  document();
  report(POOL_EVENT_TASK_CREATED, "p", "t");
  EXPECT_EQ(document(), "[" + pool("p", 9, "", R"({"log":[{"event":"create","time":9}],"name":"t"})") + "]");
  wait(1);
  report(POOL_EVENT_TASK_CREATED, "p", "u");
  wait(90);
  document();
  report(POOL_EVENT_TASK_SUBMIT, "p", "t");
  EXPECT_EQ(document(),
            "[" +
                pool("p", 100, "",
                     R"({"log":[{"event":"create","time":9},{"event":"submit","time":100}],"name":"t"},)"
                     R"({"log":[{"event":"create","time":10}],"name":"u"})") +
                "]");
  wait(3'000'000);
  report(POOL_EVENT_TASK_GOT_RESP, "p", "u");
  wait(1);
  document();
  report(POOL_EVENT_TASK_SUBMIT, "p", "u");
  EXPECT_EQ(document(),
            "[" +
                pool("p", 3'000'101, "",
                     R"({"log":[{"event":"create","time":9},{"event":"submit","time":100}],"name":"t"},)"
                     R"({"log":[{"event":"create","time":10},{"event":"gotResp","time":3000100},)"
                     R"({"event":"submit","time":3000101}],"name":"u"})") +
                "]");
}

TEST_F(ReportTest, TheOldestPoolStaysWhenItIsDestroyed) {
  report(POOL_EVENT_POOL_CREATED, "p");
  wait(7);
  document();
  report(POOL_EVENT_POOL_DESTROYED, "p");
  const std::string destroyed = "[" + pool("p", 7, R"(,{"event":"destoryed","time":7})") + "]";
  EXPECT_EQ(document(), destroyed);
  report(POOL_EVENT_TASK_SUBMIT, "none", "none");
  EXPECT_EQ(document(), destroyed);
}

TEST_F(ReportTest, ALaterPoolIsWrittenOnceMoreAndThenRemoved) {
  report(POOL_EVENT_POOL_CREATED, "a");
  report(POOL_EVENT_POOL_CREATED, "b");
  takeTrace();
  report(POOL_EVENT_POOL_CREATED, "c");
  EXPECT_EQ(document(), "[" + pool("a", 0) + "," + pool("b", 0) + "," + pool("c", 0) + "]");
  wait(2);
  report(POOL_EVENT_POOL_DESTROYED, "b");
  EXPECT_EQ(document(), "[" + pool("a", 0) + "," + pool("b", 2, R"(,{"event":"destoryed","time":2})") + "," +
                            pool("c", 0) + "]");
  report(POOL_EVENT_POOL_DESTROYED, "b");
  EXPECT_EQ(document(), "[" + pool("a", 0) + "," + pool("c", 0) + "]");
}

TEST_F(ReportTest, NamesAreFoundWithoutRegardToCase) {
  report(POOL_EVENT_POOL_CREATED, "Pool");
  report(POOL_EVENT_TASK_CREATED, "POOL", "Job");
  takeTrace();
  report(POOL_EVENT_TASK_SUBMIT, "pool", "JOB");
  EXPECT_EQ(document(),
            "[" +
                pool("Pool", 0, "",
                     R"({"log":[{"event":"create","time":0},{"event":"submit","time":0}],"name":"Job"})") +
                "]");
  EXPECT_EQ(reported.FindPoolIndex("pOOL"), 0);
  EXPECT_EQ(reported.FindTaskIndex(0, "jOB"), 0);
  EXPECT_EQ(reported.FindPoolIndex("Poo"), -1);
  EXPECT_EQ(reported.FindTaskIndex(0, "Jobs"), -1);
}

TEST_F(ReportTest, APoolThatIsCreatedAgainHasASecondRecordAndTheFirstIsFound) {
  report(POOL_EVENT_POOL_CREATED, "p");
  report(POOL_EVENT_POOL_CREATED, "P");
  takeTrace();
  report(POOL_EVENT_TASK_CREATED, "P", "t");
  EXPECT_EQ(document(), "[" + pool("p", 0, "", R"({"log":[{"event":"create","time":0}],"name":"t"})") + "," +
                            pool("P", 0) + "]");
}

TEST_F(ReportTest, UnknownNamesChangeNothingAndTheDocumentIsWritten) {
  for (const ENUM_POOL_EVENT event : {POOL_EVENT_POOL_DESTROYED, POOL_EVENT_TASK_CREATED,
                                      POOL_EVENT_TASK_SUBMIT, POOL_EVENT_TASK_GOT_RESP}) {
    report(event, "p", "t");
    EXPECT_EQ(document(), "") << "there is no document yet";
  }
  report(POOL_EVENT_POOL_CREATED, "p");
  const std::string unchanged = document();
  wait(5);
  for (const ENUM_POOL_EVENT event : {POOL_EVENT_POOL_DESTROYED, POOL_EVENT_TASK_CREATED,
                                      POOL_EVENT_TASK_SUBMIT, POOL_EVENT_TASK_GOT_RESP}) {
    report(event, "q", "t");
    EXPECT_EQ(document(), unchanged) << event;
    report(event, nullptr, "t");
    EXPECT_EQ(document(), unchanged) << event;
  }
  for (const ENUM_POOL_EVENT event : {POOL_EVENT_TASK_SUBMIT, POOL_EVENT_TASK_GOT_RESP, ENUM_POOL_EVENT{7}}) {
    report(event, "p", "t");
    EXPECT_EQ(document(), unchanged) << event;
  }
}

TEST_F(ReportTest, NullNamesChangeNothing) {
  report(POOL_EVENT_POOL_CREATED, nullptr);
  EXPECT_EQ(document(), "");
  report(POOL_EVENT_POOL_CREATED, "");
  const std::string unchanged = document();
  for (const ENUM_POOL_EVENT event :
       {POOL_EVENT_TASK_CREATED, POOL_EVENT_TASK_SUBMIT, POOL_EVENT_TASK_GOT_RESP}) {
    report(event, "", nullptr);
    EXPECT_EQ(document(), unchanged) << event;
  }
  EXPECT_EQ(reported.FindPoolIndex(nullptr), -1);
  EXPECT_EQ(reported.FindTaskIndex(0, nullptr), -1);
}

TEST_F(ReportTest, IndicesOfNothingChangeNothing) {
  report(POOL_EVENT_POOL_CREATED, "p");
  report(POOL_EVENT_TASK_CREATED, "p", "t");
  takeTrace();
  report(POOL_EVENT_TASK_SUBMIT, "", "");
  const std::string unchanged = document();
  wait(5);
  for (const int index : {-2, -1, 1, 100}) {
    reported.InsertPoolDestroyInfo(index);
    reported.GenerateNewTaskNode(index, "u");
    reported.InsertTaskSubmitNode(index, 0);
    reported.InsertTaskSubmitNode(0, index);
    reported.InsertTaskRespNode(index, 0);
    reported.InsertTaskRespNode(0, index);
    reported.RemovePool(index);
    EXPECT_EQ(reported.FindTaskIndex(index, "t"), -1);
  }
  report(POOL_EVENT_TASK_SUBMIT, "", "");
  EXPECT_EQ(document(), unchanged);
}

TEST_F(ReportTest, WithoutItsLastPoolThereIsNoDocument) {
  report(POOL_EVENT_POOL_CREATED, "p");
  takeTrace();
  reported.RemovePool(0);
  report(POOL_EVENT_TASK_SUBMIT, "p", "t");
  EXPECT_EQ(document(), "");
}

TEST_F(ReportTest, NamesAreEscapedWhateverTheirBytes) {
  report(POOL_EVENT_POOL_CREATED, "\"\\\n\x01\xC3\xA4");
  EXPECT_EQ(document(), "[" + pool(R"(\"\\\n\u0001\u00e4)", 0) + "]");
  for (const char* name : {"\xFF", "\xC3", "a\x80z", "\xED\xA0\x80", "\xF4\x90\x80\x80"}) {
    report(POOL_EVENT_POOL_CREATED, name);
    const std::string text = document();
    EXPECT_TRUE(text.starts_with("[{") && text.ends_with("}]")) << text;
    for (const char byte : text) {
      EXPECT_TRUE(byte >= ' ' && byte <= '~') << text;
    }
    EXPECT_GE(reported.FindPoolIndex(name), 0);
    report(POOL_EVENT_POOL_DESTROYED, name);
    takeTrace();
  }
}

TEST_F(ReportTest, TimesAreWholeMillisecondsCutTowardsZero) {
  reported.now = std::chrono::system_clock::time_point(milliseconds(1704423845678) + microseconds(999));
  EXPECT_EQ(reported.GetMilliSecond(), 1704423845678);
  reported.now = std::chrono::system_clock::time_point(microseconds(-999));
  EXPECT_EQ(reported.GetMilliSecond(), 0);
}

TEST_F(ReportTest, AClockThatIsSetBackGivesNegativeTimes) {
  report(POOL_EVENT_POOL_CREATED, "p");
  takeTrace();
  wait(-5);
  EXPECT_EQ(reported.GetTimeDiffInMilliSecond(0), -5);
  report(POOL_EVENT_TASK_CREATED, "p", "t");
  EXPECT_EQ(document(),
            "[" + pool("p", -5, "", R"({"log":[{"event":"create","time":-5}],"name":"t"})") + "]");
  reported.now = std::chrono::system_clock::time_point(milliseconds(-1));
  report(POOL_EVENT_POOL_CREATED, "q");
  report(POOL_EVENT_POOL_DESTROYED, "q");
  EXPECT_EQ(takeTrace().size(), 2U);
}

TEST_F(ReportTest, TheTimeIsLocalAndWithoutALineEnd) {
  EXPECT_EQ(reported.CurTime(), "Fri Jan  5 03:04:05 2024");
  setenv("TZ", "XXX-5", 1);
  tzset();
  EXPECT_EQ(reported.CurTime(), "Fri Jan  5 08:04:05 2024");
}

TEST(ReportClockTest, IsTheWallClock) {
  const CReport report;
  const auto before = static_cast<Json::Int64>(std::time(nullptr)) * 1000;
  const Json::Int64 now = report.GetMilliSecond();
  EXPECT_GE(now, before);
  EXPECT_LE(now, (static_cast<Json::Int64>(std::time(nullptr)) + 1) * 1000);
}

}  // namespace
