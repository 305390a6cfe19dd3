// httppool run: pools and tasks of a job file.

#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/value.h>

#include <algorithm>
#include <sstream>
#include <string>

#include "CannedOrigin.h"
#include "Program.h"
#include "Scratch.h"

namespace tooltest {
namespace {

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST(Run, RunsEveryTaskOfTwoPools) {
  const Scratch scratch;
  scratch.write("body", std::string("b\0c", 3));
  CannedOrigin origin({{"/get", answer("200 OK", "got")},
                       {"/post", answer("200 OK", "posted")},
                       {"/put", answer("404 Not Found", "nowhere")},
                       {"/file", answer("200 OK", "content")}});
  const std::string jobs =
      scratch.write("jobs.json",
                    "{\"pools\":[{\"name\":\"one\",\"tasks\":["
                    "{\"name\":\"t\",\"url\":\"" +
                        origin.url("/get") +
                        "\",\"headers\":{\"X-Colour\":\"green\"}},"
                        "{\"name\":\"p\",\"url\":\"" +
                        origin.url("/post") +
                        "\",\"post\":\"k=v\"}]},"
                        "{\"name\":\"two\",\"tasks\":["
                        "{\"name\":\"t\",\"url\":\"" +
                        origin.url("/put") + "\",\"method\":\"PUT\",\"dataFile\":\"" + scratch.path("body") +
                        "\"},"
                        "{\"name\":\"d\",\"url\":\"" +
                        origin.url("/file") + "\",\"download\":\"" + scratch.path("f") + "\"}]}]}");
  const Finished finished = httppool({"run", jobs, "--snapshot"});
  EXPECT_EQ(finished.status, 0) << finished.out << finished.err;
  EXPECT_TRUE(contains(finished.out, "  one/t  got\n")) << finished.out;
  EXPECT_TRUE(contains(finished.out, "  one/p  posted\n")) << finished.out;
  EXPECT_TRUE(contains(finished.out, "  two/t  nowhere\n")) << finished.out;
  EXPECT_TRUE(contains(finished.out, "  two/d  " + scratch.path("f") + " (7 bytes)\n")) << finished.out;
  EXPECT_EQ(scratch.read("f"), "content");
  EXPECT_TRUE(contains(origin.requestFor("/get"), "\r\nX-Colour: green\r\n"));
  EXPECT_EQ(origin.requestFor("/get").rfind("GET ", 0), 0U);
  EXPECT_TRUE(origin.requestFor("/post").ends_with("\r\n\r\nk=v"));
  EXPECT_EQ(origin.requestFor("/put").rfind("PUT ", 0), 0U);
  EXPECT_TRUE(origin.requestFor("/put").ends_with(std::string("\r\n\r\nb\0c", 7)));

  Json::Value snapshot;
  std::istringstream(finished.out.substr(finished.out.find("\n[") + 1)) >> snapshot;
  ASSERT_EQ(snapshot.size(), 2U);
  EXPECT_EQ(snapshot[0]["poolName"], "one");
  EXPECT_EQ(snapshot[1]["poolName"], "two");
  EXPECT_EQ(snapshot[1]["taskList"].size(), 2U);
}

TEST(Run, EndsWithOneWhenATaskFails) {
  const Scratch scratch;
  CannedOrigin origin({{"/a", answer("200 OK", "got")}, {"/b", answer("403 Forbidden", "no")}});
  const std::string jobs =
      scratch.write("jobs.json", R"({"pools":[{"name":"p","tasks":[{"name":"a","url":")" + origin.url("/a") +
                                     R"("},{"name":"b","url":")" + origin.url("/b") + R"("}]}]})");
  const Finished finished = httppool({"run", jobs});
  EXPECT_EQ(finished.status, 1);
  EXPECT_TRUE(contains(finished.out, "  p/a  got\n")) << finished.out;
  EXPECT_TRUE(contains(finished.out, "  p/b  {\"errorID\":2,\"errorReason\":0}\n")) << finished.out;
}

TEST(Run, EscapesItsNames) {
  const Scratch scratch;
  CannedOrigin origin({{"/a", answer("200 OK", "got")}});
  const std::string jobs =
      scratch.write("jobs.json", R"({"pools":[{"name":"p\n","tasks":[{"name":"\u001b[2J","url":")" +
                                     origin.url("/a") + R"("}]}]})");
  EXPECT_TRUE(contains(httppool({"run", jobs}).out, "  p\\n/\\x1b[2J  got\n"));
}

TEST(Run, ResetsWhatIsStillRunningAtTheTimeLimit) {
  const Scratch scratch;
  CannedOrigin origin({});
  const std::string jobs =
      scratch.write("jobs.json", R"({"pools":[{"name":"p","tasks":[{"name":"slow","url":")" +
                                     origin.url("/never") + R"("}]}]})");
  const Finished finished = httppool({"run", jobs, "--timeout", "0.3"});
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.out.rfind("uninitialized ", 0), 0U) << finished.out;
  EXPECT_TRUE(contains(finished.out, "  p/slow  reset: still running at the time limit\n")) << finished.out;
}

TEST(Run, ManyTasksAllEnd) {
  const Scratch scratch;
  CannedOrigin origin({{"/a", answer("200 OK", "got")}});
  std::string tasks;
  for (int index = 0; index < 200; ++index) {
    tasks += (index == 0 ? "" : ",") + std::string(R"({"name":")") + std::to_string(index) + R"(","url":")" +
             origin.url("/a") + "\"}";
  }
  const std::string jobs = scratch.write("jobs.json", R"({"pools":[{"name":"p","tasks":[)" + tasks + "]}]}");
  const Finished finished = httppool({"run", jobs});
  EXPECT_EQ(finished.status, 0) << finished.out;
  EXPECT_EQ(std::count(finished.out.begin(), finished.out.end(), '\n'), 200);
}

}  // namespace
}  // namespace tooltest
