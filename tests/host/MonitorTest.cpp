// The pool monitor, from the files' side: what its settings switch, and what the library records in hosts of every
// kind. Each host is a process of its own.

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <regex.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>

#include "httpPool/ZEP_HttpPool.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/OrdinaryUser.h"
#include "tests/support/TemporaryFolder.h"

namespace test {
namespace {

using Words = std::vector<std::string>;
using Environment = std::map<std::string, std::optional<std::string>>;

std::string xml(const std::string& content) {
  return R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0">)" + content + "</plist>\n";
}

std::string xmlSwitch(const std::string& element) {
  return xml("<dict><key>Other</key><string>1</string><key>Taskmonitor</key>" + element + "</dict>");
}

/// Whether the whole text matches an extended expression, regex(7).
bool matches(const std::string& text, const std::string& pattern) {
  regex_t expression;
  if (regcomp(&expression, ("^(" + pattern + ")$").c_str(), REG_EXTENDED | REG_NOSUB) != 0) {
    ADD_FAILURE() << "no expression: " << pattern;
    return false;
  }
  const int result = regexec(&expression, text.c_str(), 0, nullptr, 0);
  regfree(&expression);
  return result == 0;
}

/// A binary list with the switch alone: objects at 8, 11 and 23, their offsets at 24, and the trailer.
std::string binarySwitch(bool isOn) {
  std::string list("bplist00\xD1\x01\x02\x5BTaskmonitor", 23);
  list += isOn ? '\x09' : '\x08';
  list += std::string("\x08\x0B\x17", 3);
  const std::string zeros(7, '\0');
  return list + std::string("\0\0\0\0\0\0\1\1", 8) + zeros + '\3' + zeros + '\0' + zeros + '\x18';
}

class Monitor : public testing::Test {
 protected:
  Monitor() { std::filesystem::create_directory(files()); }

  std::string files() const { return folder_.file("Tilvo"); }
  std::string settingsFile() const { return files() + "/pool-task-config.plist"; }
  std::string recordFile() const { return files() + "/pool-task-monitor.txt"; }
  void switchOn() const { writeFile(settingsFile(), xmlSwitch("<true/>")); }

  std::unique_ptr<ChildProcess> start(const Words& commands, const std::string& output,
                                      const Environment& environment = {}) const {
    Words arguments = {MONITOR_HOST_PROGRAM, POOL_LIBRARY};
    arguments.insert(arguments.end(), commands.begin(), commands.end());
    return std::make_unique<ChildProcess>(options(arguments, output, environment));
  }
  /// Runs the host to its end; what it has printed, at first "on" or "off".
  std::string run(const Words& commands = {}, const Environment& environment = {}) const {
    return ended(*start(commands, folder_.file("output"), environment), folder_.file("output"));
  }
  /// The same as an ordinary user, who owns the files but not the folders around the build.
  std::string runAsOrdinaryUser(const Words& commands = {}) const {
    const std::string program = folder_.file("program");
    std::filesystem::create_directory(program);
    std::filesystem::copy_file(MONITOR_HOST_PROGRAM, program + "/host");
    std::filesystem::copy_file(POOL_LIBRARY, program + "/libhttpPool.so");
    std::filesystem::copy_file(FOUNDATION_LIBRARY, program + "/" FOUNDATION_LIBRARY_NAME);
    giveToOrdinaryUser(folder_.path());
    Words arguments = {program + "/host", program + "/libhttpPool.so"};
    arguments.insert(arguments.end(), commands.begin(), commands.end());
    ChildProcess host(options(asOrdinaryUser(arguments), folder_.file("output"), {}));
    const std::string printed = ended(host, folder_.file("output"));
    std::filesystem::remove_all(program);
    return printed;
  }

  std::string record() const { return fileExists(recordFile()) ? readFile(recordFile()) : ""; }
  /// Every second line of the record.
  Words recordedNames() const {
    Words names;
    std::istringstream lines(record());
    for (std::string date, name; std::getline(lines, date) && std::getline(lines, name);) {
      names.push_back(name);
    }
    return names;
  }

