// The dynamic symbol tables of the two libraries.

#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

namespace test {
namespace {

/// What a library defines, without the versions behind the names and without the versions' own entries.
std::set<std::string> exportsOf(const std::string& library) {
  TemporaryFolder folder;
  const std::string output = folder.file("output");
  ChildProcess nm(
      {.arguments = {NM_PROGRAM, "-D", "--defined-only", "--format=posix", library}, .outputFile = output});
  EXPECT_EQ(nm.wait(), (ChildProcess::End{.exitStatus = 0, .signal = 0})) << readFile(output);
  std::set<std::string> names;
  std::istringstream lines(readFile(output));
  for (std::string line; std::getline(lines, line);) {
    std::string name;
    std::string type;
    std::istringstream(line) >> name >> type;
    if (type != "A") {
      names.insert(name.substr(0, name.find('@')));
    }
  }
  return names;
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
  EXPECT_EQ(exportsOf(POOL_LIBRARY), expected);
}

TEST(Exports, OfTheFoundationAreItsCFaceAndItsOwnClasses) {
  std::set<std::string> cFace;
  for (const std::string& name : exportsOf(FOUNDATION_LIBRARY)) {
    if (!name.starts_with("_Z")) {
      cFace.insert(name);
    } else {
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
  EXPECT_EQ(cFace, expected);
}

}  // namespace
}  // namespace test
