// Several shared objects of one process that include the header, with and without hidden visibility.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "tests/cpp/Host.h"
#include "tests/support/NginxServer.h"

namespace test {
namespace {

class Module {
 public:
  Module(const std::string& path, int flags) : handle_(dlopen(path.c_str(), RTLD_NOW | flags)) {
    EXPECT_NE(handle_, nullptr) << dlerror();
  }
  ~Module() { dlclose(handle_); }
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;

  template <typename Function>
  Function* function(const char* name) const {
    return reinterpret_cast<Function*>(dlsym(handle_, name));
  }

 private:
  void* handle_;
};

class CppModules : public testing::TestWithParam<int> {};

TEST_P(CppModules, HaveTheirOwnPoolsAndLearnOfTheirOwnEnds) {
  NginxServer server;
  Pool pool("shared name");
  const Module hidden(HIDDEN_MODULE, GetParam());
  const Module visible(VISIBLE_MODULE, GetParam());
  const Module other(OTHER_VISIBLE_MODULE, GetParam());
  std::set<std::string> names{pool.name()};
  const std::vector<const Module*> modules{&hidden, &visible, &other};
  for (const Module* module : modules) {
    module->function<void(const char*)>("moduleBegin")(server.url("/text").c_str());
    names.insert(module->function<const char*()>("modulePoolName")());
  }
  EXPECT_EQ(names.size(), 4U);
  const auto run = pool.task("shared name").url(server.url("/utf8")).run();
  for (const Module* module : modules) {
    const char* result = nullptr;
    ASSERT_TRUE(
        turnUntil([&] { return (result = module->function<const char*()>("moduleResult")()) != nullptr; }));
    EXPECT_STREQ(result, "Hello, pool!");
    module->function<void()>("moduleEnd")();
  }
  EXPECT_EQ(end(run), done("Grüße, 世界 🌍"));
}

TEST_P(CppModules, ComeAndGo) {
  NginxServer server;
  for (int i = 0; i < 3; ++i) {
    for (const char* path : {HIDDEN_MODULE, VISIBLE_MODULE}) {
      const Module module(path, GetParam());
      module.function<void(const char*)>("moduleBegin")(server.url("/text").c_str());
      const auto result = module.function<const char*()>("moduleResult");
      ASSERT_TRUE(turnUntil([&] { return result() != nullptr; }));
      EXPECT_STREQ(result(), "Hello, pool!");
      module.function<void()>("moduleEnd")();
    }
  }
}

INSTANTIATE_TEST_SUITE_P(All, CppModules, testing::Values(RTLD_LOCAL, RTLD_GLOBAL));

}  // namespace
}  // namespace test
