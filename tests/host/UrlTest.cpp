// What property 5 may hold.

#include <gtest/gtest.h>

#include "tests/host/HostPool.h"
#include "tests/support/Files.h"
#include "tests/support/NginxServer.h"
#include "tests/support/TemporaryFolder.h"

namespace test {
namespace {

TEST(Url, FileIsRead) {
  TemporaryFolder folder;
  writeFile(folder.file("a file.txt"), "from a file");
  HostPool pool;
  EXPECT_EQ(pool.run({.url = "file://" + folder.file("a%20file.txt")}), done("from a file"));
}

TEST(Url, MissingFileFails) {
  TemporaryFolder folder;
  HostPool pool;
  EXPECT_EQ(pool.run({.url = "file://" + folder.file("missing.txt")}), failed(6));
}

TEST(Url, FolderIsNoFile) {
  TemporaryFolder folder;
  HostPool pool;
  EXPECT_EQ(pool.run({.url = "file://" + folder.path()}), failed(6));
}

class UnloadableUrl : public testing::TestWithParam<const char*> {};

TEST_P(UnloadableUrl, IsLaunchedAndFails) {
  HostPool pool;
  pool.add("task", {.url = GetParam()});
  EXPECT_EQ(pool.launch("task"), ZEP_HTTP_TASK_REQUESTING);
  ASSERT_TRUE(pool.await());
  EXPECT_EQ(pool.outcome("task"), failed(6));
}

INSTANTIATE_TEST_SUITE_P(Scheme, UnloadableUrl,
                         testing::Values("ftp://127.0.0.1/x", "mailto:somebody@example.test", "data:,text",
                                         "gopher://127.0.0.1/", "ws://127.0.0.1/"));
// A text without a scheme is a URL, the empty text too; there is only nothing to load them from.
INSTANTIATE_TEST_SUITE_P(Relative, UnloadableUrl,
                         testing::Values("", "/text", "text", "//127.0.0.1/text", "?query", "#fragment"));

class MalformedUrl : public testing::TestWithParam<const char*> {};

TEST_P(MalformedUrl, IsRefusedAtTheLaunch) {
  HostPool pool;
  pool.add("task", {.url = GetParam()});
  EXPECT_EQ(pool.launch("task"), ZEP_HTTP_TASK_FAILED);
  EXPECT_EQ(pool.status("task"), ZEP_HTTP_TASK_FAILED);
  EXPECT_EQ(pool.property("task", ZEP_HTTP_TASK_PROP_RESULT), "");
}

INSTANTIATE_TEST_SUITE_P(All, MalformedUrl,
                         testing::Values("http://127.0.0.1/a b", " http://127.0.0.1/", "http://127.0.0.1/ü",
                                         "http://127.0.0.1/%", "http://127.0.0.1/%zz", "http://[::1/",
                                         "http://127.0.0.1/a\r\nX-Injected: 1", "http://127.0.0.1/\x01",
                                         "http://127.0.0.1/<a>", "http://127.0.0.1/\"a\""));

TEST(Url, MalformedOneCanBeMendedAndRunAgain) {
  NginxServer server;
  HostPool pool;
  pool.add("task", {.url = "http://127.0.0.1/a b"});
  ASSERT_EQ(pool.launch("task"), ZEP_HTTP_TASK_FAILED);
  pool.set("task", ZEP_HTTP_TASK_PROP_URL, server.url("/text"));
  ASSERT_EQ(pool.launch("task"), ZEP_HTTP_TASK_REQUESTING);
  ASSERT_TRUE(pool.await());
  EXPECT_EQ(pool.outcome("task"), done("Hello, pool!"));
}

TEST(Url, QueryAndEscapesArriveAsGiven) {
  NginxServer server;
  HostPool pool;
  const std::string target = "/text?a=%20b&c=d%2Fe;f=(g)'*!~";
  ASSERT_EQ(pool.run({.url = server.url(target)}), done("Hello, pool!"));
  const auto accesses = server.accesses("/text");
  ASSERT_EQ(accesses.size(), 1U);
  EXPECT_EQ(accesses[0].target, target);
}

TEST(Url, FragmentIsNotSent) {
  NginxServer server;
  HostPool pool;
  ASSERT_EQ(pool.run({.url = server.url("/text#part")}), done("Hello, pool!"));
  EXPECT_EQ(server.accesses("/text").size(), 1U);
}

TEST(Url, OfThirtyThousandBytesIsSent) {
  NginxServer server;
  HostPool pool;
  const std::string target = "/text?" + std::string(30'000, 'q');
  ASSERT_EQ(pool.run({.url = server.url(target)}), done("Hello, pool!"));
  const auto accesses = server.accesses("/text");
  ASSERT_EQ(accesses.size(), 1U);
  EXPECT_EQ(accesses[0].target, target);
}

}  // namespace
}  // namespace test
