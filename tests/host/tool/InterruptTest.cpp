// SIGINT and SIGTERM while a request runs.

#include <gtest/gtest.h>

#include <csignal>
#include <string>

#include "CannedOrigin.h"
#include "Program.h"

namespace tooltest {
namespace {

class Interrupted : public testing::TestWithParam<int> {};

TEST_P(Interrupted, ResetsTheTaskAndTellsTheSignal) {
  CannedOrigin origin({{"/quick", answer("200 OK", "got")}});
  Program program(HTTPPOOL_PROGRAM, {"get", origin.url("/never"), origin.url("/quick"), "--snapshot"});
  ASSERT_NE(origin.requestFor("/never"), "");
  program.signal(GetParam());
  const Finished finished = program.wait();
  EXPECT_EQ(finished.status, 128 + GetParam());
  EXPECT_NE(finished.out.find("  " + origin.url("/never") + "  reset: still running when interrupted\n"),
            std::string::npos)
      << finished.out;
  // It came to its proper end: the snapshot is there, and the task is reset.
  EXPECT_NE(finished.out.find(R"("taskStatus":"uninitialized")"), std::string::npos) << finished.out;
}

INSTANTIATE_TEST_SUITE_P(Signals, Interrupted, testing::Values(SIGINT, SIGTERM));

}  // namespace
}  // namespace tooltest