  TemporaryFolder folder_;

 private:
  ChildProcess::Options options(const Words& arguments, const std::string& output,
                                Environment environment) const {
    environment.insert({{"ZEP_APPLICATIONS_DIR", folder_.path()}, {"LC_ALL", "C"}});
    return {.arguments = arguments,
            .environment = environment,
            .workingFolder = folder_.path(),
            .outputFile = output};
  }
  static std::string ended(ChildProcess& host, const std::string& output) {
    const auto end = host.wait(std::chrono::minutes(2));
    const std::string printed = readFile(output);
    std::filesystem::remove(output);
    if (!end) {
      ADD_FAILURE() << "the host hangs: " << printed;
    } else {
      EXPECT_EQ(*end, (ChildProcess::End{.exitStatus = 0, .signal = 0})) << printed;
    }
    return printed;
  }
};

/// A task that is too old, and a question for its status.
const Words kOldTask = {"create", "p", "add", "p", "t", "ahead", "301", "ask", "p", "t"};

struct Settings {
  const char* name;
  std::string content;
  const char* expected;
};

class MonitorSettings : public Monitor, public testing::WithParamInterface<Settings> {};

TEST_P(MonitorSettings, SwitchTheMonitor) {
  writeFile(settingsFile(), GetParam().content);
  EXPECT_EQ(run(kOldTask), std::string(GetParam().expected) + "\n");
  EXPECT_EQ(recordedNames(), std::string(GetParam().expected) == "on" ? Words{"p t"} : Words{});
}

INSTANTIATE_TEST_SUITE_P(
    All, MonitorSettings,
    testing::Values(
        Settings{"XmlTrue", xmlSwitch("<true/>"), "on"}, Settings{"XmlFalse", xmlSwitch("<false/>"), "off"},
        Settings{"BinaryTrue", binarySwitch(true), "on"}, Settings{"BinaryFalse", binarySwitch(false), "off"},
        Settings{"One", xmlSwitch("<integer>1</integer>"), "on"},
        Settings{"MinusOne", xmlSwitch("<integer>-1</integer>"), "on"},
        Settings{"Zero", xmlSwitch("<integer>0</integer>"), "off"},
        Settings{"Real", xmlSwitch("<real>0.5</real>"), "on"},
        Settings{"NoReal", xmlSwitch("<real>0</real>"), "off"},
        Settings{"Yes", xmlSwitch("<string>YES</string>"), "on"},
        Settings{"True", xmlSwitch("<string>true</string>"), "on"},
        Settings{"TextOne", xmlSwitch("<string> +01</string>"), "on"},
        Settings{"No", xmlSwitch("<string>NO</string>"), "off"},
        Settings{"NoText", xmlSwitch("<string></string>"), "off"},
        Settings{"List", xmlSwitch("<array><true/></array>"), "off"},
        Settings{"Date", xmlSwitch("<date>2024-01-24T16:05:45Z</date>"), "off"},
        Settings{"NoKey", xml("<dict><key>Other</key><true/></dict>"), "off"},
        Settings{"OtherCase", xml("<dict><key>taskMonitor</key><true/></dict>"), "off"},
        Settings{"EmptyDictionary", xml("<dict/>"), "off"},
        Settings{"NoDictionary", xml("<array><string>Taskmonitor</string><true/></array>"), "off"},
        Settings{"Empty", "", "off"}, Settings{"Text", "Taskmonitor = YES;", "off"},
        Settings{"Cut", xmlSwitch("<true/>").substr(0, 110), "off"},
        Settings{"BinaryCut", binarySwitch(true).substr(0, 40), "off"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(Monitor, IsOffWithoutAFileOrAFolder) {
  EXPECT_EQ(run(kOldTask), "off\n");
  std::filesystem::remove(files());
  EXPECT_EQ(run(kOldTask), "off\n");
  EXPECT_FALSE(fileExists(files()));
}

TEST_F(Monitor, IsOffWithSettingsThatAreNoFile) {
  std::filesystem::create_directory(settingsFile());
  EXPECT_EQ(run(), "off\n");
  std::filesystem::remove(settingsFile());
  ASSERT_EQ(mkfifo(settingsFile().c_str(), 0666), 0);
  EXPECT_EQ(run(), "off\n");
  std::filesystem::remove(settingsFile());
  std::filesystem::create_symlink("/dev/zero", settingsFile());
  EXPECT_EQ(run(), "off\n");
  std::filesystem::remove(settingsFile());
  std::filesystem::create_symlink("pool-task-config.plist", settingsFile());
  EXPECT_EQ(run(), "off\n");
}

/// How many bytes this process has read so far, proc(5).
long bytesRead() {
  std::istringstream words(readFile("/proc/self/io"));
  std::string name;
  long bytes = -1;
  words >> name >> bytes;
  EXPECT_EQ(name, "rchar:");
  return bytes;
}

// A list that would switch the monitor on if it were read.
TEST_F(Monitor, IsOffWithAHundredMegabytesOfSettingsAndReadsFewOfThem) {
  const std::string list = xmlSwitch("<true/>");
  writeFile(settingsFile(), list + "<!--" + std::string(100 << 20, ' ') + "-->");
  EXPECT_EQ(run(), "off\n");
  writeFile(settingsFile(), list + "<!--" + std::string(100 << 10, ' ') + "-->");
  EXPECT_EQ(run(), "on\n");

  writeFile(settingsFile(), list + "<!--" + std::string(100 << 20, ' ') + "-->");
  setenv("ZEP_APPLICATIONS_DIR", folder_.path().c_str(), 1);
  const long before = bytesRead();
  void* const library = dlopen(POOL_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  EXPECT_LT(bytesRead() - before, 10 << 20);
  ASSERT_NE(library, nullptr) << dlerror();
  dlclose(library);
}

TEST_F(Monitor, FollowsALinkToItsSettings) {
  writeFile(folder_.file("elsewhere"), xmlSwitch("<true/>"));
  std::filesystem::create_symlink("../elsewhere", settingsFile());
  EXPECT_EQ(run(), "on\n");
}

TEST_F(Monitor, IsOffWhenTheUserMustNotReadItsSettings) {
  switchOn();
  EXPECT_EQ(runAsOrdinaryUser(), "on\n");
  std::filesystem::permissions(settingsFile(), std::filesystem::perms::none);
  EXPECT_EQ(runAsOrdinaryUser(), "off\n");
}

TEST_F(Monitor, LooksNotInTheWorkingFolder) {
  switchOn();
  EXPECT_EQ(run({}, {{"ZEP_APPLICATIONS_DIR", "."}}), "off\n");
}

TEST_F(Monitor, ReadsItsSettingsOnceInALoad) {
  setenv("ZEP_APPLICATIONS_DIR", folder_.path().c_str(), 1);
  switchOn();
  for (const bool isOn : {true, false, true}) {
    void* const library = dlopen(POOL_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    const bool* flag = static_cast<bool*>(dlsym(library, "IS_MONITOR_POOL"));
    ASSERT_NE(flag, nullptr);
    EXPECT_EQ(*flag, isOn);
    writeFile(settingsFile(), xmlSwitch(isOn ? "<false/>" : "<true/>"));
    const auto getSnapshot =
        reinterpret_cast<decltype(&ZEP_HttpPool_GetSnapshot)>(dlsym(library, "ZEP_HttpPool_GetSnapshot"));
    long size = 0;
    EXPECT_EQ(getSnapshot(nullptr, &size), 0);
    EXPECT_EQ(*flag, isOn);
    ASSERT_EQ(dlclose(library), 0);
  }
}

TEST_F(Monitor, RecordsATaskOlderThanFiveMinutesOnce) {
  switchOn();
  EXPECT_EQ(run({"create", "p", "add", "p", "t", "ahead", "299", "ask", "p", "t"}), "on\n");
  EXPECT_FALSE(fileExists(recordFile()));
  Words commands = kOldTask;
  commands.insert(commands.end(), {"add", "p", "young", "ask", "p", "young", "ask", "p", "t"});
  EXPECT_EQ(run(commands), "on\n");
  EXPECT_EQ(recordedNames(), Words{"p t"}) << "the younger task is not recorded";
}

TEST_F(Monitor, RecordsEachNameAndEachProcess) {
  switchOn();
  const Words commands = {"create", "p", "add", "p",   "t", "add", "p",   "T", "ahead", "301",
                          "ask",    "p", "t",   "ask", "p", "T",   "ask", "p", "t"};
  run(commands);
  run(commands);
  EXPECT_EQ(recordedNames(), (Words{"p t", "p T", "p t", "p T"}));
}

TEST_F(Monitor, DoesNotForgetATasksAgeWithAReset) {
  switchOn();
  run({"create", "p", "add", "p", "t", "ahead", "301", "reset", "p", "t", "ask", "p", "t"});
  EXPECT_EQ(recordedNames(), Words{"p t"});
}

TEST_F(Monitor, RecordsNothingWhileItIsOff) {
  EXPECT_EQ(run(kOldTask), "off\n");
  EXPECT_FALSE(fileExists(recordFile()));
}

TEST_F(Monitor, AppendsToTheRecord) {
  switchOn();
  writeFile(recordFile(), "kept");
  run(kOldTask);
  EXPECT_TRUE(record().starts_with("kept")) << record();
  EXPECT_TRUE(record().ends_with("\np t\n")) << record();
}

TEST_F(Monitor, RecordsNowhereButInARegularFile) {
  switchOn();
  std::filesystem::create_directory(recordFile());
  EXPECT_EQ(run(kOldTask), "on\n");
  std::filesystem::remove(recordFile());
  std::filesystem::create_symlink("nowhere", recordFile());
  EXPECT_EQ(run(kOldTask), "on\n");
  EXPECT_FALSE(fileExists(files() + "/nowhere"));
  std::filesystem::remove(recordFile());
  ASSERT_EQ(mkfifo(recordFile().c_str(), 0666), 0);
  EXPECT_EQ(run(kOldTask), "on\n") << "without a reader";
  const int reader = open(recordFile().c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_GE(reader, 0);
  EXPECT_EQ(run(kOldTask), "on\n") << "with a reader";
  char byte = 0;
  EXPECT_EQ(read(reader, &byte, 1), 0) << "something was written";
  close(reader);
}

TEST_F(Monitor, LosesRecordsThatTheUserMustNotWrite) {
  switchOn();
  using std::filesystem::perms;
  std::filesystem::permissions(files(), perms::owner_read | perms::owner_exec);
  EXPECT_EQ(runAsOrdinaryUser(kOldTask), "on\n");
  EXPECT_FALSE(fileExists(recordFile())) << "the folder must not be written";
  std::filesystem::permissions(files(), perms::owner_all);
  EXPECT_EQ(runAsOrdinaryUser(kOldTask), "on\n");
  EXPECT_EQ(recordedNames(), Words{"p t"});
  const std::string before = record();
  std::filesystem::permissions(recordFile(), perms::owner_read);
  EXPECT_EQ(runAsOrdinaryUser(kOldTask), "on\n");
  EXPECT_EQ(record(), before) << "the file must not be written";
}

TEST_F(Monitor, RecordsWhileTheProcessExits) {
  switchOn();
  EXPECT_EQ(run({"create", "p",        "add-many", "p",   "100",     "add",      "p", "late", "ahead",
                 "301",    "ask-many", "p",        "100", "at-exit", "ask-many", "p", "100",  "ask",
                 "p",      "late",     "ask-many", "p",   "100",     "ask",      "p", "late"}),
            "on\n");
  const Words names = recordedNames();
  ASSERT_EQ(names.size(), 101U);
  EXPECT_EQ(names.back(), "p late");
}

TEST_F(Monitor, KeepsTheRecordsOfSeveralProcessesWhole) {
  switchOn();
  constexpr int kRecords = 500;
  const Words pools = {"first", "second", "third"};
  std::vector<std::unique_ptr<ChildProcess>> hosts;
  std::set<std::string> expected;
  for (const std::string& pool : pools) {
    const std::string count = std::to_string(kRecords);
    hosts.push_back(start({"create", pool, "add-many", pool, count, "ahead", "301", "wait",
                           folder_.file("go"), "ask-many", pool, count},
                          folder_.file(pool)));
    for (int number = 0; number < kRecords; ++number) {
      expected.insert(pool + " " + std::to_string(number) + " " + std::string(900, 'x'));
    }
  }
  for (const std::string& pool : pools) {
    ASSERT_TRUE(
        waitUntil([&] { return fileExists(folder_.file(pool)) && readFile(folder_.file(pool)) == "on\n"; },
                  std::chrono::minutes(2)));
  }
  writeFile(folder_.file("go"), "");
  for (const auto& host : hosts) {
    EXPECT_EQ(host->wait(std::chrono::minutes(2)), (ChildProcess::End{.exitStatus = 0, .signal = 0}));
  }
  std::istringstream lines(record());
  std::string line;
  while (std::getline(lines, line)) {
    ASSERT_TRUE(matches(line, "[A-Z][a-z]+ [0-9]{1,2}, [0-9]{4} at .+")) << line;
    ASSERT_TRUE(std::getline(lines, line));
    ASSERT_EQ(expected.erase(line), 1U) << line;
  }
  EXPECT_EQ(expected.size(), 0U);
  EXPECT_TRUE(record().ends_with('\n'));
}

struct DateLine {
  const char* name;
  Environment environment;
  const char* pattern;
};

class MonitorDate : public Monitor, public testing::WithParamInterface<DateLine> {};

TEST_P(MonitorDate, IsInTheUsersLanguage) {
  switchOn();
  run(kOldTask, GetParam().environment);
  const std::string date = record().substr(0, record().find('\n'));
  EXPECT_TRUE(matches(date, GetParam().pattern)) << date;
}

INSTANTIATE_TEST_SUITE_P(
    All, MonitorDate,
    testing::Values(
        DateLine{"C", {{"LC_ALL", "C"}}, "[A-Z][a-z]+ [0-9]+, [0-9]{4} at [0-9]+:[0-9]{2}:[0-9]{2}.*"},
        DateLine{"German",
                 {{"LC_ALL", "de_DE.UTF-8"}},
                 "[0-9]+\\. [^ ]+ [0-9]{4} um [0-9]{2}:[0-9]{2}:[0-9]{2} .*"},
        DateLine{"Japanese",
                 {{"LC_ALL", "ja_JP.UTF-8"}},
                 "[0-9]{4}年[0-9]+月[0-9]+日 [0-9]+:[0-9]{2}:[0-9]{2} .*"},
        DateLine{"GermanTimesInJapanese",
                 {{"LC_ALL", std::nullopt}, {"LC_TIME", "de_DE.UTF-8"}, {"LANG", "ja_JP.UTF-8"}},
                 "[0-9]+\\. [^ ]+ [0-9]{4} um .*"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(Monitor, LeavesARegistryThatIsThereAlone) {
  switchOn();
  for (const auto& [way, expected] :
       {std::pair("set", "left alone, off\n"), std::pair("null", "made, on\n")}) {
    const std::string output = folder_.file(way);
    // The address sanitizer takes the pointer that is defined twice for a mistake.
    ChildProcess host({.arguments = {REGISTRY_HOST_PROGRAM, POOL_LIBRARY, way},
                       .environment = {{"ZEP_APPLICATIONS_DIR", folder_.path()},
                                       {"ASAN_OPTIONS", "detect_odr_violation=0"}},
                       .outputFile = output});
    EXPECT_EQ(host.wait(), (ChildProcess::End{.exitStatus = 0, .signal = 0}));
    EXPECT_EQ(readFile(output), expected);
  }
}

}  // namespace
}  // namespace test
