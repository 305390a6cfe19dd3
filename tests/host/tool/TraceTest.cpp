// httppool trace: the requests of logs that the library and the trace plug-in have really written.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "CannedOrigin.h"
#include "Program.h"
#include "Scratch.h"

namespace tooltest {
namespace {

using testing::HasSubstr;
using testing::Not;

class TraceCommand : public testing::Test {
 protected:
  // Runs a traced httppool; its trace goes into the log.
  Finished traced(const std::vector<std::string>& arguments, const std::string& level = "debug") {
    return Program(TRACED_HTTPPOOL_PROGRAM, arguments,
                   {"QLX_TRACE_FILE=" + log(), "QLX_TRACE_LEVEL=" + level})
        .wait();
  }
  // What `httppool trace` makes of the log.
  Finished shown(std::vector<std::string> arguments = {}) const {
    arguments.insert(arguments.begin(), {"trace", log()});
    return httppool(arguments);
  }
  std::string log() const { return scratch.path("trace.log"); }

  const Scratch scratch;
  CannedOrigin origin{{{"/text", answer("200 OK", "Hello")},
                       {"/broken", answer("500 Oh No", "sorry")},
                       {"/moved", answer("302 Found", "", "Location: /text\r\n")},
                       {"/big", answer("200 OK", std::string(5000, '\n') + std::string(5000, '\\'))},
                       {"/secret", answer("401 Unauthorized", "", "WWW-Authenticate: Basic realm=\"r\"\r\n")},
                       {"/rude", ""}}};
};

// Passes when the parts stand in the text in that order.
testing::AssertionResult hasInOrder(const std::string& text, const std::vector<std::string>& parts) {
  std::size_t at = 0;
  for (const std::string& part : parts) {
    at = text.find(part, at);
    if (at == std::string::npos) {
      return testing::AssertionFailure() << "\"" << part << "\" is not there, or not behind the others:\n"
                                         << text;
    }
    at += part.size();
  }
  return testing::AssertionSuccess();
}

TEST_F(TraceCommand, ShowsTheRoadOfARequest) {
  ASSERT_EQ(traced({"get", origin.url("/text")}).out, "Hello");
  const Finished finished = shown();
  EXPECT_EQ(finished.status, 0) << finished.err;
  EXPECT_TRUE(hasInOrder(
      finished.out,
      {"#1  done, HTTP 200  ", " ms  127.0.0.1:", "/text\n", ", downloader's thread ",
       "ZEP_HttpPool_TaskRun is called", "the downloader's thread is started", "response: HTTP 200",
       "receiving", "the body is there", "succeeded", "the downloader is stopped, its state is succeeded",
       "the task is told: succeeded", "the task takes the result: 5 bytes", "1 request in ",
       " of no request:", "1 release of a downloader"}));
  EXPECT_THAT(finished.out,
              testing::AllOf(HasSubstr("the thread runs"), HasSubstr("ZEP_HttpPool_TaskRun returns")));
  EXPECT_THAT(finished.out,
              testing::AllOf(Not(HasSubstr("not of the format")), Not(HasSubstr("other line"))));
}

TEST_F(TraceCommand, ShowsARedirect) {
  ASSERT_EQ(traced({"get", origin.url("/moved")}).out, "Hello");
  EXPECT_TRUE(hasInOrder(shown().out, {"#1  done, HTTP 200  ", "/moved\n",
                                       "redirect followed: HTTP 302, to 127.0.0.1", "response: HTTP 200"}));
}

TEST_F(TraceCommand, ShowsAChallengeAndNoPassword) {
  const std::string file = scratch.write("password", "open-sesame\n");
  traced({"get", origin.url("/secret"), "--user", "alice", "--password-file", file});
  const std::string out = shown().out;
  EXPECT_TRUE(
      hasInOrder(out, {"#1  failed, error 3 (authentication)  ", "challenge of 127.0.0.1",
                       "it asks for a user name and a password (NTLM or Basic)",
                       "the host is asked for a user name and a password", "the host has answered",
                       "challenge of 127.0.0.1", "failed: ", "error code 3", "the task is told: failed"}));
  EXPECT_THAT(out, Not(HasSubstr("open-sesame")));
  EXPECT_THAT(out, Not(HasSubstr("alice")));
}

TEST_F(TraceCommand, ShowsWhyARequestFailed) {
  traced({"get", origin.url("/rude")});
  EXPECT_TRUE(hasInOrder(shown().out, {"#1  failed, error 1 (connection)  ", "failed: ", "-1005",
                                       "error code 1", "the task is told: failed"}));
}

TEST_F(TraceCommand, ShowsAReset) {
  traced({"get", origin.url("/never"), "--timeout", "0.2"});
  EXPECT_TRUE(
      hasInOrder(shown().out, {"#1  stopped, waiting for an answer  ", "/never\n",
                               "ZEP_HttpPool_TaskReset: the downloader is stopped, its state is pending"}));
}

TEST_F(TraceCommand, ShowsARefusedUrl) {
  traced({"get", "http://a b/"});
  EXPECT_TRUE(hasInOrder(shown().out, {"#1  refused  ", "a b/\n", "refused: not a URL"}));
}

// Half of them to one URL, and all at once.
TEST_F(TraceCommand, TellsRequestsSideBySideApart) {
  constexpr int kRequests = 40;
  std::vector<std::string> arguments{"get"};
  for (int i = 0; i < kRequests; ++i) {
    arguments.push_back(origin.url(i % 4 == 0 ? "/broken" : i % 4 == 1 ? "/moved" : "/text"));
  }
  traced(arguments);
  const std::string out = shown().out;
  std::vector<std::string> summaries;
  for (int i = 0; i < kRequests; ++i) {
    const std::string number = "#" + std::to_string(i + 1) + "  ";
    summaries.push_back(i % 4 == 0 ? number + "failed, HTTP 500, error 2 (server)"
                                   : number + "done, HTTP 200");
    summaries.emplace_back(i % 4 == 0 ? "/broken\n" : i % 4 == 1 ? "/moved\n" : "/text\n");
    summaries.emplace_back("the thread runs");
    if (i % 4 == 1) {
      summaries.emplace_back("redirect followed");
    }
    summaries.emplace_back(i % 4 == 0 ? "the task is told: failed" : "the task takes the result: 5 bytes");
  }
  EXPECT_TRUE(hasInOrder(out, summaries));
  EXPECT_THAT(out, Not(HasSubstr("no end in this log")));
  EXPECT_THAT(out, Not(HasSubstr("its start is not in this log")));
  EXPECT_THAT(out, Not(HasSubstr("state of a call")));
}

TEST_F(TraceCommand, JoinsTheResultsPieces) {
  traced({"get", origin.url("/big"), origin.url("/text")});
  EXPECT_THAT(shown().out, HasSubstr("the task takes the result: 10000 bytes"));
}

TEST_F(TraceCommand, ShowsOneRequestOnly) {
  traced({"get", origin.url("/text"), origin.url("/broken")});
  const Finished second = shown({"--request", "2"});
  EXPECT_EQ(second.status, 0);
  EXPECT_TRUE(second.out.starts_with("#2  failed, HTTP 500")) << second.out;
  EXPECT_THAT(second.out, testing::AllOf(Not(HasSubstr("#1")), Not(HasSubstr("no request"))));
  const Finished third = shown({"--request", "3"});
  EXPECT_EQ(third.status, 1);
  EXPECT_EQ(third.out, "");
  EXPECT_EQ(third.err, "httppool: no request 3: there are 2\n");
}

TEST_F(TraceCommand, ReadsWhatAHigherLevelLeaves) {
  traced({"get", origin.url("/broken")}, "info");
  EXPECT_TRUE(
      hasInOrder(shown().out, {"#1  failed, HTTP 500, error 2 (server)  ", "(its URL is not in this log)",
                               "its start is not in this log", "response: HTTP 500"}));
}

TEST_F(TraceCommand, DrawsAPicture) {
  traced({"get", origin.url("/text"), origin.url("/broken"), "http://a b/"});
  const std::string picture = scratch.path("picture.svg");
  const Finished finished = shown({"--svg", picture});
  EXPECT_EQ(finished.status, 0) << finished.err;
  EXPECT_EQ(finished.out + finished.err, "");
  const std::string svg = scratch.read("picture.svg");
  EXPECT_TRUE(svg.starts_with("<svg ") && svg.ends_with("</svg>\n"));
  EXPECT_TRUE(hasInOrder(
      svg, {"3 requests in ", "1 done", "1 failed", "1 refused", ">#1  127.0.0.1:", ">done, HTTP 200<",
            ">#2  127.0.0.1:", ">failed, HTTP 500, error 2 (server)<", ">#3  a b/<"}));
  EXPECT_EQ(shown({"--svg", "-"}).out, svg);
  EXPECT_THAT(shown({"--svg", "-", "--request", "2"}).out,
              testing::AllOf(HasSubstr("1 request in "), Not(HasSubstr(">#1  "))));
}

TEST_F(TraceCommand, ReadsStdinAndSeveralLogs) {
  traced({"get", origin.url("/text")});
  EXPECT_EQ(Program(HTTPPOOL_PROGRAM, {"trace", "-"}, {}, log()).wait().out, shown().out);
  const std::string whole = scratch.read("trace.log");
  const std::size_t cut = whole.find('\n', whole.size() / 2) + 1;
  const std::string first = scratch.write("log.1", whole.substr(0, cut));
  const std::string second = scratch.write("log", whole.substr(cut));
  EXPECT_EQ(httppool({"trace", first, second}).out, shown().out);
}

TEST_F(TraceCommand, EndsWithOneWithoutARequest) {
  const Finished empty = httppool({"trace", "/dev/null"});
  EXPECT_EQ(empty.status, 1);
  EXPECT_EQ(empty.out, "0 requests in 0 records; 0 lines of no request\n");
  EXPECT_EQ(empty.err, "httppool: no request in this log\n");
  const Finished drawn = httppool({"trace", "/dev/null", "--svg", scratch.path("picture.svg")});
  EXPECT_EQ(drawn.status, 1);
  EXPECT_NE(access(scratch.path("picture.svg").c_str(), F_OK), 0) << "a picture of nothing was drawn";
}

TEST_F(TraceCommand, DoesNotDrawOverItsLog) {
  traced({"get", origin.url("/text")});
  const std::string before = scratch.read("trace.log");
  const Finished finished = shown({"--svg", scratch.path() + "/./trace.log"});
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.err, "httppool: " + log() + " is a log; the picture needs another file\n");
  EXPECT_EQ(scratch.read("trace.log"), before);
}

struct Unusable {
  std::vector<std::string> arguments;
  std::string error;
};

class UnusableTrace : public testing::TestWithParam<Unusable> {};

TEST_P(UnusableTrace, EndsWithTwoAndAMessage) {
  std::vector<std::string> arguments = GetParam().arguments;
  arguments.insert(arguments.begin(), "trace");
  const Finished finished = httppool(arguments);
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.out, "");
  EXPECT_EQ(finished.err, "httppool: " + GetParam().error + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    Arguments, UnusableTrace,
    testing::Values(Unusable{{}, "trace needs a file"},
                    Unusable{{"/nonexistent\x1b[31m"}, "/nonexistent\\x1b[31m: No such file or directory"},
                    Unusable{{"/tmp"}, "/tmp: Is a directory"},
                    Unusable{{"-", "--request", "0"}, "--request \"0\" is not the number of a request"},
                    Unusable{{"-", "--request", "1x"}, "--request \"1x\" is not the number of a request"},
                    Unusable{{"-", "--request", "-1"}, "--request \"-1\" is not the number of a request"},
                    Unusable{{"-", "--svg", ""}, "--svg needs the name of a file"},
                    Unusable{{"-", "--timeout", "1"}, "option --timeout is not known here"}));

TEST_F(TraceCommand, EndsWithTwoWhenThePictureCannotBeWritten) {
  traced({"get", origin.url("/text")});
  EXPECT_EQ(shown({"--svg", scratch.path("no/folder.svg")}).status, 2);
  const Finished full = shown({"--svg", "/dev/full"});
  EXPECT_EQ(full.status, 2);
  EXPECT_EQ(full.err, "httppool: /dev/full: No space left on device\n");
}

}  // namespace
}  // namespace tooltest
