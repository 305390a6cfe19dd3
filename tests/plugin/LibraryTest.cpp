// The reference plug-in with the library itself, and the bundle that ./run --traced uses.

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>

#include "tests/plugin/TracedHost.h"
#include "tests/support/Files.h"
#include "tests/support/NginxServer.h"

namespace test {
namespace {

std::string printedBy(const ChildProcess::Options& asked) {
  const TemporaryFolder folder;
  ChildProcess::Options options = asked;
  options.outputFile = folder.file("output");
  ChildProcess process(options);
  EXPECT_EQ(process.wait(std::chrono::minutes(2)), (ChildProcess::End{.exitStatus = 0, .signal = 0}));
  return readFile(options.outputFile);
}

class TracedLibrary : public testing::Test {
 protected:
  long count(char letter, const std::string& begin) const {
    const auto lines = host.lines();
    return std::count_if(lines.begin(), lines.end(), [&](const TracedLine& line) {
      return line.letter == letter && line.text.starts_with(begin);
    });
  }

  NginxServer server;
  TracedHost host{C_HOST_PROGRAM};
};

TEST_F(TracedLibrary, FindsThePluginAndTracesARequest) {
  const std::string url = server.url("/text?a=%25n%25s");
  EXPECT_EQ(host.run({url}), "status 3\nHello, pool!");
  EXPECT_EQ(count('D', "--> ZEP_HttpPool_Create"), 1);
  EXPECT_EQ(count('D', "<-- ZEP_HttpPool_Create"), 1);
  EXPECT_EQ(count('D', "-[MacDownloader Start], Cocoa http Call start thread to download: " + url), 1);
  EXPECT_EQ(count('I', "-[MacDownloader connection:didReceiveResponse:], m_statusCode:200"), 1);
  const auto lines = host.lines();
  const auto response = std::find_if(lines.begin(), lines.end(), [](const TracedLine& line) {
    return line.text.find("didReceiveResponse:], m_statusCode") != std::string::npos;
  });
  ASSERT_NE(response, lines.end());
  EXPECT_EQ(response->name, "zep.downloader");
  EXPECT_NE(response->thread, response->process);
}

TEST_F(TracedLibrary, FramesOfFunctionsAreDroppedUnderAThresholdOfTwo) {
  host.run({server.url("/text")}, {{"QLX_TRACE_LEVEL", "2"}});
  EXPECT_EQ(count('D', ""), 0);
  EXPECT_GT(count('I', ""), 0);
}

TEST_F(TracedLibrary, AUrlForgesNoLine) {
  host.run({"http://127.0.0.1/a\n2026-11-21T14:31:53.123456+01:00 E 1/1 x | forged \x1b[2J"});
  EXPECT_EQ(count('E', "forged"), 0);
  EXPECT_GE(count('E',
                  "-[MacDownloadEngine generateURLRequest:postData:headerFields:] destUrl is empty, "
                  "url:http://127.0.0.1/a\\n2026-11-21T14:31:53.123456+01:00 E 1/1 x | forged \\x1b[2J"),
            1);
}

TEST_F(TracedLibrary, WorksOnWhenNothingCanBeTraced) {
  EXPECT_EQ(host.run({server.url("/text")}, {{"QLX_TRACE_FILE", "/dev/full"}}), "status 3\nHello, pool!");
}

TEST(TracedBundle, OfTheToolTracesItsDemo) {
  const TemporaryFolder folder;
  const std::string trace = folder.file("trace");
  printedBy({.arguments = {TRACED_TOOL, "demo"},
             .environment = {
                 {"QLX_TRACE_FILE", trace}, {"QLX_TRACE_LEVEL", "1"}, {"LD_LIBRARY_PATH", std::nullopt}}});
  ASSERT_TRUE(fileExists(trace));
  const auto texts = textsOf(tracedLines(readFile(trace)));
  EXPECT_NE(std::find(texts.begin(), texts.end(), "--> ZEP_HttpPool_Create"), texts.end());
}

TEST(TracePlugin, ExportsItsFiveFunctionsAndNothingElse) {
  std::istringstream lines(
      printedBy({.arguments = {NM_PROGRAM, "-D", "--defined-only", "--format=posix", TRACE_PLUGIN}}));
  std::set<std::string> names;
  for (std::string line; std::getline(lines, line);) {
    names.insert(line.substr(0, line.find(' ')));
  }
  EXPECT_EQ(names, (std::set<std::string>{"QLXDEBUG", "QLXERROR", "QLXINFO", "QLXWARN", "QlxGetTraceLevel"}));
}

}  // namespace
}  // namespace test
