// Bodies that go to a file.

#include <gtest/gtest.h>

#include <fstream>

#include "tests/host/HostPool.h"
#include "tests/support/Files.h"
#include "tests/support/NginxServer.h"
#include "tests/support/TemporaryFolder.h"

namespace test {
namespace {

TEST(Download, ResultIsThePathAndTheFileHoldsTheBody) {
  NginxServer server;
  TemporaryFolder folder;
  HostPool pool;
  const std::string path = folder.file("text");
  EXPECT_EQ(pool.run({.url = server.url("/text"), .file = path}), done(path));
  EXPECT_EQ(readFile(path), "Hello, pool!");
}

TEST(Download, SixtyFourMegabytesArriveByteByByte) {
  NginxServer server;
  TemporaryFolder folder;
  constexpr std::size_t kBytes = std::size_t{64} << 20;
  {
    // Bytes that are no text and do not repeat.
    std::string content(kBytes, '\0');
    unsigned state = 12345;
    for (char& byte : content) {
      state = state * 1664525U + 1013904223U;
      byte = static_cast<char>(state >> 24);
    }
    writeFile(server.folder() + "/files/large", content);
  }
  HostPool pool;
  const std::string path = folder.file("large");
  // nginx serves files for GET only.
  EXPECT_EQ(pool.run({.url = server.url("/files/large"), .headers = {{"HttpMethonGet", ""}}, .file = path}),
            done(path));
  EXPECT_TRUE(readFile(path) == readFile(server.folder() + "/files/large"));
}

TEST(Download, ReplacesAnOlderLongerFile) {
  NginxServer server;
  TemporaryFolder folder;
  HostPool pool;
  const std::string path = folder.file("text");
  writeFile(path, std::string(1000, 'o'));
  EXPECT_EQ(pool.run({.url = server.url("/text"), .file = path}), done(path));
  EXPECT_EQ(readFile(path), "Hello, pool!");
}

TEST(Download, PathThatCannotBeWrittenIsDoneAllTheSame) {
  NginxServer server;
  TemporaryFolder folder;
  HostPool pool;
  const std::string path = folder.file("no such folder/text");
  EXPECT_EQ(pool.run({.url = server.url("/text"), .file = path}), done(path));
  EXPECT_FALSE(fileExists(path));
}

TEST(Download, FailureWritesNoFile) {
  NginxServer server;
  TemporaryFolder folder;
  HostPool pool;
  const std::string path = folder.file("error");
  EXPECT_EQ(pool.run({.url = server.url("/status/500"), .file = path}), failed(2));
  EXPECT_EQ(pool.run({.url = server.url("/cut"), .file = path}), failed(1));
  EXPECT_FALSE(fileExists(path));
}

TEST(Download, NotFoundIsWrittenWithItsBody) {
  NginxServer server;
  TemporaryFolder folder;
  HostPool pool;
  const std::string path = folder.file("missing");
  EXPECT_EQ(pool.run({.url = server.url("/status/404"), .file = path}), done(path));
  EXPECT_EQ(readFile(path), "status 404");
}

TEST(Download, FromAFileToAFile) {
  TemporaryFolder folder;
  HostPool pool;
  writeFile(folder.file("from"), std::string("with a \0 byte", 13));
  EXPECT_EQ(pool.run({.url = "file://" + folder.file("from"), .file = folder.file("to")}),
            done(folder.file("to")));
  EXPECT_EQ(readFile(folder.file("to")), std::string("with a \0 byte", 13));
}

}  // namespace
}  // namespace test
