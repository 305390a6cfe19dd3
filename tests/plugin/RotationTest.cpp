// A trace file that must not become larger than a bound.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>
#include <map>

#include "tests/plugin/TracedHost.h"
#include "tests/support/Files.h"

namespace test {
namespace {

using Texts = std::vector<std::string>;

/// A file that its maker has locked, until it says go.
class Gate {
 public:
  explicit Gate(const std::string& path) : path_(path) {
    writeFile(path, "");
    descriptor_ = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(flock(descriptor_, LOCK_EX), 0);
  }
  ~Gate() { close(descriptor_); }
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;

  const std::string& path() const { return path_; }
  void go() const { flock(descriptor_, LOCK_UN); }

 private:
  std::string path_;
  int descriptor_;
};

class TraceRotation : public testing::Test {
 protected:
  std::string oldFile() const { return host.file() + ".1"; }

  /// The lines of the file before this one, and then of this one.
  std::vector<TracedLine> linesOfBoth() const {
    auto lines = fileExists(oldFile()) ? tracedLines(readFile(oldFile())) : std::vector<TracedLine>();
    const auto newer = host.lines();
    lines.insert(lines.end(), newer.begin(), newer.end());
    return lines;
  }

  TracedHost host{PLUGIN_HOST};
};

TEST_F(TraceRotation, BeginsANewFileBeforeALineThatDoesNotFit) {
  const std::string padding(100, '.');
  host.run({"texts", "2", "first" + padding});
  const auto line = std::filesystem::file_size(host.file());
  std::filesystem::remove(host.file());
  // Process ids of another length make lines of another length.
  const std::string bound = std::to_string(3 * line + 30);
  host.run({"texts", "2", "line1" + padding, "line2" + padding, "line3" + padding},
           {{"QLX_TRACE_MAX_BYTES", bound}});
  EXPECT_FALSE(fileExists(oldFile())) << "three lines fit";
  EXPECT_EQ(host.lines().size(), 3U);
  host.run({"texts", "2", "line4" + padding}, {{"QLX_TRACE_MAX_BYTES", bound}});
  EXPECT_EQ(textsOf(tracedLines(readFile(oldFile()))),
            (Texts{"line1" + padding, "line2" + padding, "line3" + padding}));
  EXPECT_EQ(host.texts(), (Texts{"line4" + padding}));
  host.run({"texts", "2", "line5" + padding, "line6" + padding, "line7" + padding},
           {{"QLX_TRACE_MAX_BYTES", bound}});
  EXPECT_EQ(textsOf(tracedLines(readFile(oldFile()))),
            (Texts{"line4" + padding, "line5" + padding, "line6" + padding}));
  EXPECT_EQ(host.texts(), (Texts{"line7" + padding}));
}

TEST_F(TraceRotation, FillsAFileToTheByte) {
  host.run({"texts", "2", "text"});
  const auto line = std::filesystem::file_size(host.file());
  // As many bytes as the file has now, and as many more as it may get.
  const auto rotates = [&](std::uintmax_t bytes, std::uintmax_t bound) {
    std::filesystem::remove(host.file());
    std::filesystem::remove(oldFile());
    writeFile(host.file(), std::string(bytes - 1, '.') + "\n");
    host.run({"texts", "2", "text"}, {{"QLX_TRACE_MAX_BYTES", std::to_string(bound)}});
    return fileExists(oldFile());
  };
  // The ids' digits, at most 14, are all that may differ.
  EXPECT_FALSE(rotates(100, 100 + line + 14));
  EXPECT_TRUE(rotates(100, 100 + line - 14));
}

TEST_F(TraceRotation, ALineThatNeverFitsGetsAFileOfItsOwn) {
  const std::string text(500, 'x');
  EXPECT_EQ(host.run({"texts", "2", text, text}, {{"QLX_TRACE_MAX_BYTES", "100"}}), "500\n500\n");
  EXPECT_EQ(textsOf(tracedLines(readFile(oldFile()))), Texts{text});
  EXPECT_EQ(host.texts(), Texts{text});
}

TEST_F(TraceRotation, TheNewFileIsItsOwnersOnly) {
  host.run({"texts", "2", "text", "text"}, {{"QLX_TRACE_MAX_BYTES", "100"}});
  ASSERT_TRUE(fileExists(oldFile()));
  EXPECT_EQ(std::filesystem::status(host.file()).permissions(),
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

// One thread loses nothing but what was in the file before the last.
TEST_F(TraceRotation, KeepsTheLastLinesThroughManyRotations) {
  const Gate gate(host.path("gate"));
  gate.go();
  EXPECT_EQ(host.run({"threads", gate.path(), "1", "3000", "50"}, {{"QLX_TRACE_MAX_BYTES", "20000"}}),
            "0 0\n");
  EXPECT_LE(std::filesystem::file_size(host.file()), 20000U);
  EXPECT_LE(std::filesystem::file_size(oldFile()), 20000U);
  const Texts texts = textsOf(linesOfBoth());
  ASSERT_GT(texts.size(), 100U);
  for (std::size_t i = 0; i < texts.size(); ++i) {
    const std::size_t line = 3000 - texts.size() + i;
    EXPECT_EQ(texts[i], "thread 0 line " + std::to_string(line) + " " + std::string(50, '.'));
  }
}

// Two processes of four threads each fill a file and then a part of the next: had any of them rotated a second time, or
// written to a file that is gone, lines would be missing.
TEST_F(TraceRotation, LosesNoLineOfTwoProcessesAndTheirThreads) {
  constexpr int kProcesses = 2;
  constexpr int kThreads = 4;
  constexpr int kLines = 100;
  for (int round = 0; round < 40; ++round) {
    std::filesystem::remove(host.file());
    std::filesystem::remove(oldFile());
    const Gate gate(host.path("gate"));
    const auto options =
        host.options({"threads", gate.path(), std::to_string(kThreads), std::to_string(kLines), "100"},
                     {{"QLX_TRACE_MAX_BYTES", "80000"}});
    ChildProcess one(options);
    ChildProcess other(options);
    gate.go();
    ASSERT_EQ(one.wait(), (ChildProcess::End{.exitStatus = 0, .signal = 0}));
    ASSERT_EQ(other.wait(), (ChildProcess::End{.exitStatus = 0, .signal = 0}));
    std::map<std::string, int> counts;
    for (const TracedLine& line : linesOfBoth()) {
      ++counts[std::to_string(line.process) + " " + line.text];
    }
    EXPECT_EQ(counts.size(), static_cast<std::size_t>(kProcesses * kThreads * kLines)) << "round " << round;
    for (const auto& [line, count] : counts) {
      EXPECT_EQ(count, 1) << line;
    }
    EXPECT_GT(std::filesystem::file_size(oldFile()), 79000U);
    EXPECT_GT(std::filesystem::file_size(host.file()), 1000U);
  }
}

// Whatever the threads do at once, there are whole lines only, and no descriptor is left open.
TEST_F(TraceRotation, OfManyThreadsKeepsLinesWholeAndDescriptorsFew) {
  const Gate gate(host.path("gate"));
  auto options =
      host.options({"threads", gate.path(), "4", "2000", "100"}, {{"QLX_TRACE_MAX_BYTES", "1000"}});
  options.outputFile = host.path("one output");
  ChildProcess one(options);
  options.outputFile = host.path("other output");
  ChildProcess other(options);
  gate.go();
  ASSERT_EQ(one.wait(), (ChildProcess::End{.exitStatus = 0, .signal = 0}));
  ASSERT_EQ(other.wait(), (ChildProcess::End{.exitStatus = 0, .signal = 0}));
  EXPECT_EQ(readFile(host.path("one output")), "0 0\n");
  EXPECT_EQ(readFile(host.path("other output")), "0 0\n");
  EXPECT_GE(linesOfBoth().size(), 4U);
}

/// A thread is overtaken in the middle of its rotation.
class OvertakenRotation : public testing::Test {
 protected:
  void run(std::vector<std::string> arguments) {
    host.run(std::move(arguments), {{"QLX_TRACE_MAX_BYTES", "400"}});
    EXPECT_EQ(words(".1"), (Texts{"one", "two"}));
  }
  /// The lines of that file, without what fills them up.
  Texts words(const std::string& suffix) const {
    Texts words;
    for (const TracedLine& line : tracedLines(readFile(host.file() + suffix))) {
      words.push_back(line.text.substr(0, line.text.find('.')));
    }
    return words;
  }

  TracedHost host{OVERTAKEN_HOST};
};

TEST_F(OvertakenRotation, RenamesNothingWhenTheFileWasRenamedBeforeItIsOpened) {
  run({"open", "trace"});
  EXPECT_EQ(words(""), (Texts{"overtaking", "three"}));
}

TEST_F(OvertakenRotation, RenamesNothingWhenTheFileWasRenamedBeforeItIsLocked) {
  run({"flock", "trace"});
  EXPECT_EQ(words(""), (Texts{"overtaking", "three"}));
}

// The lock is that of the old file, so the new one is not its to rename.
TEST_F(OvertakenRotation, LeavesANewFileAloneThatIsFullAgain) {
  run({"flock", "fill"});
  EXPECT_EQ(words(""), (Texts{"overtaking", "overtaking", "three"}));
}

TEST_F(OvertakenRotation, LetsOthersWriteWhileItChangesTheDescriptor) {
  run({"dup3", "move", host.file()});
  EXPECT_EQ(words(".moved"), (Texts{"overtaking", "three"}));
}

TEST_F(OvertakenRotation, DoesNotHoldAForkedChildBack) {
  run({"dup3", "fork", host.file()});
  EXPECT_EQ(words(".moved"), Texts{"three"});
  EXPECT_EQ(words(""), Texts{"overtaking"});
}

TEST_F(TraceRotation, ThatIsHeldUpElsewhereHoldsNobodyUp) {
  writeFile(host.file(), "");
  const int other = open(host.file().c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(flock(other, LOCK_EX), 0);
  const Gate gate(host.path("gate"));
  gate.go();
  EXPECT_EQ(host.run({"threads", gate.path(), "4", "100", "50"}, {{"QLX_TRACE_MAX_BYTES", "1000"}}), "0 0\n");
  close(other);
  EXPECT_FALSE(fileExists(oldFile()));
  EXPECT_EQ(host.lines().size(), 400U);
}

TEST_F(TraceRotation, ThatIsImpossibleIsNamedOnceAndTheFileGrows) {
  std::filesystem::create_directory(oldFile());
  const std::string text(100, 'x');
  EXPECT_EQ(host.run({"texts", "2", text, text, text}, {{"QLX_TRACE_MAX_BYTES", "100"}}),
            "100\nqlxtracedylib: QLX_TRACE_MAX_BYTES: cannot use \"" + oldFile() +
                "\" (Is a directory); the file is not rotated\n100\n100\n");
  EXPECT_EQ(host.texts(), (Texts{text, text, text}));
}

TEST_F(TraceRotation, AFileThatIsMovedOrRemovedIsBegunAnew) {
  EXPECT_EQ(host.run({"movesFile", host.file(), host.path("moved")}), "1\n");
  EXPECT_EQ(textsOf(tracedLines(readFile(host.path("moved")))), Texts{"before"});
  EXPECT_EQ(host.texts(), Texts{"after"});
  EXPECT_EQ(host.run({"movesFile", host.file()}), "1\n");
  EXPECT_EQ(host.texts(), Texts{"after"});
}

}  // namespace
}  // namespace test
