// The dynamic symbol tables of the two libraries.

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <sstream>

#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

namespace test {
namespace {

/// The dynamic symbols that a library defines.
struct Exports {
  std::map<std::string, std::string> symbols;  ///< by name, each with its version
  /// What has no version: the linker's own entries for the versions themselves, each an absolute symbol.
  std::set<std::string> versions;
};

Exports exportsOf(const std::string& library) {
  TemporaryFolder folder;
  const std::string output = folder.file("output");
  ChildProcess nm(
      {.arguments = {NM_PROGRAM, "-D", "--defined-only", "--format=posix", library}, .outputFile = output});
  EXPECT_EQ(nm.wait(), (ChildProcess::End{.exitStatus = 0, .signal = 0})) << readFile(output);
  Exports exports;
  std::istringstream lines(readFile(output));
  for (std::string line; std::getline(lines, line);) {
    std::string entry;
    std::string type;
    std::istringstream(line) >> entry >> type;
    const std::size_t at = entry.find('@');
    if (at == std::string::npos) {
      EXPECT_EQ(type, "A") << "has no version: " << entry;
      exports.versions.insert(entry);
      continue;
    }
    const std::string version = entry.substr(entry.find_last_of('@') + 1);
    EXPECT_TRUE(exports.symbols.emplace(entry.substr(0, at), version).second) << "twice: " << entry;
  }
  return exports;
}

std::map<std::string, std::string> all(const std::set<std::string>& names, const std::string& version) {
  std::map<std::string, std::string> symbols;
  for (const std::string& name : names) {
    symbols.emplace(name, version);
  }
  return symbols;
}

TEST(Exports, OfThePoolLibraryAreFifteenFunctionsAndThreeGlobals) {
  const std::set<std::string> expected = {"IS_MONITOR_POOL",
                                          "ZEP_HttpPool_AddTask",
                                          "ZEP_HttpPool_ClearTask",
                                          "ZEP_HttpPool_Create",
                                          "ZEP_HttpPool_Destroy",
                                          "ZEP_HttpPool_GetSnapshot",
                                          "ZEP_HttpPool_GetTaskList",
                                          "ZEP_HttpPool_GetTaskStatus",
                                          "ZEP_HttpPool_GetTaskProperty",
                                          "ZEP_HttpPool_Init",
                                          "ZEP_HttpPool_RemoveTask",
                                          "ZEP_HttpPool_SetPoolProc",
                                          "ZEP_HttpPool_SetTaskDataProperty",
                                          "ZEP_HttpPool_SetTaskProperty",
                                          "ZEP_HttpPool_TaskReset",
                                          "ZEP_HttpPool_TaskRun",
                                          "g_localizationStr",
                                          "g_pGlobal"};
  ASSERT_EQ(expected.size(), 18U);
  const Exports exports = exportsOf(POOL_LIBRARY);
  EXPECT_EQ(exports.symbols, all(expected, "HTTPPOOL_1.0"));
  EXPECT_EQ(exports.versions, std::set<std::string>{"HTTPPOOL_1.0"});
}

TEST(Exports, OfTheFoundationAreItsCFaceAndItsOwnClasses) {
  const Exports exports = exportsOf(FOUNDATION_LIBRARY);
  std::map<std::string, std::string> cFace;
  for (const auto& [name, version] : exports.symbols) {
    if (!name.starts_with("_Z")) {
      cFace.emplace(name, version);
    } else {
      EXPECT_EQ(version, "ZEP_FOUNDATION_PRIVATE") << name;
      EXPECT_NE(name.find("10foundation"), std::string::npos) << name;
      EXPECT_EQ(name.find("curl"), std::string::npos) << name;
    }
  }
  const std::set<std::string> expected = {"ZEP_Notification_AddObserver",
                                          "ZEP_Notification_Post",
                                          "ZEP_Notification_RemoveObserver",
                                          "ZEP_RunLoop_Run",
                                          "ZEP_RunLoop_Stop",
                                          "ZEP_TrustPanel_SetRunner"};
  EXPECT_EQ(cFace, all(expected, "ZEP_FOUNDATION_1.0"));
  EXPECT_EQ(exports.versions, (std::set<std::string>{"ZEP_FOUNDATION_1.0", "ZEP_FOUNDATION_PRIVATE"}));
}

}  // namespace
}  // namespace test
