// The monitor's switch and its record. What has been recorded is known until the process ends, so every test has names
// of its own.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>

#include "MonitorFolder.h"
#include "foundation/base/LongDate.h"
#include "httpPool/InitFeatureFlag.h"
#include "httpPool/Pool.h"
#include "tests/support/Files.h"

namespace {

using Names = std::vector<std::string>;

class FeatureFlagTest : public testing::Test {
 protected:
  ~FeatureFlagTest() override { IS_MONITOR_POOL = false; }

  static bool flag() {
    InitFeatureFlag();
    return IS_MONITOR_POOL;
  }

  const MonitorFolder folder;
};

TEST_F(FeatureFlagTest, IsWhatTheSettingsSayEachTime) {
  EXPECT_FALSE(flag());
  folder.writeSettings("Taskmonitor", "<true/>");
  EXPECT_TRUE(flag());
  folder.writeSettings("Taskmonitor", "<false/>");
  EXPECT_FALSE(flag());
  folder.writeSettings("Taskmonitor", "<string>YES</string>");
  EXPECT_TRUE(flag());
  folder.writeSettings("taskmonitor", "<true/>");
  EXPECT_FALSE(flag()) << "keys differ by case";
  folder.writeSettings("Taskmonitor", "<integer>1</integer>");
  EXPECT_TRUE(flag());
  std::filesystem::remove_all(folder.path());
  EXPECT_FALSE(flag());
}

TEST_F(FeatureFlagTest, StaysAsItIsWithoutAnyFolderOfApplications) {
  setenv("ZEP_APPLICATIONS_DIR", "relative", 1);
  EXPECT_FALSE(flag());
  IS_MONITOR_POOL = true;
  EXPECT_TRUE(flag());
}

class TimeoutRecordTest : public testing::Test {
 protected:
  const MonitorFolder folder;
};

TEST_F(TimeoutRecordTest, ANameIsRecordedOnce) {
  EXPECT_FALSE(IsPoolTaskNameExisting("once"));
  RecordTimeoutPoolTask("once");
  EXPECT_TRUE(IsPoolTaskNameExisting("once"));
  RecordTimeoutPoolTask("once");
  EXPECT_EQ(folder.recordedNames(), Names{"once"});
}

TEST_F(TimeoutRecordTest, NamesDifferByCase) {
  RecordTimeoutPoolTask("cased name");
  EXPECT_FALSE(IsPoolTaskNameExisting("Cased Name"));
  RecordTimeoutPoolTask("Cased Name");
  EXPECT_EQ(folder.recordedNames(), (Names{"cased name", "Cased Name"}));
}

TEST_F(TimeoutRecordTest, AddingANameWritesNothingAndKeepsItFromBeingRecorded) {
  AddPoolTaskName("added");
  AddPoolTaskName("added");
  EXPECT_TRUE(IsPoolTaskNameExisting("added"));
  RecordTimeoutPoolTask("added");
  EXPECT_FALSE(test::fileExists(folder.recordFile()));
}

TEST_F(TimeoutRecordTest, TheNameIsAddedByRecordingOnly) {
  DoRecordTimeoutPoolTask("done");
  DoRecordTimeoutPoolTask("done");
  EXPECT_FALSE(IsPoolTaskNameExisting("done"));
  EXPECT_EQ(folder.recordedNames(), (Names{"done", "done"}));
}

TEST_F(TimeoutRecordTest, NullIsNoName) {
  EXPECT_FALSE(IsPoolTaskNameExisting(nullptr));
  AddPoolTaskName(nullptr);
  RecordTimeoutPoolTask(nullptr);
  DoRecordTimeoutPoolTask(nullptr);
  EXPECT_FALSE(IsPoolTaskNameExisting(nullptr));
  EXPECT_FALSE(test::fileExists(folder.recordFile()));
}

TEST_F(TimeoutRecordTest, WithoutItsFolderARecordIsLostForGood) {
  std::filesystem::remove_all(folder.path());
  RecordTimeoutPoolTask("lost");
  EXPECT_TRUE(IsPoolTaskNameExisting("lost"));
  EXPECT_FALSE(std::filesystem::exists(folder.path()));
  std::filesystem::create_directory(folder.path());
  RecordTimeoutPoolTask("lost");
  RecordTimeoutPoolTask("not lost");
  EXPECT_EQ(folder.recordedNames(), Names{"not lost"});
}

TEST_F(TimeoutRecordTest, WithoutAnyFolderOfApplicationsItIsLost) {
  setenv("ZEP_APPLICATIONS_DIR", "relative", 1);
  RecordTimeoutPoolTask("nowhere");
  EXPECT_TRUE(IsPoolTaskNameExisting("nowhere"));
}

TEST_F(TimeoutRecordTest, WhatTheFileHoldsStaysAsItIs) {
  const std::string old = "written by hand, no line end: \xFF";
  test::writeFile(folder.recordFile(), old);
  RecordTimeoutPoolTask("behind it");
  const std::string record = folder.record();
  ASSERT_TRUE(record.starts_with(old)) << record;
  EXPECT_TRUE(record.ends_with("\nbehind it\n")) << record;
}

TEST_F(TimeoutRecordTest, ItIsTheDateAndTheNameAsTheyAre) {
  const std::string name = "p %s%n t\nsecond line \xC3\xA4\xE5\xB9\xB4 \xFF";
  setenv("LC_ALL", "de_DE.UTF-8", 1);
  using std::chrono::system_clock;
  const auto before = std::chrono::floor<std::chrono::seconds>(system_clock::now());
  RecordTimeoutPoolTask(name.c_str());
  const auto after = system_clock::now();
  unsetenv("LC_ALL");
  bool isFound = false;
  for (system_clock::time_point date = before; date <= after && !isFound; date += std::chrono::seconds(1)) {
    isFound = folder.record() == foundation::longDateAndTime(date, "de_DE") + "\n" + name + "\n";
  }
  EXPECT_TRUE(isFound) << folder.record();
  EXPECT_NE(folder.record().find(" um "), std::string::npos) << folder.record();
}

/// A task whose clock runs ahead once it is made.
struct OldTask : CTask {
  using CTask::CTask;
  std::uint64_t AbsoluteTime() const override { return CTask::AbsoluteTime() + 301'000'000'000; }
};

class MonitoredPoolTest : public TimeoutRecordTest {
 protected:
  MonitoredPoolTest() { IS_MONITOR_POOL = true; }
  ~MonitoredPoolTest() override { IS_MONITOR_POOL = false; }
};

TEST_F(MonitoredPoolTest, AnOldTaskIsRecordedWhenItsStatusIsAsked) {
  CPool pool("monitored");
  pool.AdoptTask(std::make_unique<OldTask>("old", "monitored"));
  pool.AddTask("young");
  pool.GetTaskList();
  pool.OnTimer(10001);
  EXPECT_EQ(folder.recordedNames(), Names{});
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_FAILED;
  pool.GetTaskStatus("old", &status);
  EXPECT_EQ(status, ZEP_HTTP_TASK_UNINITIALIZED);
  pool.GetTaskStatus("young", &status);
  EXPECT_EQ(folder.recordedNames(), Names{"monitored old"});
}

TEST_F(MonitoredPoolTest, AResetDoesNotMakeATaskYounger) {
  CPool pool("reset");
  pool.AdoptTask(std::make_unique<OldTask>("old", "reset"));
  pool.TaskReset("old");
  pool.GetTaskStatus("old", nullptr);
  EXPECT_EQ(folder.recordedNames(), Names{"reset old"});
}

}  // namespace
