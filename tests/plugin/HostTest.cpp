// What hosts may do, and what may befall them, while they trace with the reference plug-in.

#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "tests/plugin/TracedHost.h"
#include "tests/support/Files.h"

namespace test {
namespace {

using Texts = std::vector<std::string>;

class TracingHost : public testing::Test {
 protected:
  TracedHost host{PLUGIN_HOST};
};

TEST_F(TracingHost, ThatIsKilledHasItsLastLineInTheFile) {
  ChildProcess killed(host.options({"killed"}));
  ASSERT_EQ(killed.wait(), (ChildProcess::End{.exitStatus = -1, .signal = SIGKILL}));
  EXPECT_EQ(host.texts(), Texts{"the last line"});
}

TEST_F(TracingHost, TracesInManyThreadsAndEveryLineIsWhole) {
  writeFile(host.path("gate"), "");
  EXPECT_EQ(host.run({"threads", host.path("gate"), "8", "300", "1000"}), "0 0\n");
  std::map<int, int> next;
  for (const TracedLine& line : host.lines()) {
    int thread = -1;
    int number = -1;
    ASSERT_EQ(std::sscanf(line.text.c_str(), "thread %d line %d ", &thread, &number), 2) << line.text;
    EXPECT_EQ(number, next[line.thread]++) << "a thread's lines are in its order";
    EXPECT_TRUE(line.text.ends_with(" " + std::string(1000, '.')));
  }
  EXPECT_EQ(next.size(), 8U);
  for (const auto& [thread, count] : next) {
    EXPECT_EQ(count, 300);
  }
}

TEST_F(TracingHost, ThatForksHasItsChildsLinesWithTheChildsNumber) {
  const std::string printed = host.run({"forked"});
  const auto lines = host.lines();
  ASSERT_EQ(textsOf(lines), (Texts{"parent", "child", "parent again"}));
  EXPECT_EQ(printed, std::to_string(lines[0].process) + "\n1\n");
  EXPECT_NE(lines[1].process, lines[0].process);
  EXPECT_EQ(lines[1].process, lines[1].thread);
  EXPECT_EQ(lines[2].process, lines[0].process);
}

TEST_F(TracingHost, ThatForksWhileItsThreadsTraceHasChildrenThatTrace) {
  for (const char* bound : {"1000000000", "4000"}) {
    EXPECT_EQ(host.run({"forkedAmidTraces", "100"}, {{"QLX_TRACE_MAX_BYTES", bound}}), "100\n");
  }
}

TEST_F(TracingHost, TracesBeforeMainAndAfterAllDestructors) {
  host.run({"wholeLife"}, {{"PLUGIN_HOST_WHOLE_LIFE", "1"}});
  EXPECT_EQ(host.texts(), (Texts{"before main", "in main", "at exit", "after all destructors"}));
}

TEST_F(TracingHost, KeepsItsErrno) {
  EXPECT_EQ(host.run({"errorNumber"}), "4 1\n4 1\n");
  EXPECT_EQ(host.run({"errorNumber"}, {{"QLX_TRACE_FILE", "/dev/full"}}), "-1 1\n-1 1\n");
}

TEST_F(TracingHost, GoesOnWhenTheDiskIsFull) {
  EXPECT_EQ(host.run({"texts", "2", "one", "two"}, {{"QLX_TRACE_FILE", "/dev/full"}}), "-1\n-1\n");
}

TEST_F(TracingHost, GoesOnAtTheFileSizeLimitAndTheNextLineIsWhole) {
  EXPECT_EQ(host.run({"fileSizeLimit", "200"}), "6\n-1\n-1\n5\n");
  const std::string trace = readFile(host.file());
  const std::size_t first = trace.find('\n') + 1;
  const std::size_t fragment = trace.find('\n', first) + 1;
  ASSERT_EQ(fragment, 201U) << "what fitted stays, on a line of its own";
  EXPECT_EQ(textsOf(tracedLines(trace.substr(0, first) + trace.substr(fragment))),
            (Texts{"before", "after"}));
}

TEST_F(TracingHost, IsNotEndedByABrokenPipeAndKeepsItsSignals) {
  EXPECT_EQ(host.run({"brokenPipe"}, {{"QLX_TRACE_FILE", std::nullopt}}), "-1 0 0\n-1 1 0\n1\n");
}

TEST_F(TracingHost, ThatClosesAllDescriptorsFindsNoTraceInItsOwnFiles) {
  host.run({"closesAll", host.path("other")});
  EXPECT_EQ(readFile(host.path("other")), "the host's\nthe host's\nthe host's\nthe host's\n");
  EXPECT_EQ(host.texts(), (Texts{"before", "after", "again"}));
}

TEST_F(TracingHost, WithoutStandardErrorFindsNoTraceInItsOwnFiles) {
  EXPECT_EQ(host.run({"withoutStandardError", host.path("other")}, {{"QLX_TRACE_FILE", std::nullopt}}),
            "-1\n2 -1\n");
  EXPECT_EQ(readFile(host.path("other")), "");
}

TEST_F(TracingHost, WithoutStandardDescriptorsKeepsThemFree) {
  EXPECT_EQ(host.run({"withoutStandardDescriptors"}), "0\n");
  EXPECT_EQ(host.texts(), Texts{"text"});
}

TEST_F(TracingHost, IsNotCancelledInTheMiddleOfALine) {
  EXPECT_EQ(host.run({"cancelled"}), "21\n");
  EXPECT_EQ(host.texts(), Texts{"of a cancelled thread"});
}

}  // namespace
}  // namespace test
