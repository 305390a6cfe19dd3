#include <gtest/gtest.h>

#include "tools/httppool/TraceLine.h"

namespace httppool {
namespace {

using Kind = TraceLine::Kind;

TEST(TraceLineTest, HasTheValuesOfItsKind) {
  const TraceLine stop = readTraceLine(
      "-[MacDownloader Stop], Cocoa http Call stop thread to call: http://a/, current state: 7, current "
      "state: 0");
  EXPECT_EQ(stop.kind, Kind::Stop);
  EXPECT_EQ(stop.name, "http://a/, current state: 7") << "what a URL holds is not taken for the state";
  EXPECT_EQ(stop.number, 0);
  const TraceLine call =
      readTraceLine("CHttpCallMacImpl::StartDownload, SessionID: 94123456789012, downloader: 0x55d0c0ffee00");
  EXPECT_EQ(call.kind, Kind::Call);
  EXPECT_EQ(call.session, 94123456789012);
  EXPECT_EQ(call.downloader, 0x55d0c0ffee00U);
  const TraceLine notified = readTraceLine("NotifyHttpCallStatus, sessionID: -123status7");
  EXPECT_EQ(notified.kind, Kind::TaskNotified);
  EXPECT_EQ(notified.session, -123);
  EXPECT_EQ(notified.number, 7);
  const TraceLine redirect = readTraceLine(
      "-[MacDownloader connection:willSendRequest:redirectResponse:], m_statusCode:307, remotehost:other");
  EXPECT_EQ(redirect.kind, Kind::Redirect);
  EXPECT_EQ(redirect.number, 307);
  EXPECT_EQ(redirect.name, "other");
  EXPECT_EQ(readTraceLine("--> ZEP_HttpPool_TaskRun").name, "ZEP_HttpPool_TaskRun");
}

TEST(TraceLineTest, ALineThatOnlyBeginsLikeOneIsAnother) {
  for (const char* text : {
           "",
           "-[MacDownloader SetDownloadState:], state:",
           "-[MacDownloader SetDownloadState:], state:1x",
           "-[MacDownloader SetDownloadState:], state:99999999999",
           "-[MacDownloader Stop], Cocoa http Call stop thread to call: http://a/",
           "-[MacDownloader Stop], downloader:55d0",
           "CHttpCallMacImpl::StartDownload, SessionID: x, downloader: 0x5",
           "-[MacDownloader handleAuthenticationChallenge:], cancelled",
           "x--> ZEP_HttpPool_TaskRun",
       }) {
    EXPECT_EQ(readTraceLine(text).kind, Kind::Other) << text;
  }
}

}  // namespace
}  // namespace httppool
