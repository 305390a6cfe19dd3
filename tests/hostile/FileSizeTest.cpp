// Hosts whose files reach the limit of their size, with SIGXFSZ at its default: the monitor's record, the report and
// the trace, and a download.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <numeric>
#include <sstream>
#include <string>
#include <vector>

#include "tests/plugin/TracedHost.h"
#include "tests/support/Files.h"
#include "tests/support/RawServer.h"

namespace test {
namespace {

using Lines = std::vector<std::string>;

const std::string kBody(3000, 'b');

/// Of the lines of the host's own thread, which have to be whole.
Lines hostsTexts(const std::string& trace) {
  std::vector<TracedLine> lines = tracedLines(trace);
  std::erase_if(lines, [](const TracedLine& line) { return line.thread != line.process; });
  return textsOf(lines);
}

class FileSizeLimit : public testing::TestWithParam<std::size_t> {
 protected:
  FileSizeLimit() {
    std::filesystem::create_directories(host_.path("Tilvo"));
    std::filesystem::create_directory(host_.path("downloads"));
    writeFile(
        host_.path("Tilvo/pool-task-config.plist"),
        R"(<?xml version="1.0"?><plist version="1.0"><dict><key>Taskmonitor</key><true/></dict></plist>)");
  }

  /// What it printed.
  std::string run() const {
    return host_.run({server_.url("/"), std::to_string(GetParam()), host_.path("downloads")},
                     {{"ZEP_APPLICATIONS_DIR", host_.path("")}, {"LC_ALL", "C"}});
  }
  std::string downloaded(const std::string& phase) const {
    return readFile(host_.path("downloads/" + phase));
  }
  /// The names of the monitor's record, each behind its date.
  Lines recordedNames() const {
    Lines names;
    std::istringstream lines(readFile(host_.path("Tilvo/pool-task-monitor.txt")));
    for (std::string date, name; std::getline(lines, date);) {
      EXPECT_NE(date.find(':'), std::string::npos) << "no date: " << date;
      std::getline(lines, name);
      names.push_back(name);
    }
    return names;
  }

  TracedHost host_{LIMITED_HOST_PROGRAM};

 private:
  RawServer server_{RawServer::answering(
      "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(kBody.size()) + "\r\n\r\n" + kBody)};
};

TEST_P(FileSizeLimit, NeitherEndsAHostNorSpoilsWhatItWritesLater) {
  std::string expected;
  for (const char* phase : {"limited", "after"}) {
    expected += std::string(phase) + " text: 3 " + kBody + "\n" + phase + " file: 3 " +
                host_.path("downloads/") + phase + "\n";
  }
  EXPECT_EQ(run(), expected + "signal: none\n");
  EXPECT_TRUE(downloaded("limited") == kBody.substr(0, GetParam()));
  EXPECT_TRUE(downloaded("after") == kBody);

  Lines names = {"p after short", "p after " + std::string(1000, 'l')};
  if (GetParam() > 0) {
    names.insert(names.begin(), "p limited short");
  }
  EXPECT_EQ(recordedNames(), names) << "whole records only";

  const std::string trace = readFile(host_.file());
  ASSERT_GT(trace.size(), GetParam());
  const bool endsInALine = GetParam() > 0 && trace[GetParam() - 1] != '\n';
  if (endsInALine) {
    ASSERT_EQ(trace[GetParam()], '\n') << "what fitted stays, on a line of its own";
  }
  const Lines texts = hostsTexts(trace.substr(GetParam() + (endsInALine ? 1 : 0)));
  const auto document =
      std::find_if(texts.rbegin(), texts.rend(), [](const auto& text) { return text.starts_with("[{"); });
  ASSERT_NE(document, texts.rend()) << "no report";
  // It comes in pieces.
  const std::string report = std::accumulate(std::prev(document.base()), texts.end(), std::string());
  for (const char* task : {"limited text", "limited file", "after text", "after file"}) {
    EXPECT_NE(report.find(R"("name":")" + std::string(task) + "\""), std::string::npos) << report;
  }
  EXPECT_EQ(std::count(texts.begin(), texts.end(), "<-- ZEP_HttpPool_TaskRun"), 2);
}

INSTANTIATE_TEST_SUITE_P(All, FileSizeLimit, testing::Values(0, 300), testing::PrintToStringParamName());

}  // namespace
}  // namespace test
