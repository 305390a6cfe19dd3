#include <gtest/gtest.h>

#include "TraceLog.h"
#include "httpPool/Pool.h"
#include "httpPool/Report.h"

namespace {

TEST(ReportTest, TheEventsHaveTheirNumbers) {
  EXPECT_EQ(POOL_EVENT_POOL_CREATED, 0);
  EXPECT_EQ(POOL_EVENT_POOL_DESTROYED, 5);
  EXPECT_EQ(POOL_EVENT_TASK_CREATED, 10);
  EXPECT_EQ(POOL_EVENT_TASK_SUBMIT, 20);
  EXPECT_EQ(POOL_EVENT_TASK_GOT_RESP, 30);
}

TEST(ReportTest, TheEntryPointIsSwitchedOff) {
  takeTrace();
  CPool::m_sReport.UpdateStatus("pool", nullptr, POOL_EVENT_POOL_CREATED);
  CPool::m_sReport.UpdateStatus("pool", "task", POOL_EVENT_TASK_CREATED);
  CPool::m_sReport.UpdateStatus(nullptr, nullptr, POOL_EVENT_POOL_DESTROYED);
  EXPECT_TRUE(takeTrace().empty());
}

}  // namespace
