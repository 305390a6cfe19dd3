#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "Fakes.h"
#include "TraceLog.h"
#include "httpPool/Task.h"

namespace {

using testing::ElementsAre;

ZEP_HTTP_TASK_STATUS statusOf(const CTask& task) {
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_STATUS_8;
  task.GetStatus(&status);
  return status;
}

std::string propertyOf(CTask& task, int property) {
  const auto which = static_cast<ZEP_HTTP_TASK_PROPERTY>(property);
  long size = task.GetProperty(which, nullptr, nullptr);
  std::string value(static_cast<std::size_t>(size), '?');
  EXPECT_EQ(task.GetProperty(which, value.data(), &size), size);
  return value;
}

class TaskTest : public testing::Test {
 protected:
  CallScript script;
  int callsMade = 0;
  CTask task{"t", "p", [this] {
               ++callsMade;
               return std::make_unique<CHttpCall>(std::make_unique<FakeCallImpl>(script));
             }};

  void set(ZEP_HTTP_TASK_PROPERTY property, const char* value) { task.SetProperty(property, value); }
  void setData(const std::string& bytes) {
    task.SetDataProperty(reinterpret_cast<const unsigned char*>(bytes.data()),
                         static_cast<long>(bytes.size()));
  }
  /// What the run asked of the call, without the callback that every run sets.
  std::vector<std::string> run() {
    script.log.clear();
    task.Run(nullptr);
    EXPECT_FALSE(script.log.empty());
    EXPECT_EQ(script.log.front(), "SetCallBack");
    return {script.log.begin() + 1, script.log.end()};
  }
};

TEST_F(TaskTest, StartsUninitializedAndEmpty) {
  EXPECT_EQ(statusOf(task), ZEP_HTTP_TASK_UNINITIALIZED);
  EXPECT_EQ(task.GetName(), "t");
  for (int property = -1; property <= 12; ++property) {
    EXPECT_EQ(propertyOf(task, property), "") << property;
  }
  EXPECT_EQ(callsMade, 0);
}

TEST_F(TaskTest, IdentityIsPoolNameAndTaskName) {
  EXPECT_EQ(task.GetSelfIdentity(), "p t");
}

TEST_F(TaskTest, ANullStatusPointerIsAllowed) {
  task.GetStatus(nullptr);
  task.Run(nullptr);
  EXPECT_EQ(statusOf(task), ZEP_HTTP_TASK_REQUESTING);
}

TEST_F(TaskTest, SettablePropertiesAreKept) {
  for (const int property : {1, 2, 3, 4, 5, 6, 8, 9}) {
    const std::string value = "value " + std::to_string(property);
    task.SetProperty(static_cast<ZEP_HTTP_TASK_PROPERTY>(property), value.c_str());
    EXPECT_EQ(propertyOf(task, property), value);
  }
}

TEST_F(TaskTest, OtherPropertiesCannotBeSet) {
  for (const int property : {-1, 0, 7, 10, 11, 99}) {
    task.SetProperty(static_cast<ZEP_HTTP_TASK_PROPERTY>(property), "value");
    EXPECT_EQ(propertyOf(task, property), "") << property;
  }
}

TEST_F(TaskTest, ANullPropertyValueIsTheEmptyText) {
  set(ZEP_HTTP_TASK_PROP_EXTRA_2, "before");
  set(ZEP_HTTP_TASK_PROP_EXTRA_2, nullptr);
  EXPECT_EQ(propertyOf(task, 2), "");
}

TEST_F(TaskTest, ReadingCopiesAtMostTheCapacityWithoutATerminator) {
  set(ZEP_HTTP_TASK_PROP_EXTRA_2, "0123456789");
  char buffer[] = "########";
  long size = 4;
  EXPECT_EQ(task.GetProperty(ZEP_HTTP_TASK_PROP_EXTRA_2, buffer, &size), 10);
  EXPECT_STREQ(buffer, "0123####");
  EXPECT_EQ(size, 4);
}

TEST_F(TaskTest, ANegativeOrZeroCapacityCopiesNothing) {
  set(ZEP_HTTP_TASK_PROP_EXTRA_2, "0123456789");
  for (long size : {0L, -1L, -1000L}) {
    char buffer[] = "####";
    EXPECT_EQ(task.GetProperty(ZEP_HTTP_TASK_PROP_EXTRA_2, buffer, &size), 10);
    EXPECT_STREQ(buffer, "####");
  }
}

TEST_F(TaskTest, ReadingWithoutASizeCopiesNothing) {
  set(ZEP_HTTP_TASK_PROP_EXTRA_2, "0123456789");
  char buffer[] = "####";
  EXPECT_EQ(task.GetProperty(ZEP_HTTP_TASK_PROP_EXTRA_2, buffer, nullptr), 10);
  EXPECT_STREQ(buffer, "####");
}

TEST_F(TaskTest, RunsWithoutABody) {
  set(ZEP_HTTP_TASK_PROP_URL, "http://a/");
  EXPECT_THAT(run(), ElementsAre("LaunchCall http://a/ (null)"));
  EXPECT_EQ(script.callback, &task);
}

TEST_F(TaskTest, RunsWithHeaderFieldsAndATextBody) {
  set(ZEP_HTTP_TASK_PROP_HEADER_FIELDS, R"({"A":"b"})");
  set(ZEP_HTTP_TASK_PROP_URL, "http://a/");
  set(ZEP_HTTP_TASK_PROP_POST_DATA, "body");
  EXPECT_THAT(run(), ElementsAre(R"(SetHeaderFields {"A":"b"})", "LaunchCall http://a/ body"));
}

TEST_F(TaskTest, ADownloadGoesBeforeTheTextBody) {
  set(ZEP_HTTP_TASK_PROP_URL, "http://a/");
  set(ZEP_HTTP_TASK_PROP_POST_DATA, "body");
  set(ZEP_HTTP_TASK_PROP_DOWNLOAD_FILE, "/file");
  EXPECT_THAT(run(), ElementsAre("DownloadFile http://a/ /file"));
}

TEST_F(TaskTest, TheByteBodyGoesBeforeADownload) {
  set(ZEP_HTTP_TASK_PROP_URL, "http://a/");
  set(ZEP_HTTP_TASK_PROP_DOWNLOAD_FILE, "/file");
  setData(std::string("a\0b", 3));
  EXPECT_THAT(run(), ElementsAre(std::string("LaunchCall http://a/ bytes a\0b", 30)));
}

TEST_F(TaskTest, AByteBodyOfSizeZeroIsNone) {
  set(ZEP_HTTP_TASK_PROP_URL, "http://a/");
  setData("bytes");
  setData("");
  EXPECT_THAT(run(), ElementsAre("LaunchCall http://a/ (null)"));
  set(ZEP_HTTP_TASK_PROP_DOWNLOAD_FILE, "/file");
  EXPECT_THAT(run(), ElementsAre("DownloadFile http://a/ /file"));
}

TEST_F(TaskTest, NullDataAndNegativeSizesAreNoByteBody) {
  set(ZEP_HTTP_TASK_PROP_URL, "u");
  const unsigned char bytes[] = {1, 2, 3};
  setData("bytes");
  task.SetDataProperty(nullptr, 3);
  EXPECT_THAT(run(), ElementsAre("LaunchCall u (null)"));
  setData("bytes");
  task.SetDataProperty(bytes, -1);
  EXPECT_THAT(run(), ElementsAre("LaunchCall u (null)"));
}

TEST_F(TaskTest, TheStatusSaysWhetherTheLaunchWasTaken) {
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_STATUS_8;
  task.Run(&status);
  EXPECT_EQ(status, ZEP_HTTP_TASK_REQUESTING);
  EXPECT_EQ(statusOf(task), ZEP_HTTP_TASK_REQUESTING);
  script.launchAnswer = false;
  task.Run(&status);
  EXPECT_EQ(status, ZEP_HTTP_TASK_FAILED);
  EXPECT_EQ(statusOf(task), ZEP_HTTP_TASK_FAILED);
}

TEST_F(TaskTest, ARefusedByteBodyFails) {
  script.launchAnswer = false;
  setData("x");
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_STATUS_8;
  task.Run(&status);
  EXPECT_EQ(status, ZEP_HTTP_TASK_FAILED);
}

TEST_F(TaskTest, ASecondRunUsesTheSameCall) {
  run();
  run();
  EXPECT_EQ(callsMade, 1);
  task.Reset();
  EXPECT_EQ(script.alive, 0);
  run();
  EXPECT_EQ(callsMade, 2);
}

TEST_F(TaskTest, ResetKeepsThePropertyTextsAndForgetsTheByteBody) {
  set(ZEP_HTTP_TASK_PROP_URL, "u");
  setData("bytes");
  script.result = "the result";
  script.redirectUrl = "http://b/";
  run();
  task.NotifyHttpCallStatus(7, HTTP_CALL_REDIRECTED);
  task.NotifyHttpCallStatus(7, HTTP_CALL_SUCCEEDED);
  task.Reset();
  EXPECT_EQ(statusOf(task), ZEP_HTTP_TASK_UNINITIALIZED);
  EXPECT_EQ(propertyOf(task, 7), "the result");
  EXPECT_EQ(propertyOf(task, 10), "http://b/");
  EXPECT_EQ(propertyOf(task, 5), "u");
  EXPECT_THAT(run(), ElementsAre("LaunchCall u (null)"));
}

TEST_F(TaskTest, DeletingTheTaskDeletesTheCall) {
  {
    CTask other("t", "p",
                [this] { return std::make_unique<CHttpCall>(std::make_unique<FakeCallImpl>(script)); });
    other.Run(nullptr);
    EXPECT_EQ(script.alive, 1);
  }
  EXPECT_EQ(script.alive, 0);
}

TEST_F(TaskTest, ReadingTheRedirectTargetAsksTheCall) {
  EXPECT_EQ(propertyOf(task, 10), "") << "without a call the stored text";
  run();
  EXPECT_EQ(propertyOf(task, 10), "");
  script.redirectUrl = "http://b/";
  EXPECT_EQ(propertyOf(task, 10), "http://b/");
}

struct Mapping {
  int callStatus;
  ZEP_HTTP_TASK_STATUS taskStatus;
  const char* fetched;
};

class TaskMappingTest : public TaskTest, public testing::WithParamInterface<Mapping> {};

TEST_P(TaskMappingTest, MapsTheCallsState) {
  script.result = "the result";
  script.redirectUrl = "http://b/";
  run();
  script.log.clear();
  EXPECT_TRUE(task.NotifyHttpCallStatus(7, static_cast<HTTP_CALL_STATUS>(GetParam().callStatus)));
  EXPECT_EQ(statusOf(task), GetParam().taskStatus);
  if (*GetParam().fetched == '\0') {
    EXPECT_TRUE(script.log.empty());
  } else {
    EXPECT_THAT(script.log, ElementsAre(GetParam().fetched));
  }
}

INSTANTIATE_TEST_SUITE_P(
    States, TaskMappingTest,
    testing::Values(Mapping{0, ZEP_HTTP_TASK_DONE, "GetResult"},
                    Mapping{1, ZEP_HTTP_TASK_FAILED, "GetResult"},
                    Mapping{2, ZEP_HTTP_TASK_FAILED, "GetResult"},
                    Mapping{3, ZEP_HTTP_TASK_FAILED, "GetResult"}, Mapping{4, ZEP_HTTP_TASK_TIMEOUT, ""},
                    Mapping{5, ZEP_HTTP_TASK_FAILED, "GetResult"},
                    Mapping{6, ZEP_HTTP_TASK_FAILED, "GetResult"}, Mapping{7, ZEP_HTTP_TASK_REQUESTING, ""},
                    Mapping{8, ZEP_HTTP_TASK_REDIRECTED, "GetRedirectUrl"},
                    Mapping{9, ZEP_HTTP_TASK_REQUESTING, ""}, Mapping{-1, ZEP_HTTP_TASK_REQUESTING, ""}));

TEST_F(TaskTest, AStaleSessionChangesNothing) {
  script.result = "the result";
  run();
  script.log.clear();
  EXPECT_FALSE(task.NotifyHttpCallStatus(8, HTTP_CALL_SUCCEEDED));
  EXPECT_EQ(statusOf(task), ZEP_HTTP_TASK_REQUESTING);
  EXPECT_TRUE(script.log.empty());
}

TEST_F(TaskTest, ANoticeAfterAResetIsStale) {
  run();
  task.Reset();
  EXPECT_FALSE(task.NotifyHttpCallStatus(7, HTTP_CALL_SUCCEEDED));
  EXPECT_EQ(statusOf(task), ZEP_HTTP_TASK_UNINITIALIZED);
}

TEST_F(TaskTest, ANoticeIsTracedWithoutABlankBeforeTheNumber) {
  run();
  takeTrace();
  task.NotifyHttpCallStatus(3, HTTP_CALL_RECEIVING);
  EXPECT_THAT(takeTrace(), ElementsAre(TraceLine{1, "NotifyHttpCallStatus, sessionID: 3status7\n"}));
}

TEST_F(TaskTest, LongNamesAndValuesAreKeptWhole) {
  const std::string name(10'000, 'n');
  const std::string value(100'000, 'v');
  CTask other(name.c_str(), name.c_str());
  EXPECT_EQ(other.GetName(), name);
  other.SetProperty(ZEP_HTTP_TASK_PROP_EXTRA_9, value.c_str());
  EXPECT_EQ(propertyOf(other, 9), value);
}

}  // namespace
