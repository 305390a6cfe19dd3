#include "WrittenLog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <stdexcept>

namespace {

constexpr long kMicrosecondsPerMinute = 60'000'000;

std::string clockAt(double milliseconds) {
  const auto microseconds = static_cast<long>(milliseconds * 1000 + 0.5);
  const long minute = microseconds / kMicrosecondsPerMinute;
  const long rest = microseconds % kMicrosecondsPerMinute;
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "2026-11-21T%02ld:%02ld:%02ld.%06ld+01:00", 14 + minute / 60,
                minute % 60, rest / 1'000'000, rest % 1'000'000);
  return text.data();
}

std::string identity(unsigned number) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "0x%x", 0xd0 + number);
  return text.data();
}

std::string session(unsigned number) {
  return std::to_string(5000 + number);
}

}  // namespace

Source host(std::uint32_t process) {
  return {process, process, "host"};
}

Source downloader(std::uint32_t thread, std::uint32_t process) {
  return {process, thread, "zep.downloader"};
}

WrittenLog& WrittenLog::line(double time, const Source& source, const std::string& text, char level) {
  return raw(clockAt(time) + " " + level + " " + std::to_string(source.process) + "/" +
             std::to_string(source.thread) + " " + source.name + " | " + text + "\n");
}

WrittenLog& WrittenLog::raw(const std::string& text) {
  text_ += text;
  return *this;
}

WrittenLog& WrittenLog::launch(double time, unsigned number, const std::string& url, std::uint32_t process) {
  line(time, host(process), "--> ZEP_HttpPool_TaskRun");
  line(time + 0.1, host(process), "-[MacDownloader Start], Cocoa http Call start thread to download: " + url);
  line(
      time + 0.2, host(process),
      "CHttpCallMacImpl::StartDownload, SessionID: " + session(number) + ", downloader: " + identity(number));
  line(time + 0.3, host(process), "<-- ZEP_HttpPool_TaskRun");
  return line(time + 0.4, downloader(200 + number, process),
              "-[MacDownloader ThreadProc], downloader:" + identity(number));
}

WrittenLog& WrittenLog::end(double time, unsigned number, const std::string& url, int state,
                            std::uint32_t process) {
  const Source thread = downloader(200 + number, process);
  const std::string code = std::to_string(state);
  line(time, thread, "-[MacDownloader SetDownloadState:], state:" + code, 'I');
  line(time + 0.1, host(process), "-[MacDownloader Stop], downloader:" + identity(number));
  line(time + 0.1, host(process),
       "-[MacDownloader Stop], Cocoa http Call stop thread to call: " + url + ", current state: " + code);
  line(time + 0.2, host(process), "-[MacDownloadEngine DownloadStateChanged:] state:" + code);
  line(time + 0.2, host(process),
       "CHttpCallMacImpl::OnDownloadStateChange,  SessionID: " + session(number) + ", state:" + code);
  return line(time + 0.3, host(process),
              "NotifyHttpCallStatus, sessionID: " + session(number) + "status" + code);
}

WrittenLog& WrittenLog::reset(double time, unsigned number, const std::string& url, int state) {
  line(time, host(), "--> ZEP_HttpPool_TaskReset");
  line(time + 0.1, host(), "-[MacDownloader Stop], downloader:" + identity(number));
  line(time + 0.1, host(),
       "-[MacDownloader Stop], Cocoa http Call stop thread to call: " + url +
           ", current state: " + std::to_string(state));
  return line(time + 0.2, host(), "<-- ZEP_HttpPool_TaskReset");
}

const httppool::TraceRequest& ReadLog::request(std::uint64_t number) const {
  const auto found = std::find_if(requests.begin(), requests.end(),
                                  [number](const auto& request) { return request.number == number; });
  if (found == requests.end()) {
    throw std::runtime_error("there is no request " + std::to_string(number));
  }
  return *found;
}

ReadLog readLog(const std::vector<std::string>& logs) {
  ReadLog read;
  httppool::TraceRoad road(
      [&read](httppool::TraceRequest&& request) { read.requests.push_back(std::move(request)); });
  httppool::TraceLog log([&](const httppool::TraceRecord& record) {
    read.records.push_back(record);
    road.take(record);
  });
  for (const std::string& text : logs) {
    std::string copy = text;
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(fmemopen(copy.data(), copy.size(), "r"),
                                                               &std::fclose);
    EXPECT_TRUE(log.read(file.get()));
  }
  log.finish();
  road.finish();
  read.others = road.others();
  read.givenUp = road.givenUp();
  read.recordCount = log.records();
  read.foreignLines = log.foreignLines();
  read.tornLines = log.tornLines();
  read.stepsBack = log.stepsBack();
  read.longestStepBack = log.longestStepBack();
  return read;
}

ReadLog readLog(const WrittenLog& log) {
  return readLog(std::vector<std::string>{log.text()});
}

std::vector<std::string> stepsOf(const httppool::TraceRequest& request) {
  std::vector<std::string> steps;
  for (const httppool::TraceStep& step : request.steps) {
    const std::string where = step.where == httppool::TraceStep::Where::Host ? "h " : "d ";
    steps.push_back(where + step.text + (step.times > 1 ? " x" + std::to_string(step.times) : ""));
  }
  return steps;
}
