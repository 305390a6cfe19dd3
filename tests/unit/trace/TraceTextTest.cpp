#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "WrittenLog.h"
#include "tools/httppool/TraceText.h"
#include "tools/httppool/TraceWords.h"

namespace httppool {
namespace {

std::string shown(const std::vector<std::string>& logs) {
  char* bytes = nullptr;
  std::size_t size = 0;
  std::FILE* stream = open_memstream(&bytes, &size);
  TraceText text(stream);
  TraceRoad road([&text](TraceRequest&& request) { text.showRequest(request); });
  TraceLog log([&road](const TraceRecord& record) { road.take(record); });
  for (std::string copy : logs) {
    std::FILE* file = fmemopen(copy.data(), copy.size(), "r");
    EXPECT_TRUE(log.read(file));
    std::fclose(file);
  }
  log.finish();
  road.finish();
  text.showRest(log, road);
  std::fclose(stream);
  std::string result(bytes, size);
  std::free(bytes);
  return result;
}

TEST(TraceTextTest, ARoadIsALineForEachStepWithItsTimes) {
  WrittenLog written;
  written.launch(0, 1, "http://host/path");
  for (int i = 0; i < 3; ++i) {
    written.line(50 + 10 * i, downloader(201), "-[MacDownloader SetDownloadState:], state:7", 'I');
    written.line(51 + 10 * i, host(), "-[MacDownloadEngine DownloadStateChanged:] state:7");
    written.line(51 + 10 * i, host(), "CHttpCallMacImpl::OnDownloadStateChange,  SessionID: 5001, state:7");
  }
  EXPECT_EQ(shown({written.end(80, 1, "http://host/path", 0).text()}),
            R"(#1  done  80.0 ms  host/path
    2026-11-21 14:00:00.000000 +01:00, process 100, thread 100, downloader's thread 201
          ms         gap  thread
         0.0              host        ZEP_HttpPool_TaskRun is called
         0.1         0.1  host        the downloader's thread is started
         0.3         0.2  host        ZEP_HttpPool_TaskRun returns
         0.4         0.1  downloader  the thread runs
        50.0        49.6  downloader  receiving (3 times, until 70.0)
        51.0         1.0  host        the task is told: receiving (3 times, until 71.0)
        80.0         9.0  downloader  succeeded
        80.1         0.1  host        the downloader is stopped, its state is succeeded
        80.2         0.1  host        the task is told: succeeded

1 request in 20 records; 0 lines of no request
)");
}

TEST(TraceTextTest, WhatIsLeftOverIsTold) {
  WrittenLog written;
  written.line(5, host(), "--> ZEP_HttpPool_TaskRun").line(3, host(), "<-- ZEP_HttpPool_TaskRun");
  written.line(6, host(), "-[MacDownloader dealloc], Cocoa http Call dealloc for calling: http://host/");
  written.line(7, host(), "text").line(8, host(), "the store is gone", 'E').raw("a stranger\ntorn");
  EXPECT_EQ(shown({written.text()}),
            R"(0 requests in 5 records; 5 lines of no request:
  1 call of ZEP_HttpPool_TaskRun, which started nothing
  1 release of a downloader, but of which request is not traced
  1 other line
  14:00:00.008000 error: the store is gone
1 line not of the format of a trace
1 last line without an end, not used
the clock was set back 1 time, at most by 2.0 ms: durations across that are wrong
)");
}

TEST(TraceTextTest, DurationsAndCountsReadWell) {
  EXPECT_EQ(duration(52'449), "52.4 ms");
  EXPECT_EQ(duration(2'003'400), "2.003 s");
  EXPECT_EQ(duration(-2'000'000), "-2.000 s");
  EXPECT_EQ(counted(1, "line"), "1 line");
  EXPECT_EQ(counted(0, "line"), "0 lines");
  EXPECT_EQ(counted(2, "ox", "oxen"), "2 oxen");
}

}  // namespace
}  // namespace httppool
