// What the environment decides about the reference plug-in.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "tests/plugin/TracedHost.h"
#include "tests/support/Files.h"

namespace test {
namespace {

using Texts = std::vector<std::string>;

class TraceSettings : public testing::Test {
 protected:
  /// Runs the host with that file, which cannot be used: it says so in a line that holds the reason, and traces to
  /// standard error.
  void isRefused(const std::string& file, const std::string& reason) {
    const std::string printed = host.run({"texts", "2", "text"}, {{"QLX_TRACE_FILE", file}});
    const std::string notice = "qlxtracedylib: QLX_TRACE_FILE: cannot use \"" + file + "\" (" + reason +
                               "); traces go to standard error\n";
    ASSERT_TRUE(printed.starts_with(notice)) << printed;
    ASSERT_TRUE(printed.ends_with("\n4\n")) << printed;
    EXPECT_EQ(textsOf(tracedLines(printed.substr(notice.size(), printed.size() - notice.size() - 2))),
              Texts{"text"});
  }

  TracedHost host{PLUGIN_HOST};
};

struct Threshold {
  std::string setting;
  std::string printed;
  Texts texts;
};

class TraceThreshold : public TraceSettings, public testing::WithParamInterface<Threshold> {};

TEST_P(TraceThreshold, DropsWhatIsBelowFramesIncluded) {
  EXPECT_EQ(host.run({"levels"}, {{"QLX_TRACE_LEVEL", GetParam().setting}}), GetParam().printed);
  EXPECT_EQ(host.texts(), GetParam().texts);
}

const Texts kAll{"--> frame", "debug", "info", "warning", "error", "<-- frame"};
INSTANTIATE_TEST_SUITE_P(All, TraceThreshold,
                         testing::Values(Threshold{"", "threshold 1\n", kAll},
                                         Threshold{"debug", "threshold 1\n", kAll},
                                         Threshold{"1", "threshold 1\n", kAll},
                                         Threshold{"info", "threshold 2\n", {"info", "warning", "error"}},
                                         Threshold{"2", "threshold 2\n", {"info", "warning", "error"}},
                                         Threshold{"warning", "threshold 4\n", {"warning", "error"}},
                                         Threshold{"4", "threshold 4\n", {"warning", "error"}},
                                         Threshold{"error", "threshold 8\n", {"error"}},
                                         Threshold{"8", "threshold 8\n", {"error"}}));

// Also when the library does not ask for the threshold before.
TEST_F(TraceSettings, ADroppedLineIsAnsweredByNothing) {
  EXPECT_EQ(host.run({"texts", "1", "text"}, {{"QLX_TRACE_LEVEL", "info"}}), "0\n");
  EXPECT_EQ(host.texts(), Texts{});
}

TEST_F(TraceSettings, ALevelThatCannotBeUsedIsNamedAndEverythingTraced) {
  for (const std::string level : {"verbose", "3", "16", "Debug", " 2", "2 "}) {
    EXPECT_EQ(host.run({"levels"}, {{"QLX_TRACE_LEVEL", level}}),
              "qlxtracedylib: QLX_TRACE_LEVEL: cannot use \"" + level +
                  "\" (debug, info, warning, error, 1, 2, 4 or 8); everything is traced\nthreshold 1\n");
  }
}

TEST_F(TraceSettings, ABoundThatCannotBeUsedIsNamed) {
  for (const std::string bytes : {"0", "-1", "10M", "1e6", "99999999999999999999", "1 "}) {
    EXPECT_EQ(host.run({"texts", "2", "text"}, {{"QLX_TRACE_MAX_BYTES", bytes}}),
              "qlxtracedylib: QLX_TRACE_MAX_BYTES: cannot use \"" + bytes +
                  "\" (a number of bytes, at least 1); the file is not rotated\n4\n");
  }
  EXPECT_EQ(host.lines().size(), 6U);
}

TEST_F(TraceSettings, ANoticeEscapesTheValue) {
  EXPECT_EQ(host.run({"texts", "2", "text"}, {{"QLX_TRACE_LEVEL", "\x1b[31m\n%s"}}),
            "qlxtracedylib: QLX_TRACE_LEVEL: cannot use \"\\x1b[31m\\n%s\" (debug, info, warning, error, 1, "
            "2, 4 or "
            "8); everything is traced\n4\n");
}

TEST_F(TraceSettings, WithoutAFileTracesGoToStandardError) {
  for (const std::optional<std::string>& file :
       {std::optional<std::string>(), std::optional<std::string>("")}) {
    const std::string printed = host.run({"texts", "2", "text"}, {{"QLX_TRACE_FILE", file}});
    ASSERT_TRUE(printed.ends_with("\n4\n")) << printed;
    EXPECT_EQ(textsOf(tracedLines(printed.substr(0, printed.size() - 2))), Texts{"text"});
  }
}

TEST_F(TraceSettings, TheFileIsItsOwnersOnlyAndIsAppendedTo) {
  host.run({"texts", "2", "first"});
  struct stat file {};
  ASSERT_EQ(stat(host.file().c_str(), &file), 0);
  EXPECT_EQ(file.st_mode & 07777U, 0600U);
  host.run({"texts", "2", "second"});
  EXPECT_EQ(host.texts(), (Texts{"first", "second"}));
}

TEST_F(TraceSettings, ARelativeFileStaysWhenTheHostChangesItsFolder) {
  host.run({"changesFolder"}, {{"QLX_TRACE_FILE", "trace"}});
  EXPECT_EQ(host.texts(), (Texts{"before", "after"}));
}

TEST_F(TraceSettings, AFolderThatIsNotThereIsRefused) {
  isRefused(host.path("nowhere/trace"), "No such file or directory");
}

TEST_F(TraceSettings, AFolderIsRefused) {
  isRefused(host.path("X"), "Is a directory");
}

TEST_F(TraceSettings, ASymbolicLinkIsRefusedAndItsTargetNotTouched) {
  writeFile(host.path("target"), "of somebody else");
  std::filesystem::create_symlink(host.path("target"), host.path("link"));
  isRefused(host.path("link"), "it is a symbolic link");
  EXPECT_EQ(readFile(host.path("target")), "of somebody else");
  std::filesystem::create_symlink(host.path("not there"), host.path("dangling"));
  isRefused(host.path("dangling"), "it is a symbolic link");
  EXPECT_FALSE(fileExists(host.path("not there")));
}

TEST_F(TraceSettings, APipeIsRefusedWithAndWithoutAReader) {
  const std::string pipe = host.path("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  isRefused(pipe, "it is neither a regular file nor a device");
  const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(reader, 0);
  isRefused(pipe, "it is neither a regular file nor a device");
  char byte = 0;
  EXPECT_EQ(read(reader, &byte, 1), 0) << "something was written";
  close(reader);
}

TEST_F(TraceSettings, ATooLongNameIsRefused) {
  isRefused("/" + std::string(1000, 'x'), "File name too long");
}

}  // namespace
}  // namespace test
