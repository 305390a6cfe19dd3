// The command line: what is refused, with which words, and what --help and --version say.

#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "Program.h"
#include "Scratch.h"

namespace tooltest {
namespace {

struct Refused {
  std::vector<std::string> arguments;
  std::string message;
};

void PrintTo(const Refused& refused, std::ostream* stream) {
  *stream << refused.message;
}

class RefusedArguments : public testing::TestWithParam<Refused> {};

TEST_P(RefusedArguments, EndWithTwoAndAMessage) {
  const Finished finished = httppool(GetParam().arguments);
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.out, "");
  EXPECT_EQ(finished.err, "httppool: " + GetParam().message + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    All, RefusedArguments,
    testing::Values(
        Refused{{}, "no command; try --help"}, Refused{{"fetch"}, "unknown command \"fetch\"; try --help"},
        Refused{{"\x1b[2J"}, "unknown command \"\\x1b[2J\"; try --help"},
        Refused{{"--timeout", "3", "get", "u"}, "option --timeout is not known here"},
        Refused{{"get"}, "get needs a URL"},
        Refused{{"get", "--verbose", "u"}, "option --verbose is not known here"},
        Refused{{"get", "-zq", "u"}, "option -z is not known here"},
        Refused{{"get", "u", "-d"}, "option -d needs a value"},
        Refused{{"get", "-H", "Name", "u"}, "-H \"Name\" is not of the form 'Name: value'"},
        Refused{{"get", "-H", "a b: c", "u"}, "\"a b\" is not a header field name"},
        Refused{{"get", "-H", ": c", "u"}, "\"\" is not a header field name"},
        Refused{{"get", "-H", "a: b\r\nc: d", "u"},
                "the value of header field \"a\" has a line break, a zero character or is not UTF-8"},
        Refused{{"get", "-H", "a: b", "-H", "A: c", "u"}, "header field \"A\" is given twice"},
        Refused{{"get", "-X", "G ET", "u"}, "\"G ET\" is not a method"},
        Refused{{"get", "-X", "GET", "-H", "HttpMethod: PUT", "u"},
                "header field \"HttpMethod\" and a method are both given"},
        Refused{{"get", "-d", "x", "--data-file", "/dev/null", "u"},
                "a text body and a file of bytes are both given"},
        Refused{{"get", "-d", "x", "-o", "f", "u"},
                "a body and a download file are both given: a download is asked for without a body"},
        Refused{{"get", "-o", "f", "u", "v"}, "-o takes one URL only"},
        Refused{{"get", "--no-trust", "u", "--trust-on-first-use"},
                "--trust-on-first-use and --no-trust exclude each other"},
        Refused{{"get", "-o", "", "u"}, "-o needs the name of a file"},
        Refused{{"get", "-o", "/", "u"}, "cannot write /: it is a folder"},
        Refused{{"get", "-o", "/no/such/folder/f", "u"},
                "cannot write /no/such/folder/f: No such file or directory"},
        Refused{{"get", "--data-file", "/no/such/file", "u"},
                "cannot read /no/such/file: No such file or directory"},
        Refused{{"get", "--data-file", "/", "u"}, "cannot read /: it is a folder"},
        Refused{{"get", "\xff"}, "\"\\xff\" has a zero character or is not UTF-8"},
        Refused{{"get", "--timeout", "soon", "u"},
                "--timeout \"soon\" is not a number of seconds between 0 and 1000000"},
        Refused{{"get", "--timeout", "0", "u"},
                "--timeout \"0\" is not a number of seconds between 0 and 1000000"},
        Refused{{"get", "--timeout", "-1", "u"},
                "--timeout \"-1\" is not a number of seconds between 0 and 1000000"},
        Refused{{"get", "--timeout", "nan", "u"},
                "--timeout \"nan\" is not a number of seconds between 0 and 1000000"},
        Refused{{"get", "--concurrency", "0", "u"},
                "--concurrency \"0\" is not a number of tasks, 1 or more"},
        Refused{{"run", "--concurrency", "2x", "j"},
                "--concurrency \"2x\" is not a number of tasks, 1 or more"},
        Refused{{"get", "-q", "--json", "u"}, "--quiet and --json exclude each other"},
        Refused{{"demo", "--json"}, "option --json is not known here"},
        Refused{{"get", "--user", "ann", "u"}, "--user and --password-file are given together or not at all"},
        Refused{{"run", "--password-file", "f", "j"},
                "--user and --password-file are given together or not at all"},
        Refused{{"get", "--user", "", "--password-file", "f", "u"}, "--user needs a name"},
        Refused{{"get", "--user", "\xe9\x1b", "--password-file", "f", "u"},
                "--user \"\\xe9\\x1b\" is not UTF-8"},
        Refused{{"demo", "--user", "ann"}, "option --user is not known here"},
        Refused{{"run"}, "run needs one job file"}, Refused{{"run", "a", "b"}, "run needs one job file"},
        Refused{{"run", "-d", "x", "a"}, "option -d is not known here"},
        Refused{{"demo", "x"}, "demo takes no arguments"}));

TEST(Help, NamesEveryCommandAndOption) {
  const Finished finished = httppool({"--help"});
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.err, "");
  for (const char* word : {"get URL", "run JOBS.json", "demo", "--version", "--data ", "--data-file",
                           "--header", "--method", "--output", "--concurrency", "--timeout", "--quiet",
                           "--json", "--snapshot", "--user", "--password-file", "exit status"}) {
    EXPECT_NE(finished.out.find(word), std::string::npos) << word;
  }
}

TEST(Help, FitsOnOneScreen) {
  const std::string help = httppool({"--help"}).out;
  // A prompt has the 24th line.
  EXPECT_LE(std::count(help.begin(), help.end(), '\n'), 23);
  std::istringstream lines(help);
  for (std::string line; std::getline(lines, line);) {
    EXPECT_LE(line.size(), 80U) << line;
  }
}

TEST(Help, IsTheSameAfterACommand) {
  EXPECT_EQ(httppool({"get", "-h"}).out, httppool({"--help"}).out);
}

TEST(Version, IsTheProjects) {
  const Finished finished = httppool({"--version"});
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.out, "httppool " HTTPPOOL_VERSION "\n");
}

TEST(OutputFile, IsNotMadeWhenNothingIsDownloaded) {
  const Scratch scratch;
  EXPECT_EQ(httppool({"get", "-o", scratch.path("f"), "--timeout", "0", "u"}).status, 2);
  EXPECT_EQ(httppool({"get", "-o", scratch.path("f"), "no url"}).status, 1);
  EXPECT_FALSE(test::fileExists(scratch.path("f")));
}

}  // namespace
}  // namespace tooltest
