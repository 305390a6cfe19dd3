// --json: an object for each task.

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <string>
#include <vector>

#include "CannedOrigin.h"
#include "JsonLines.h"
#include "Program.h"
#include "Scratch.h"

namespace tooltest {
namespace {

Json::Value onlyLine(const Finished& finished) {
  const std::vector<Json::Value> lines = jsonLines(finished.out);
  EXPECT_EQ(lines.size(), 1U) << finished.out;
  EXPECT_EQ(finished.err, "");
  return lines.empty() ? Json::Value() : lines.front();
}

TEST(Json, TellsATaskThatIsDone) {
  const std::string body =
      "Gr\xc3\xbc\xc3\x9f"
      "e \xf0\x9f\x8c\x8d \"\\\n\x1b[2J\xc2\x9b end";
  CannedOrigin origin({{"/a", answer("200 OK", body)}});
  const Finished finished = httppool({"get", "--json", origin.url("/a")});
  EXPECT_EQ(finished.status, 0);
  const Json::Value line = onlyLine(finished);
  EXPECT_EQ(line["pool"], "get");
  EXPECT_EQ(line["name"], origin.url("/a"));
  EXPECT_EQ(line["url"], origin.url("/a"));
  EXPECT_EQ(line["status"], "successfully done");
  EXPECT_EQ(line["statusNumber"], 3);
  EXPECT_EQ(line["ending"], "ended");
  EXPECT_TRUE(line["elapsed"].isDouble());
  EXPECT_EQ(line["bytes"].asUInt64(), body.size());
  EXPECT_EQ(line["result"].asString(), body);
  EXPECT_FALSE(line.isMember("errorID"));
  EXPECT_TRUE(std::all_of(finished.out.begin(), finished.out.end(),
                          [](char c) { return c == '\n' || (c >= 0x20 && c < 0x7f); }));
}

TEST(Json, GivesBytesThatAreNotUtf8InBase64) {
  CannedOrigin origin({{"/a", answer("200 OK", "caf\xe9\xff")}});
  const Json::Value line = onlyLine(httppool({"get", "--json", origin.url("/a")}));
  EXPECT_EQ(line["resultBase64"], "Y2Fm6f8=");
  EXPECT_EQ(line["bytes"], 5);
  EXPECT_FALSE(line.isMember("result"));
}

TEST(Json, GivesALongBodyWhole) {
  const std::string body(300'000, 'x');
  CannedOrigin origin({{"/a", answer("200 OK", body)}});
  EXPECT_EQ(onlyLine(httppool({"get", "--json", origin.url("/a")}))["result"].asString(), body);
}

TEST(Json, TellsTheErrorOfATaskThatFailed) {
  CannedOrigin origin({{"/a", answer("500 Internal Server Error", "no")}});
  const Finished finished = httppool({"get", "--json", origin.url("/a")});
  EXPECT_EQ(finished.status, 1);
  const Json::Value line = onlyLine(finished);
  EXPECT_EQ(line["status"], "task failed");
  EXPECT_EQ(line["statusNumber"], 5);
  EXPECT_EQ(line["errorID"], 2);
  EXPECT_EQ(line["errorReason"], 0);
  EXPECT_FALSE(line.isMember("result"));
  EXPECT_FALSE(line.isMember("bytes"));
}

TEST(Json, TellsARefusedUrl) {
  const Json::Value line = onlyLine(httppool({"get", "--json", "http://a b/"}));
  EXPECT_EQ(line["ending"], "refused");
  EXPECT_FALSE(line.isMember("errorID"));
}

TEST(Json, TellsTheFileOfADownload) {
  const Scratch scratch;
  CannedOrigin origin({{"/a", answer("200 OK", "content")}});
  const Json::Value line = onlyLine(httppool({"get", "--json", origin.url("/a"), "-o", scratch.path("f")}));
  EXPECT_EQ(line["file"], scratch.path("f"));
  EXPECT_EQ(line["written"], true);
  EXPECT_EQ(line["bytes"], 7);
  EXPECT_FALSE(line.isMember("result"));
}

TEST(Json, TellsTheTargetOfARedirect) {
  CannedOrigin origin({{"/a", answer("302 Found", "", "Location: /b\r\n")}});
  const Json::Value line =
      onlyLine(httppool({"get", "--json", origin.url("/a"), "-H", "Exchange-Autodiscover: 1"}));
  EXPECT_EQ(line["redirect"], "/b");
}

TEST(Json, TellsPoolsAndTheSnapshotOfAJobFile) {
  const Scratch scratch;
  CannedOrigin origin({{"/a", answer("200 OK", "got")}});
  const std::string jobs =
      scratch.write("jobs.json", R"({"pools":[{"name":"p\n","tasks":[{"name":"\u001b","url":")" +
                                     origin.url("/a") + R"("}]}]})");
  const std::vector<Json::Value> lines = jsonLines(httppool({"run", jobs, "--json", "--snapshot"}).out);
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0]["pool"], "p\n");
  EXPECT_EQ(lines[0]["name"], "\x1b");
  EXPECT_EQ(lines[1]["snapshot"][0]["poolName"], "p\n");
}

TEST(Json, IsWhatATerminalGets) {
  CannedOrigin origin({{"/a", answer("200 OK", "\xff")}});
  const std::string out = httppoolOnTerminal({"get", "--json", origin.url("/a")}).out;
  EXPECT_TRUE(out.starts_with("{") && out.ends_with("}\r\n")) << out;
}

TEST(Json, TellsWhatAnInterruptHasReset) {
  CannedOrigin origin({});
  Program program(HTTPPOOL_PROGRAM, {"get", "--json", origin.url("/never")});
  ASSERT_NE(origin.requestFor("/never"), "");
  program.signal(SIGTERM);
  const Finished finished = program.wait();
  EXPECT_EQ(finished.status, 143);
  EXPECT_EQ(onlyLine(finished)["ending"], "interrupted");
}

}  // namespace
}  // namespace tooltest
