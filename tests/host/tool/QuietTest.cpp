// --quiet: bodies, and what went wrong.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "CannedOrigin.h"
#include "GatedOrigin.h"
#include "Program.h"
#include "Scratch.h"

namespace tooltest {
namespace {

TEST(Quiet, ShowsNothingButTheBody) {
  CannedOrigin origin({{"/a", answer("200 OK", "caf\xe9")}});
  const Finished finished = httppool({"get", "-q", origin.url("/a")});
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.out, "caf\xe9");
  EXPECT_EQ(finished.err, "");
}

TEST(Quiet, ShowsBodiesInTheOrderOfTheTasks) {
  GatedOrigin origin;
  Program program(HTTPPOOL_PROGRAM, {"get", "--quiet", "--concurrency", "2", origin.url("/1"),
                                     origin.url("/2"), origin.url("/3")});
  origin.release("/2");
  ASSERT_EQ(origin.arrivals(3).size(), 3U);  // the second has ended before the first
  origin.release("/1");
  origin.release("/3");
  const Finished finished = program.wait();
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.out, "body of /1body of /2body of /3");
  EXPECT_EQ(finished.err, "");
}

TEST(Quiet, TellsOnStderrWhatWasNotDone) {
  const Scratch scratch;
  CannedOrigin origin({{"/a", answer("500 Internal Server Error", "no")}, {"/b", answer("200 OK", "got")}});
  const Finished finished = httppool({"get", "-q", origin.url("/a"), origin.url("/b")});
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.out, "got");
  EXPECT_TRUE(finished.err.starts_with("task failed ")) << finished.err;
  EXPECT_EQ(std::count(finished.err.begin(), finished.err.end(), '\n'), 1);
}

TEST(Quiet, SaysNothingOfADownload) {
  const Scratch scratch;
  CannedOrigin origin({{"/a", answer("200 OK", "content")}});
  const Finished finished = httppool({"get", "-q", origin.url("/a"), "-o", scratch.path("f")});
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.out + finished.err, "");
  EXPECT_EQ(scratch.read("f"), "content");
}

}  // namespace
}  // namespace tooltest
