// --concurrency: how many tasks run at once, in which order, and whose time the time limit is.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <string>
#include <vector>

#include "CannedOrigin.h"
#include "GatedOrigin.h"
#include "JsonLines.h"
#include "Program.h"

namespace tooltest {
namespace {

TEST(Concurrency, RunsSoManyTasksAtOnceInTheirOrder) {
  GatedOrigin origin;
  const std::vector<std::string> paths{"/1", "/2", "/3", "/4", "/5", "/6"};
  std::vector<std::string> arguments{"get", "--concurrency", "2"};
  for (const std::string& path : paths) {
    arguments.push_back(origin.url(path));
  }
  Program program(HTTPPOOL_PROGRAM, arguments);
  EXPECT_THAT(origin.arrivals(2), testing::UnorderedElementsAre("/1", "/2"));
  // Each that ends makes room for one.
  for (std::size_t count = 3; count <= paths.size(); ++count) {
    origin.release(paths[count - 3]);
    const std::vector<std::string> arrived = origin.arrivals(count);
    ASSERT_EQ(arrived.size(), count);
    EXPECT_EQ(arrived.back(), paths[count - 1]);
  }
  origin.release("/5");
  origin.release("/6");
  const Finished finished = program.wait();
  EXPECT_EQ(finished.status, 0) << finished.out;
  EXPECT_EQ(std::count(finished.out.begin(), finished.out.end(), '\n'), 6);
  EXPECT_EQ(origin.mostAtOnce(), 2U);
}

TEST(Concurrency, TheTimeLimitOfATaskCountsFromItsOwnRun) {
  CannedOrigin origin({});
  const Finished finished = httppool({"get", "--json", "--concurrency", "1", "--timeout", "0.4",
                                      origin.url("/a"), origin.url("/b"), origin.url("/c")});
  EXPECT_EQ(finished.status, 1);
  const std::vector<Json::Value> lines = jsonLines(finished.out);
  ASSERT_EQ(lines.size(), 3U);
  for (const Json::Value& line : lines) {
    EXPECT_EQ(line["ending"], "timed out");
    EXPECT_GE(line["elapsed"].asDouble(), 0.4);
  }
}

TEST(Concurrency, ATaskThatIsRefusedMakesRoomForTheNext) {
  CannedOrigin origin({{"/a", answer("200 OK", "got")}});
  const Finished finished =
      httppool({"get", "--concurrency", "1", "not a url", "nor this", origin.url("/a")});
  EXPECT_EQ(finished.status, 1);
  EXPECT_NE(finished.out.find(origin.url("/a") + "  got\n"), std::string::npos) << finished.out;
  EXPECT_EQ(std::count(finished.out.begin(), finished.out.end(), '\n'), 3);
}

TEST(Concurrency, AnInterruptTellsWhatWasNotRun) {
  GatedOrigin origin;
  Program program(HTTPPOOL_PROGRAM,
                  {"get", "--concurrency", "1", origin.url("/1"), origin.url("/2"), origin.url("/3")});
  origin.release("/1");
  ASSERT_EQ(origin.arrivals(2).size(), 2U);
  program.signal(SIGINT);
  const Finished finished = program.wait();
  EXPECT_EQ(finished.status, 130);
  EXPECT_NE(finished.out.find("/1  body of /1\n"), std::string::npos) << finished.out;
  EXPECT_NE(finished.out.find("/2  reset: still running when interrupted\n"), std::string::npos)
      << finished.out;
  EXPECT_NE(finished.out.find("/3  not run: interrupted before its turn\n"), std::string::npos)
      << finished.out;
  EXPECT_EQ(origin.arrivals(2).size(), 2U);
}

}  // namespace
}  // namespace tooltest
