#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "WrittenLog.h"

namespace httppool {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using Outcome = TraceRequest::Outcome;

constexpr const char* kUrl = "http://host:80/path?secret#part";
constexpr const char* kHandle = "-[MacDownloader handleAuthenticationChallenge:]";

std::vector<TracePhase::Kind> phasesOf(const TraceRequest& request) {
  std::vector<TracePhase::Kind> kinds;
  for (const TracePhase& phase : request.phases) {
    kinds.push_back(phase.kind);
  }
  return kinds;
}

TEST(TraceRoadTest, ARequestIsToldFromItsLaunchToItsEnd) {
  WrittenLog written;
  written.launch(0, 1, kUrl);
  written.line(50, downloader(201), "-[MacDownloader connection:didReceiveResponse:], m_statusCode:200", 'I');
  written.line(60, downloader(201), "-[MacDownloader SetDownloadState:], state:7", 'I');
  written.line(61, host(), "-[MacDownloadEngine DownloadStateChanged:] state:7");
  written.line(61, host(), "CHttpCallMacImpl::OnDownloadStateChange,  SessionID: 5001, state:7");
  written.line(61, host(), "NotifyHttpCallStatus, sessionID: 5001status7");
  written.line(70, downloader(201), "-[MacDownloader SetDownloadState:], state:7", 'I');
  written.line(79, downloader(201),
               "-[MacDownloader connectionDidFinishLoading:], connectionDidFinishLoading: " +
                   std::string(kUrl) + ", m_statusCode=200");
  written.line(79, downloader(201), "-[MacDownloader setErrorCode:], errorcode:0", 'W');
  written.end(80, 1, kUrl, 0);
  written.line(80.5, host(), "GetSuccessResult, SessionID: 5001, Response: 12345");
  const ReadLog log = readLog(written);
  ASSERT_EQ(log.requests.size(), 1U);
  const TraceRequest& request = log.requests[0];
  EXPECT_EQ(request.number, 1U);
  EXPECT_EQ(request.process, 100U);
  EXPECT_EQ(request.hostThread, 100U);
  EXPECT_EQ(request.downloaderThread, 201U);
  EXPECT_TRUE(request.isStartKnown);
  EXPECT_EQ(request.target, "host:80/path") << "the rest of a URL may be private";
  EXPECT_EQ(outcomeText(request), "done, HTTP 200");
  EXPECT_EQ(request.end - request.start, 80'000);
  EXPECT_THAT(stepsOf(request),
              ElementsAre("h ZEP_HttpPool_TaskRun is called", "h the downloader's thread is started",
                          "h ZEP_HttpPool_TaskRun returns", "d the thread runs", "d response: HTTP 200",
                          "d receiving x2", "h the task is told: receiving", "d the body is there",
                          "d succeeded", "h the downloader is stopped, its state is succeeded",
                          "h the task is told: succeeded", "h the task takes the result: 5 bytes"));
  EXPECT_THAT(phasesOf(request), ElementsAre(TracePhase::Kind::Started, TracePhase::Kind::Response,
                                             TracePhase::Kind::Receiving, TracePhase::Kind::HandOver));
  EXPECT_EQ(request.phases[2].from - request.start, 60'000);
  EXPECT_EQ(request.phases[2].to - request.start, 80'000);
  EXPECT_EQ(log.others.lines, 0U);
}

// Requests to one URL, whose lines mix.
TEST(TraceRoadTest, RequestsSideBySideAreToldApart) {
  WrittenLog written;
  for (unsigned number = 1; number <= 5; ++number) {
    written.launch(number, number, kUrl);
  }
  for (unsigned number = 1; number <= 5; ++number) {
    written.line(
        50 + number, downloader(200 + number),
        "-[MacDownloader connection:didReceiveResponse:], m_statusCode:" + std::to_string(200 + number), 'I');
  }
  for (unsigned number = 5; number >= 1; --number) {
    written.end(100 - number, number, kUrl, number % 2);
  }
  const ReadLog log = readLog(written);
  ASSERT_EQ(log.requests.size(), 5U);
  EXPECT_EQ(log.requests[0].number, 5U) << "they are passed on as they end";
  for (unsigned number = 1; number <= 5; ++number) {
    const TraceRequest& request = log.request(number);
    EXPECT_EQ(request.httpStatus, static_cast<int>(200 + number));
    EXPECT_EQ(request.downloaderThread, 200 + number);
    EXPECT_EQ(request.outcome, number % 2 == 0 ? Outcome::Done : Outcome::Failed);
    EXPECT_EQ(request.toldState, number % 2);
  }
  EXPECT_EQ(log.others.lines, 0U);
}

TEST(TraceRoadTest, ProcessesAreToldApart) {
  WrittenLog written;
  written.launch(0, 1, "http://one/", 100).launch(1, 1, "http://two/", 300);
  written.end(50, 1, "http://two/", 1, 300).end(60, 1, "http://one/", 0, 100);
  const ReadLog log = readLog(written);
  ASSERT_EQ(log.requests.size(), 2U);
  EXPECT_EQ(log.request(1).target, "one/");
  EXPECT_EQ(log.request(1).outcome, Outcome::Done);
  EXPECT_EQ(log.request(2).target, "two/");
  EXPECT_EQ(log.request(2).outcome, Outcome::Failed);
}

TEST(TraceRoadTest, AThreadThatBeginsBeforeItsLaunchIsTracedBelongsToIt) {
  WrittenLog written;
  written.line(0, host(), "--> ZEP_HttpPool_TaskRun");
  written.line(1, host(), "-[MacDownloader Start], Cocoa http Call start thread to download: http://host/");
  written.line(2, downloader(201), "-[MacDownloader ThreadProc], downloader:0xd1");
  written.line(3, downloader(201), "-[MacDownloader connection:didReceiveResponse:], m_statusCode:404", 'I');
  written.line(4, host(), "CHttpCallMacImpl::StartDownload, SessionID: 5001, downloader: 0xd1");
  written.line(5, host(), "<-- ZEP_HttpPool_TaskRun");
  written.end(6, 1, "http://host/", 0);
  const ReadLog log = readLog(written);
  ASSERT_EQ(log.requests.size(), 1U);
  EXPECT_EQ(outcomeText(log.requests[0]), "done, HTTP 404");
  EXPECT_THAT(stepsOf(log.requests[0]), Contains("d the thread runs"));
}

TEST(TraceRoadTest, ARedirectIsAStepAndAMark) {
  WrittenLog written;
  written.launch(0, 1, kUrl);
  written.line(
      50, downloader(201),
      "-[MacDownloader connection:willSendRequest:redirectResponse:], m_statusCode:302, remotehost:other");
  written.end(60, 1, kUrl, 0);
  const TraceRequest request = readLog(written).request(1);
  EXPECT_THAT(stepsOf(request), Contains("d redirect followed: HTTP 302, to other"));
  ASSERT_EQ(request.marks.size(), 1U);
  EXPECT_EQ(request.marks[0].kind, TraceMark::Kind::Redirect);
  EXPECT_EQ(request.marks[0].time - request.start, 50'000);
}

TEST(TraceRoadTest, ACapturedRedirectEndsAsItsTaskWasTold) {
  WrittenLog written;
  written.launch(0, 1, kUrl);
  written.line(50, downloader(201), "-[MacDownloader connection:didReceiveResponse:], m_statusCode:302", 'I');
  written.line(50, downloader(201), "-[MacDownloader SetDownloadState:], state:8", 'I');
  written.line(51, host(), "-[MacDownloadEngine DownloadStateChanged:] state:8");
  written.line(51, host(), "CHttpCallMacImpl::OnDownloadStateChange,  SessionID: 5001, state:8");
  WrittenLog failed = written;
  written.reset(90, 1, kUrl, 8);
  EXPECT_EQ(outcomeText(readLog(written).request(1)), "redirected, HTTP 302");
  failed.line(52, downloader(201), "-[MacDownloader setErrorCode:], errorcode:2", 'W').end(53, 1, kUrl, 1);
  EXPECT_EQ(outcomeText(readLog(failed).request(1)), "failed, HTTP 302, error 2 (server)");
}

TEST(TraceRoadTest, AChallengeIsAPhaseUntilItIsAnswered) {
  WrittenLog written;
  written.launch(0, 1, kUrl);
  const Source thread = downloader(201);
  written.line(50, thread, kHandle + std::string(", remotehost:host"), 'I');
  written.line(50, thread, kHandle + std::string(", NSURLAuthenticationMethodNTLM"), 'I');
  written.line(50, thread,
               kHandle + std::string(", no creden and need let user input user name and password"), 'I');
  written.line(900, thread, "-[MacDownloader SetNTLMAskedInfo:password:], proxyName:alice", 'I');
  written.line(900, thread, kHandle + std::string(", got user input"), 'I');
  written.line(901, thread,
               kHandle + std::string(", credential m_ntlmUserName:alice, m_bRemember:0, for ulr:host"), 'I');
  written.line(950, thread, "-[MacDownloader connection:didReceiveResponse:], m_statusCode:200", 'I');
  written.end(960, 1, kUrl, 0);
  const TraceRequest request = readLog(written).request(1);
  EXPECT_THAT(phasesOf(request),
              ElementsAre(TracePhase::Kind::Started, TracePhase::Kind::Challenge, TracePhase::Kind::Started,
                          TracePhase::Kind::Response, TracePhase::Kind::HandOver));
  EXPECT_EQ(request.phases[1].to - request.phases[1].from, 851'000);
  ASSERT_EQ(request.marks.size(), 1U);
  EXPECT_EQ(request.marks[0].kind, TraceMark::Kind::Challenge);
  EXPECT_THAT(stepsOf(request), Contains("d the host is asked for a user name and a password"));
  for (const std::string& step : stepsOf(request)) {
    EXPECT_EQ(step.find("alice"), std::string::npos) << step;
  }
}

TEST(TraceRoadTest, AChallengeThatStaysUnansweredIsOpenToTheEnd) {
  WrittenLog plain;
  plain.launch(0, 1, kUrl).line(50, downloader(201), kHandle + std::string(", remotehost:host"), 'I');
  plain.reset(5000, 1, kUrl, 2);
  EXPECT_EQ(outcomeText(readLog(plain).request(1)), "stopped, a challenge was open");
  // Every https server shows its certificate: whether that is still to be answered is not traced.
  WrittenLog encrypted;
  encrypted.launch(0, 1, "https://host/");
  encrypted.line(50, downloader(201), kHandle + std::string(", remotehost:host"), 'I');
  encrypted.reset(5000, 1, "https://host/", 2);
  const TraceRequest request = readLog(encrypted).request(1);
  EXPECT_EQ(outcomeText(request), "stopped, waiting for an answer");
  EXPECT_EQ(request.marks.size(), 1U);
}

TEST(TraceRoadTest, AFailureHasItsReason) {
  WrittenLog written;
  written.launch(0, 1, kUrl);
  const Source thread = downloader(201);
  written.line(50, thread, "-[MacDownloader connection:didFailWithError:], m_targetUrlString:http://host/",
               'W');
  written.line(50, thread,
               "-[MacDownloader connection:didFailWithError:], error:it broke, error localizedDescription:x",
               'E');
  written.line(50, thread, "-[MacDownloader setErrorCode:], errorcode:1", 'W');
  written.end(51, 1, kUrl, 1);
  const TraceRequest request = readLog(written).request(1);
  EXPECT_EQ(outcomeText(request), "failed, error 1 (connection)");
  EXPECT_THAT(stepsOf(request), Contains("d failed: it broke"));
}

TEST(TraceRoadTest, AResetIsTheCallsThatMadeIt) {
  WrittenLog written;
  written.launch(0, 1, kUrl).line(50, downloader(201), "-[MacDownloader SetDownloadState:], state:7", 'I');
  written.reset(70, 1, kUrl, 7);
  const ReadLog log = readLog(written);
  const TraceRequest& request = log.request(1);
  EXPECT_EQ(outcomeText(request), "stopped, receiving");
  EXPECT_EQ(request.stoppedBy, "ZEP_HttpPool_TaskReset");
  EXPECT_EQ(request.end - request.start, 70'100);
  EXPECT_EQ(stepsOf(request).back(),
            "h ZEP_HttpPool_TaskReset: the downloader is stopped, its state is receiving");
  EXPECT_THAT(log.others.calls, IsEmpty());
}

TEST(TraceRoadTest, ARefusedUrlIsARequestOfItsOwn) {
  WrittenLog written;
  written.line(0, host(), "--> ZEP_HttpPool_TaskRun");
  written.line(
      1, host(),
      "-[MacDownloadEngine generateURLRequest:postData:headerFields:] destUrl is empty, url:http://a b/",
      'E');
  written.line(
      1, host(),
      "-[MacDownloadEngine AsyncDownloadWithUrl:downloadType:eventSink:postContent:headerFields:] urlRequest "
      "is nil, url:http://a b/",
      'E');
  written.line(2, host(), "<-- ZEP_HttpPool_TaskRun");
  const ReadLog log = readLog(written.launch(3, 1, kUrl));
  ASSERT_EQ(log.requests.size(), 2U);
  EXPECT_EQ(outcomeText(log.requests[0]), "refused");
  EXPECT_EQ(log.requests[0].target, "a b/");
  EXPECT_THAT(stepsOf(log.requests[0]),
              ElementsAre("h ZEP_HttpPool_TaskRun is called", "h refused: not a URL",
                          "h ZEP_HttpPool_TaskRun returns"));
}

TEST(TraceRoadTest, WhatHasNoEndInTheLogSaysSo) {
  WrittenLog written;
  written.launch(0, 1, kUrl);
  written.line(50, downloader(201), "-[MacDownloader SetDownloadState:], state:7", 'I');
  const TraceRequest request = readLog(written).request(1);
  EXPECT_EQ(outcomeText(request), "no end in this log, receiving");
  EXPECT_EQ(request.end - request.start, 50'000);
}

// A log that was cut, or one without debug lines.
TEST(TraceRoadTest, ARequestIsMadeOutByItsThreadAlone) {
  WrittenLog written;
  for (int time : {0, 100}) {
    written.line(time, downloader(7), kHandle + std::string(", remotehost:host"), 'I');
    written.line(time + 1, downloader(7), "-[MacDownloader connection:didReceiveResponse:], m_statusCode:500",
                 'I');
    written.line(time + 1, downloader(7), "-[MacDownloader setErrorCode:], errorcode:2", 'W');
    written.line(time + 2, downloader(7), "-[MacDownloader SetDownloadState:], state:1", 'I');
    written.line(time + 3, downloader(7),
                 "-[NSURLResponse(GetHeaderAdditions) printHeadValue:] trackingID: 4 from host", 'I');
  }
  const ReadLog log = readLog(written);
  ASSERT_EQ(log.requests.size(), 2U) << "one thread's number may come again";
  for (const TraceRequest& request : log.requests) {
    EXPECT_FALSE(request.isStartKnown);
    EXPECT_EQ(request.target, "host");
    EXPECT_EQ(outcomeText(request), "failed, HTTP 500, error 2 (server)");
    EXPECT_EQ(stepsOf(request).back(), "d tracking id: 4 from host");
    EXPECT_EQ(request.end - request.start, 2000) << "it was over with its final state";
  }
  EXPECT_EQ(log.others.lines, 0U);
}

// Without debug lines nothing says that a thread has ended: what is over is passed on all the same.
TEST(TraceRoadTest, RequestsThatAreMadeOutByTheirThreadsDoNotPileUp) {
  std::size_t passed = 0;
  TraceRoad road([&passed](TraceRequest&&) { ++passed; });
  TraceRecord record;
  record.threadName = "zep.downloader";
  record.text = "-[MacDownloader SetDownloadState:], state:0";
  for (record.thread.thread = 1; record.thread.thread <= 1000; ++record.thread.thread) {
    road.take(record);
  }
  EXPECT_GT(passed, 900U);
  road.finish();
  EXPECT_EQ(passed, 1000U);
}

TEST(TraceRoadTest, ARequestWhoseLaunchIsCutOffIsStillStopped) {
  WrittenLog written;
  written.line(0, downloader(201), "-[MacDownloader ThreadProc], downloader:0xd1");
  written.line(1, downloader(201), "-[MacDownloader connection:didReceiveResponse:], m_statusCode:200", 'I');
  written.end(2, 1, kUrl, 0);
  const ReadLog log = readLog(written);
  ASSERT_EQ(log.requests.size(), 1U);
  EXPECT_EQ(outcomeText(log.requests[0]), "done, HTTP 200");
  EXPECT_EQ(log.requests[0].hostThread, 100U);
  EXPECT_EQ(log.requests[0].toldState, 0);
  EXPECT_FALSE(log.requests[0].isStartKnown);
}

TEST(TraceRoadTest, ARequestWithoutAThreadFailsWhereItWasLaunched) {
  WrittenLog written;
  written.line(0, host(), "--> ZEP_HttpPool_TaskRun");
  written.line(0, host(), "-[MacDownloader Start], Cocoa http Call start thread to download: http://host/");
  written.line(0, host(), "-[MacDownloader setErrorCode:], errorcode:6", 'W');
  written.line(0, host(), "-[MacDownloader SetDownloadState:], state:1", 'I');
  written.line(0, host(), "CHttpCallMacImpl::StartDownload, SessionID: 5001, downloader: 0xd1");
  written.line(0, host(), "<-- ZEP_HttpPool_TaskRun");
  const ReadLog log = readLog(written);
  EXPECT_EQ(outcomeText(log.request(1)), "failed, error 6 (other)");
  EXPECT_EQ(log.others.lines, 0U);
}

// A call that is run again while it runs has two requests of one session.
TEST(TraceRoadTest, AStateOfACallWithSeveralRequestsIsNotGuessed) {
  WrittenLog written;
  written.launch(0, 1, kUrl).launch(1, 2, kUrl);
  std::string text = written.text();
  const std::string second = "SessionID: 5002";
  text.replace(text.find(second), second.size(), "SessionID: 5001");
  WrittenLog both;
  both.raw(text);
  both.line(50, host(), "-[MacDownloadEngine DownloadStateChanged:] state:7");
  both.line(50, host(), "CHttpCallMacImpl::OnDownloadStateChange,  SessionID: 5001, state:7");
  both.line(50, host(), "NotifyHttpCallStatus, sessionID: 5001status7");
  both.line(51, host(), "--> ZEP_HttpPool_GetSnapshot");
  both.line(52, host(), "<-- ZEP_HttpPool_GetSnapshot");
  const ReadLog log = readLog(both);
  EXPECT_FALSE(log.request(1).toldState);
  EXPECT_FALSE(log.request(2).toldState);
  EXPECT_EQ(log.others.states, 3U);
  EXPECT_EQ(log.others.lines, 5U);
}

TEST(TraceRoadTest, LinesOfNoRequestAreCountedAndWarningsKept) {
  WrittenLog written;
  written.line(0, host(), "--> ZEP_HttpPool_AddTask").line(1, host(), "<-- ZEP_HttpPool_AddTask");
  written.line(2, host(), "--> ZEP_HttpPool_TaskRun").line(3, host(), "<-- ZEP_HttpPool_TaskRun");
  written.line(4, host(), "-[MacDownloader dealloc], Cocoa http Call dealloc for calling: http://host/");
  written.line(5, {100, 103, "zep.urlloader"}, "the header field \\x1b[31m is left out", 'W');
  written.line(6, host(), "something else");
  written.line(7, host(), "--> a function of \\x1b nobody");
  written.line(8, host(), "-[MacDownloader SetDownloadState:], state:0", 'I');
  written.line(9, host(), "--> ZEP_HttpPool_\\x1b[31m");
  const ReadLog log = readLog(written);
  EXPECT_THAT(log.requests, IsEmpty());
  EXPECT_EQ(log.others.lines, 10U);
  EXPECT_EQ(log.others.calls.size(), 2U);
  EXPECT_EQ(log.others.calls.at("ZEP_HttpPool_AddTask"), 1U);
  EXPECT_EQ(log.others.calls.at("ZEP_HttpPool_TaskRun"), 1U);
  EXPECT_EQ(log.others.releases, 1U);
  EXPECT_EQ(log.others.texts, 4U);
  ASSERT_EQ(log.others.messages.size(), 1U);
  EXPECT_EQ(log.others.messages[0].level, 'W');
  EXPECT_EQ(log.others.messages[0].text, "the header field \\x1b[31m is left out");
}

TEST(TraceRoadTest, HostileTextsReachNoTerminal) {
  WrittenLog written;
  written.launch(0, 1, "http://ho\\x1b[31mst/\xff\\n");
  written.line(50, downloader(201), kHandle + std::string(", remotehost:\\x1b]0;x"), 'I');
  written.line(51, downloader(201), "what\\x07 ever \xe2\x80\xae", 'W');
  const TraceRequest request = readLog(written).request(1);
  EXPECT_EQ(request.target, "ho\\x1b[31mst/\\xff\\n");
  EXPECT_THAT(stepsOf(request), Contains("d challenge of \\x1b]0;x"));
  EXPECT_THAT(stepsOf(request), Contains("d what\\x07 ever \\u202e"));
}

TEST(TraceRoadTest, TheStepsOfARequestAreBounded) {
  WrittenLog written;
  written.launch(0, 1, kUrl);
  for (int i = 0; i < 1000; ++i) {
    written.line(1 + i, downloader(201), "text " + std::to_string(i));
  }
  written.end(2000, 1, kUrl, 1);
  const TraceRequest request = readLog(written).request(1);
  EXPECT_LE(request.steps.size(), TraceRequest::kMostSteps + 5);
  EXPECT_EQ(stepsOf(request).back(), "h the task is told: failed");
  EXPECT_GT(request.stepsNotKept, 700U);
}

TEST(TraceRoadTest, TheOldestIsGivenUpWhenTooManyAreOpen) {
  WrittenLog written;
  for (unsigned number = 1; number <= TraceOpenRequests::kMost + 2; ++number) {
    written.launch(1, number, kUrl);
  }
  written.end(10, 3, kUrl, 0);
  const ReadLog log = readLog(written);
  EXPECT_EQ(log.givenUp, 2U);
  EXPECT_EQ(log.requests.size(), TraceOpenRequests::kMost + 2);
  EXPECT_EQ(log.request(1).outcome, Outcome::NoEnd);
  EXPECT_EQ(log.request(3).outcome, Outcome::Done);
}

TEST(TraceRoadTest, AClockThatIsSetBackSpoilsNoPhase) {
  WrittenLog written;
  written.launch(5000, 1, kUrl);
  written.line(4000, downloader(201), "-[MacDownloader connection:didReceiveResponse:], m_statusCode:200",
               'I');
  written.line(3000, downloader(201), "-[MacDownloader SetDownloadState:], state:7", 'I');
  written.end(2000, 1, kUrl, 0);
  const TraceRequest request = readLog(written).request(1);
  EXPECT_EQ(request.phases.size(), 4U);
  for (const TracePhase& phase : request.phases) {
    EXPECT_LE(phase.from, phase.to);
  }
}

// Any lines in any order: nothing is asserted but that every request is passed on once.
TEST(TraceRoadTest, AnyOrderOfLinesIsRead) {
  WrittenLog whole;
  whole.launch(0, 1, kUrl).launch(1, 2, kUrl);
  whole.line(50, downloader(201), kHandle + std::string(", remotehost:host"), 'I');
  whole.end(60, 1, kUrl, 0).reset(70, 2, kUrl, 7).launch(80, 1, kUrl).end(90, 1, kUrl, 1);
  std::vector<std::string> lines;
  for (std::size_t at = 0; at < whole.text().size();) {
    const std::size_t end = whole.text().find('\n', at) + 1;
    lines.push_back(whole.text().substr(at, end - at));
    at = end;
  }
  std::uint32_t seed = 1;
  for (int round = 0; round < 2000; ++round) {
    std::string text;
    for (int i = 0; i < 60; ++i) {
      seed = seed * 1664525 + 1013904223;
      text += lines[(seed >> 8U) % lines.size()];
    }
    const ReadLog log = readLog({text});
    std::vector<std::uint64_t> numbers;
    for (const TraceRequest& request : log.requests) {
      numbers.push_back(request.number);
    }
    std::sort(numbers.begin(), numbers.end());
    for (std::size_t i = 0; i < numbers.size(); ++i) {
      ASSERT_EQ(numbers[i], i + 1) << text;
    }
  }
}

}  // namespace
}  // namespace httppool
