// Hosts that get no memory, at each allocation of a request on the host's thread.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>

#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/RawServer.h"
#include "tests/support/TemporaryFolder.h"

namespace test {
namespace {

/// What memory_host says when each of so many allocations is refused, in the process's first request (cold) or in a
/// later one (warm).
std::string sweep(int most, const std::string& request) {
  RawServer server([](RawServer::Connection& connection) {
    connection.readRequest();
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\nConnection: close\r\n\r\ngood");
    connection.readToEnd();
  });
  TemporaryFolder folder;
  ChildProcess host(
      {.arguments = {MEMORY_HOST_PROGRAM, server.url("/"), "0", std::to_string(most), "1", "1", request},
       .outputFile = folder.file("output")});
  EXPECT_EQ(host.wait(std::chrono::minutes(3)), (ChildProcess::End{.exitStatus = 0}));
  std::string said = readFile(folder.file("output"));
  // The library beneath says something of its own.
  std::string own;
  for (std::size_t begin = 0; begin < said.size();) {
    const std::size_t end = std::min(said.find('\n', begin), said.size());
    const std::string line = said.substr(begin, end - begin);
    if (line.starts_with("refused ") || line.ends_with(" refusals")) {
      own += line + "\n";
    }
    begin = end + 1;
  }
  return own;
}

TEST(RefusedMemory, OnTheHostsThreadEndsNeitherTheHostNorTheNextRequest) {
  for (const char* request : {"warm", "cold"}) {
    const std::string said = sweep(60, request);
    EXPECT_TRUE(said.starts_with("60 children, ")) << request << ":\n" << said;
    EXPECT_FALSE(said.ends_with(" 0 refusals\n")) << request;
  }
}

}  // namespace
}  // namespace test
