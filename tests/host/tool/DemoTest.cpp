// The demo shows every item, finds it as promised, and leaves nothing behind.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "Program.h"
#include "Scratch.h"

namespace tooltest {
namespace {

TEST(Demo, ShowsEveryItemAndFindsItAsPromised) {
  const Scratch scratch;
  const Finished finished = httppool({"demo"}, {"TMPDIR=" + scratch.path()});
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.err, "");
  for (const char* part : {"A GET:", "A POST:", "received 12 bytes: colour=green\n", "Header fields:",
                           "X-Colour: green, Adjacency: (not sent)\n", "A redirect is followed.",
                           "A 404 is done", "There is no such page.\n", "A 500 fails", "A 429 fails",
                           "A 429 of a Glint request", "{\"errorID\":5,\"errorReason\":7000}\n",
                           "cannot be reached", "A download:", "/file (100000 bytes)\n", "A destroyed pool",
                           "\"poolName\":\"short-lived\"", "after []\n", "All 11 came out as promised.\n"}) {
    EXPECT_NE(finished.out.find(part), std::string::npos) << part << "\nin\n" << finished.out;
  }
  EXPECT_EQ(finished.out.find("DIFFERS"), std::string::npos) << finished.out;
  EXPECT_TRUE(std::filesystem::is_empty(scratch.path()));
}

TEST(Demo, IsNotLedAstrayByAProxy) {
  const Finished finished = httppool({"demo"}, {"http_proxy=http://127.0.0.1:1/"});
  EXPECT_EQ(finished.status, 0) << finished.out;
}

TEST(Demo, FailsWhenSomethingDiffers) {
  // With bodies limited to 1,000 bytes the download must fail, and the demo must say so.
  const Finished finished = httppool({"demo"}, {"ZEP_URL_MAX_BODY_BYTES=1000"});
  EXPECT_EQ(finished.status, 1);
  EXPECT_NE(finished.out.find("  DIFFERS, expected: the path,"), std::string::npos) << finished.out;
  EXPECT_NE(finished.out.find("\n1 of 11 came out differently.\n"), std::string::npos) << finished.out;
}

}  // namespace
}  // namespace tooltest
