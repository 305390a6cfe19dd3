// Tracing, from the plug-in's side: a host in a folder shaped like a bundle, the recording plug-in where the
// library looks for it.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/NginxServer.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TraceRecord.h"

namespace test {
namespace {

using Piece = TracePiece;

class Trace : public testing::Test {
 protected:
  Trace() {
    std::filesystem::create_directories(folder_.file("X/Contents/MacOS"));
    std::filesystem::create_directories(folder_.file("X/Contents/PlugIns"));
    std::filesystem::copy_file(C_HOST_PROGRAM, folder_.file("X/Contents/MacOS/host"));
    std::filesystem::copy_file(TRACE_PLUGIN, folder_.file("X/Contents/PlugIns/qlxtracedylib.dylib"));
  }

  /// Runs the host with the plug-in's threshold at that level; what the plug-in was handed.
  std::vector<Piece> traced(std::vector<std::string> arguments, int level = 1) {
    const std::string record = folder_.file("record");
    const std::string output = folder_.file("output");
    std::filesystem::remove(record);
    arguments.insert(arguments.begin(), folder_.file("X/Contents/MacOS/host"));
    ChildProcess host(
        {.arguments = arguments,
         .environment = {{"TRACE_RECORD_FILE", record}, {"TRACE_RECORD_LEVEL", std::to_string(level)}},
         .outputFile = output});
    const auto end = host.wait(std::chrono::minutes(3));
    EXPECT_EQ(end.value_or(ChildProcess::End{}).exitStatus, 0) << readFile(output);
    return readTraceRecord(record);
  }

