// The shared library as an image: what its load and its unload do.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <memory>

namespace {

struct Close {
  void operator()(void* library) const { dlclose(library); }
};
using Library = std::unique_ptr<void, Close>;

Library load() {
  return Library(dlopen(HTTPPOOL_LIBRARY, RTLD_NOW | RTLD_LOCAL));
}

bool isLoaded() {
  return Library(dlopen(HTTPPOOL_LIBRARY, RTLD_NOW | RTLD_NOLOAD)) != nullptr;
}

long snapshotSize(void* library) {
  auto* snapshot = reinterpret_cast<long (*)(char*, long*)>(dlsym(library, "ZEP_HttpPool_GetSnapshot"));
  long size = 0;
  EXPECT_EQ(snapshot(nullptr, &size), 0);
  return size;
}

TEST(ImageTest, LoadingMakesTheRegistryAndUnloadingTakesItAway) {
  ASSERT_FALSE(isLoaded());
  for (int round = 0; round < 2; ++round) {
    const Library library = load();
    ASSERT_NE(library, nullptr) << dlerror();
    auto* registry = static_cast<void**>(dlsym(library.get(), "g_pGlobal"));
    ASSERT_NE(registry, nullptr);
    EXPECT_NE(*registry, nullptr);
    EXPECT_FALSE(*static_cast<bool*>(dlsym(library.get(), "IS_MONITOR_POOL")));
    EXPECT_EQ(*static_cast<void**>(dlsym(library.get(), "g_localizationStr")), nullptr);
    EXPECT_EQ(snapshotSize(library.get()), 3);
  }
  EXPECT_FALSE(isLoaded()) << "without pools an unload is a real one";
}

TEST(ImageTest, TheFirstPoolPinsTheImage) {
  {
    const Library library = load();
    ASSERT_NE(library, nullptr) << dlerror();
    auto* create = reinterpret_cast<long (*)(const char*)>(dlsym(library.get(), "ZEP_HttpPool_Create"));
    EXPECT_EQ(create("p"), 0);
  }
  EXPECT_TRUE(isLoaded());
}

}  // namespace
