// The library loaded and unloaded at run time. This program is not linked with it.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include "httpPool/ZEP_HttpPool.h"

namespace test {
namespace {

void* load() {
  void* const handle = dlopen(POOL_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  EXPECT_NE(handle, nullptr) << dlerror();
  return handle;
}

bool isLoaded() {
  void* const handle = dlopen(POOL_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
  if (handle != nullptr) {
    dlclose(handle);
  }
  return handle != nullptr;
}

template <typename Function>
Function* function(void* handle, const char* name) {
  return reinterpret_cast<Function*>(dlsym(handle, name));
}

TEST(Unload, WithoutPoolsIsARealOne) {
  for (int round = 0; round < 5; ++round) {
    void* const handle = load();
    ASSERT_TRUE(isLoaded());
    long size = 0;
    EXPECT_EQ(
        function<decltype(ZEP_HttpPool_GetSnapshot)>(handle, "ZEP_HttpPool_GetSnapshot")(nullptr, &size), 0);
    EXPECT_EQ(size, 3);
    ASSERT_EQ(dlclose(handle), 0);
    EXPECT_FALSE(isLoaded());
  }
}

TEST(Unload, ManyTimesLeavesNothingBehind) {
  const auto loadAndUnload = [](int rounds) {
    for (int round = 0; round < rounds; ++round) {
      void* const handle = load();
      function<decltype(ZEP_HttpPool_AddTask)>(handle, "ZEP_HttpPool_AddTask")("no pool", "task");
      dlclose(handle);
      ASSERT_FALSE(isLoaded());
    }
  };
  // What the libraries beneath, which stay, keep for themselves.
  loadAndUnload(20);
  const auto before = static_cast<long>(mallinfo2().uordblks);
  loadAndUnload(200);
  EXPECT_LT(static_cast<long>(mallinfo2().uordblks) - before, 4096);
  void* const handle = load();
  EXPECT_EQ(function<decltype(ZEP_HttpPool_Create)>(handle, "ZEP_HttpPool_Create")("pool"), 0);
  dlclose(handle);
  EXPECT_TRUE(isLoaded());
}

TEST(Unload, LeavesTheRegistryPointerSetWhileLoaded) {
  void* const handle = load();
  auto* const registry = static_cast<void**>(dlsym(handle, "g_pGlobal"));
  ASSERT_NE(registry, nullptr);
  EXPECT_NE(*registry, nullptr);
  dlclose(handle);
}

// A pool has timers that point into the image: it must stay.
TEST(Unload, WithAPoolKeepsTheImage) {
  void* const handle = load();
  const auto create = function<decltype(ZEP_HttpPool_Create)>(handle, "ZEP_HttpPool_Create");
  const auto addTask = function<decltype(ZEP_HttpPool_AddTask)>(handle, "ZEP_HttpPool_AddTask");
  const auto getStatus = function<decltype(ZEP_HttpPool_GetTaskStatus)>(handle, "ZEP_HttpPool_GetTaskStatus");
  ASSERT_EQ(create("pool"), 0);
  ASSERT_EQ(addTask("pool", "task"), 0);
  ASSERT_EQ(dlclose(handle), 0);
  EXPECT_TRUE(isLoaded());
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_FAILED;
  EXPECT_EQ(getStatus("pool", "task", &status), 0);
  EXPECT_EQ(status, ZEP_HTTP_TASK_UNINITIALIZED);
}

TEST(Unload, AfterAllPoolsWereDestroyedKeepsTheImage) {
  void* const handle = load();
  function<decltype(ZEP_HttpPool_Create)>(handle, "ZEP_HttpPool_Create")("pool");
  function<decltype(ZEP_HttpPool_Destroy)>(handle, "ZEP_HttpPool_Destroy")("pool");
  const auto getSnapshot = function<decltype(ZEP_HttpPool_GetSnapshot)>(handle, "ZEP_HttpPool_GetSnapshot");
  ASSERT_EQ(dlclose(handle), 0);
  EXPECT_TRUE(isLoaded());
  long size = 0;
  EXPECT_EQ(getSnapshot(nullptr, &size), 0);
  EXPECT_EQ(size, 3);
}

}  // namespace
}  // namespace test
