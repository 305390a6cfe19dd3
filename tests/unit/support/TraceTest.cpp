// Tracing with a real plug-in in a folder shaped like a bundle.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TraceRecord.h"

namespace {

using Lines = std::vector<std::string>;

class Tracing : public testing::Test {
 protected:
  /// Runs the driver from `folder` of the bundle; what the plug-in was handed, "WRITER text" for each call.
  Lines traced(std::vector<std::string> arguments, const std::string& level = "1") {
    namespace fs = std::filesystem;
    fs::remove_all(folder_.file("X"));
    fs::create_directories(folder_.file(folder));
    fs::create_directories(folder_.file("X/Contents/PlugIns"));
    fs::copy_file(TRACE_DRIVER, folder_.file(folder + "/driver"));
    if (!plugin.empty()) {
      fs::copy_file(plugin, folder_.file("X/Contents/PlugIns/qlxtracedylib.dylib"));
    }
    const std::string record = folder_.file("X/record");
    arguments.insert(arguments.begin(), folder_.file(folder + "/driver"));
    test::ChildProcess driver({.arguments = arguments,
                               .environment = {{"TRACE_RECORD_FILE", record}, {"TRACE_RECORD_LEVEL", level}},
                               .outputFile = folder_.file("X/output")});
    EXPECT_EQ(driver.wait().value_or(test::ChildProcess::End{.exitStatus = -1}).exitStatus, 0);
    output = test::readFile(folder_.file("X/output"));
    Lines lines;
    for (const test::TracePiece& piece : test::readTraceRecord(record)) {
      lines.push_back(piece.writer + " " + piece.text);
    }
    return lines;
  }

  std::string folder = "X/Contents/MacOS";
  std::string plugin = TRACE_PLUGIN;
  std::string output;

 private:
  test::TemporaryFolder folder_;
};

TEST_F(Tracing, EachLevelHasItsWriterAndTheRestGoToDebug) {
  EXPECT_EQ(traced({"levels"}, "99"),
            (Lines{"QLXDEBUG raw 1", "QLXINFO raw 2", "QLXWARN raw 4", "QLXERROR raw 8", "QLXDEBUG raw 3",
                   "QLXDEBUG raw 0", "QLXDEBUG raw 16"}));
}

TEST_F(Tracing, ALineIsWrittenWhenItsStatementEnds) {
  EXPECT_EQ(traced({"lines"}), (Lines{"QLXDEBUG line 7, 2.5 text\n", "QLXINFO line 7, 2.5 text\n",
                                      "QLXWARN line 7, 2.5 text\n", "QLXERROR line 7, 2.5 text\n"}));
}

TEST_F(Tracing, TheThresholdKeepsLinesBack) {
  EXPECT_EQ(traced({"lines"}, "2").size(), 3u);
  EXPECT_EQ(traced({"lines"}, "4"), (Lines{"QLXWARN line 7, 2.5 text\n", "QLXERROR line 7, 2.5 text\n"}));
  EXPECT_EQ(traced({"lines"}, "9"), Lines());
}

TEST_F(Tracing, FramesGoToTheDebugWriterWhateverTheThreshold) {
  const Lines frames{"QLXDEBUG --> outer", "QLXDEBUG --> inner", "QLXDEBUG <-- inner", "QLXDEBUG <-- outer"};
  EXPECT_EQ(traced({"frames"}), frames);
  EXPECT_EQ(traced({"frames"}, "2"), frames);
}

TEST_F(Tracing, LongTextsGoOutInPieces) {
  const auto lengths = [&](const char* characters) {
    std::vector<std::size_t> result;
    std::string whole;
    for (const std::string& line : traced({"pieces", characters})) {
      EXPECT_EQ(line.rfind("QLXINFO ", 0), 0u);
      whole += line.substr(8);
      result.push_back(line.size() - 8);
    }
    for (std::size_t i = 0; i < whole.size(); ++i) {
      if (whole[i] != static_cast<char>('a' + i % 26)) {
        ADD_FAILURE() << "character " << i << " of " << characters;
        break;
      }
    }
    return result;
  };
  using Lengths = std::vector<std::size_t>;
  EXPECT_EQ(lengths("1"), Lengths{1});
  EXPECT_EQ(lengths("2046"), Lengths{2046});
  EXPECT_EQ(lengths("2047"), (Lengths{2046, 1}));
  EXPECT_EQ(lengths("4091"), (Lengths{2046, 2045}));
  // The terminator counts when the pieces are counted, so this one ends with an empty piece.
  EXPECT_EQ(lengths("4092"), (Lengths{2046, 2046, 0}));
  EXPECT_EQ(lengths("4093"), (Lengths{2046, 2046, 1}));
  EXPECT_EQ(lengths("100000").size(), 49u);
  EXPECT_EQ(lengths("0"), Lengths{0});
}

TEST_F(Tracing, NullTexts) {
  EXPECT_EQ(traced({"nulls"}), (Lines{"QLXINFO []", "QLXINFO 1]", "QLXINFO [null]"}));
  EXPECT_EQ(output, "0\n");
}

TEST_F(Tracing, LinesOfThreadsDoNotMixAndTheFirstUseMayRace) {
  Lines lines = traced({"threads"});
  std::sort(lines.begin(), lines.end());
  Lines expected;
  for (int thread = 0; thread < 8; ++thread) {
    for (int line = 0; line < 50; ++line) {
      expected.push_back("QLXINFO thread " + std::to_string(thread) + " line " + std::to_string(line) + "\n");
    }
  }
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(lines, expected);
}

TEST_F(Tracing, AFolderBelowMacOSWillDo) {
  folder = "X/Contents/MacOS/deep/down";
  EXPECT_EQ(traced({"levels"}).size(), 7u);
}

TEST_F(Tracing, WithoutAPluginNothingIsWrittenOrFormatted) {
  const std::string nothing = "level 1, debug 1, error 1, writers 0000, collected \"\"\n";
  plugin.clear();
  EXPECT_EQ(traced({"state"}), Lines());
  EXPECT_EQ(output, nothing);
  EXPECT_EQ(traced({"levels"}), Lines());
  plugin = TRACE_PLUGIN;
  folder = "X/Contents/Elsewhere";
  EXPECT_EQ(traced({"state"}), Lines());
  EXPECT_EQ(output, nothing);
  EXPECT_EQ(traced({"frames"}), Lines());
}

TEST_F(Tracing, APluginMayLackFunctions) {
  plugin = TRACE_PLUGIN_ERROR_ONLY;
  EXPECT_EQ(traced({"state"}, "8"), Lines());
  EXPECT_EQ(output, "level 1, debug 1, error 1, writers 0001, collected \"\"\n");
  EXPECT_EQ(traced({"levels"}), Lines{"QLXERROR raw 8"});
  EXPECT_EQ(traced({"frames"}), Lines());
}

TEST_F(Tracing, AskedForItsState) {
  traced({"state"}, "2");
  EXPECT_EQ(output, "level 2, debug 0, error 1, writers 1111, collected \"collected\"\n");
}

TEST_F(Tracing, ADamagedPluginIsNone) {
  test::TemporaryFolder folder;
  test::writeFile(folder.file("damaged"), "no module");
  plugin = folder.file("damaged");
  EXPECT_EQ(traced({"state"}), Lines());
  EXPECT_EQ(output, "level 1, debug 1, error 1, writers 0000, collected \"\"\n");
}

}  // namespace