  NginxServer server_;
  TemporaryFolder folder_;
};

std::vector<std::string> texts(const std::vector<Piece>& pieces, const std::string& writer) {
  std::vector<std::string> result;
  for (const Piece& piece : pieces) {
    if (piece.writer == writer) {
      result.push_back(piece.text);
    }
  }
  return result;
}

/// Passes when a piece of that writer is the text.
testing::AssertionResult holds(const std::vector<Piece>& pieces, const std::string& writer,
                               const std::string& text) {
  std::string all;
  for (const Piece& piece : pieces) {
    if (piece.writer == writer && piece.text == text) {
      return testing::AssertionSuccess();
    }
    all += piece.writer + " " + piece.text.substr(0, 300);
  }
  return testing::AssertionFailure() << writer << " has not: " << text << "\nall:\n" << all;
}

TEST_F(Trace, EveryFunctionButTwoIsFramed) {
  std::vector<std::string> frames;
  for (const Piece& piece : traced({server_.url("/text")})) {
    if (piece.text.starts_with("--> ") || piece.text.starts_with("<-- ")) {
      EXPECT_EQ(piece.writer, "QLXDEBUG");
      frames.push_back(piece.text);
    }
  }
  std::vector<std::string> expected;
  for (const char* function : {"Create", "SetPoolProc", "AddTask", "SetTaskProperty", "TaskRun",
                               "GetTaskProperty", "GetTaskProperty", "GetTaskList", "GetSnapshot",
                               "TaskReset", "SetTaskDataProperty", "RemoveTask", "ClearTask", "Destroy"}) {
    expected.push_back(std::string("--> ZEP_HttpPool_") + function);
    expected.push_back(std::string("<-- ZEP_HttpPool_") + function);
  }
  EXPECT_EQ(frames, expected);
}

/// The call status at the end of a line of the form "NotifyHttpCallStatus, sessionID: 123status7"; 0 for
/// other texts.
char notifiedStatus(const std::string& text) {
  const std::string begin = "NotifyHttpCallStatus, sessionID: ";
  if (!text.starts_with(begin)) {
    return 0;
  }
  const std::size_t at = begin.size() + (text[begin.size()] == '-' ? 1 : 0);
  const std::size_t end = text.find_first_not_of("0123456789", at);
  const std::string word = "status";
  const bool isWhole = end != std::string::npos && end > at && text.compare(end, word.size(), word) == 0 &&
                       text.size() == end + word.size() + 2 && text.back() == '\n';
  EXPECT_TRUE(isWhole) << text;
  return isWhole ? text[end + word.size()] : '?';
}

TEST_F(Trace, StatusOfACallIsWrittenWithoutABlank) {
  std::string states;
  for (const std::string& text : texts(traced({server_.url("/text")}), "QLXDEBUG")) {
    if (const char status = notifiedStatus(text); status != 0) {
      states += status;
    }
  }
  // Data that arrived, once or more often, then the end.
  ASSERT_FALSE(states.empty());
  EXPECT_EQ(states.back(), '0');
  EXPECT_EQ(states.find_first_not_of('7'), states.size() - 1) << states;
}

TEST_F(Trace, DownloaderTellsItsSteps) {
  const std::string url = server_.url("/tracking");
  const auto pieces = traced({url});
  EXPECT_TRUE(holds(pieces, "QLXDEBUG",
                    "-[MacDownloader Start], Cocoa http Call start thread to download: " + url + "\n"));
  EXPECT_TRUE(
      holds(pieces, "QLXINFO", "-[MacDownloader connection:didReceiveResponse:], m_statusCode:200\n"));
  EXPECT_TRUE(
      holds(pieces, "QLXINFO",
            "-[NSURLResponse(GetHeaderAdditions) printHeadValue:] trackingID: track-4711 from 127.0.0.1\n"));
  EXPECT_TRUE(holds(pieces, "QLXDEBUG",
                    "-[MacDownloader connectionDidFinishLoading:], connectionDidFinishLoading: " + url +
                        ", m_statusCode=200\n"));
  EXPECT_TRUE(holds(pieces, "QLXWARN", "-[MacDownloader setErrorCode:], errorcode:0\n"));
  EXPECT_TRUE(holds(pieces, "QLXINFO", "-[MacDownloader SetDownloadState:], state:0\n"));
  EXPECT_TRUE(
      holds(pieces, "QLXDEBUG",
            "-[MacDownloader Stop], Cocoa http Call stop thread to call: " + url + ", current state: 0\n"));
  EXPECT_TRUE(holds(pieces, "QLXDEBUG",
                    "-[MacDownloader dealloc], Cocoa http Call dealloc for calling: " + url + "\n"));
}

TEST_F(Trace, FailureIsTracedWithUrlAndReason) {
  const std::string url = server_.url("/close");
  const auto pieces = traced({url});
  EXPECT_TRUE(holds(pieces, "QLXWARN",
                    "-[MacDownloader connection:didFailWithError:], m_targetUrlString:" + url + "\n"));
  EXPECT_TRUE(holds(pieces, "QLXWARN", "-[MacDownloader setErrorCode:], errorcode:1\n"));
  EXPECT_TRUE(holds(
      pieces, "QLXINFO",
      "-[MacDownloadEngine DownloadStateChanged:] http call retry count > 3, failed! url:" + url + "\n"));
  const auto errors = texts(pieces, "QLXERROR");
  ASSERT_EQ(errors.size(), 1U);
  EXPECT_TRUE(errors[0].starts_with("-[MacDownloader connection:didFailWithError:], error:")) << errors[0];
  EXPECT_NE(errors[0].find(", error localizedDescription:"), std::string::npos) << errors[0];
  EXPECT_EQ(server_.accesses("/close").size(), 1U) << "it was retried";
}

TEST_F(Trace, PasswordOfAUrlIsNotWritten) {
  std::string url = server_.url("/close");
  url.insert(url.find("//") + 2, "alice:open-sesame@");
  for (const std::string& asked : {url, url + " with a blank"}) {
    const auto pieces = traced({asked});
    bool isNamed = false;
    for (const Piece& piece : pieces) {
      EXPECT_EQ(piece.text.find("open-sesame"), std::string::npos) << piece.text;
      isNamed = isNamed || piece.text.find("alice:***@") != std::string::npos;
    }
    EXPECT_TRUE(isNamed) << "the URL is not traced at all";
  }
}

TEST_F(Trace, RefusedLaunchIsAnError) {
  const auto errors = texts(traced({"http://127.0.0.1/a b"}), "QLXERROR");
  ASSERT_EQ(errors.size(), 2U);
  EXPECT_EQ(errors[0],
            "-[MacDownloadEngine generateURLRequest:postData:headerFields:] destUrl is empty, "
            "url:http://127.0.0.1/a b\n");
  EXPECT_EQ(errors[1],
            "-[MacDownloadEngine AsyncDownloadWithUrl:downloadType:eventSink:postContent:headerFields:] "
            "urlRequest is "
            "nil, url:http://127.0.0.1/a b\n");
}

// Entry and exit lines pass every threshold; the plug-in decides about them.
TEST_F(Trace, ThresholdHoldsLowerLevelsBack) {
  const std::string url = server_.url("/close");
  const auto warnings = traced({url}, 4);
  EXPECT_TRUE(texts(warnings, "QLXINFO").empty());
  EXPECT_FALSE(texts(warnings, "QLXWARN").empty());
  EXPECT_FALSE(texts(warnings, "QLXERROR").empty());
  const auto framesOnly = texts(warnings, "QLXDEBUG");
  EXPECT_EQ(framesOnly.size(), 28U);
  for (const std::string& text : framesOnly) {
    EXPECT_TRUE(text.starts_with("--> ") || text.starts_with("<-- ")) << text;
  }
  const auto errors = traced({url}, 8);
  EXPECT_TRUE(texts(errors, "QLXWARN").empty());
  EXPECT_FALSE(texts(errors, "QLXERROR").empty());
  const auto none = traced({url}, 16);
  EXPECT_TRUE(texts(none, "QLXERROR").empty());
  EXPECT_EQ(texts(none, "QLXDEBUG").size(), 28U);
}

TEST_F(Trace, LongResponseIsCutIntoPieces) {
  constexpr std::size_t kPiece = 2046;
  const auto debug = texts(traced({server_.url("/big?bytes=10000")}), "QLXDEBUG");
  const auto isBegin = [](const std::string& text) {
    return text.starts_with("GetSuccessResult, SessionID: ");
  };
  const auto begin = std::find_if(debug.begin(), debug.end(), isBegin);
  ASSERT_NE(begin, debug.end());
  std::string line;
  auto piece = begin;
  for (; piece != debug.end() && piece->size() == kPiece; ++piece) {
    line += *piece;
  }
  ASSERT_NE(piece, debug.end());
  line += *piece;
  const std::size_t response = line.find(", Response: ");
  ASSERT_NE(response, std::string::npos);
  EXPECT_EQ(line.substr(response + 12), NginxServer::bigBody(10000) + "\n");
  EXPECT_EQ(piece - begin, static_cast<long>(line.size() / kPiece));
}

TEST_F(Trace, PercentSignsDoNotHurt) {
  const std::string url = server_.url("/text?a=%25n%25s%25s");
  EXPECT_TRUE(holds(traced({url}), "QLXDEBUG",
                    "-[MacDownloader Start], Cocoa http Call start thread to download: " + url + "\n"));
}

TEST_F(Trace, HeaderFieldLeftOutIsAWarning) {
  const auto pieces = traced({server_.url("/text"), R"({"X-Bad":"of-secrets\r\nX-Injected: 1"})"});
  bool named = false;
  for (const Piece& piece : pieces) {
    if (piece.text.find("X-Bad") != std::string::npos) {
      named = named || piece.writer == "QLXWARN";
    }
    EXPECT_EQ(piece.text.find("of-secrets"), std::string::npos) << piece.text;
  }
  EXPECT_TRUE(named);
}

TEST_F(Trace, NothingIsLoadedOutsideABundle) {
  std::filesystem::create_directories(folder_.file("Y/bin"));
  std::filesystem::create_directories(folder_.file("Y/PlugIns"));
  std::filesystem::copy_file(C_HOST_PROGRAM, folder_.file("Y/bin/host"));
  std::filesystem::copy_file(TRACE_PLUGIN, folder_.file("Y/PlugIns/qlxtracedylib.dylib"));
  const std::string record = folder_.file("record");
  const std::string output = folder_.file("output");
  ChildProcess host({.arguments = {folder_.file("Y/bin/host"), server_.url("/text")},
                     .environment = {{"TRACE_RECORD_FILE", record}, {"TRACE_RECORD_LEVEL", "1"}},
                     .outputFile = output});
  ASSERT_TRUE(host.wait(std::chrono::minutes(3)).has_value());
  EXPECT_EQ(readFile(output), "status 3\nHello, pool!");
  EXPECT_FALSE(fileExists(record));
}

}  // namespace
}  // namespace test
