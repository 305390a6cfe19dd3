// A coroutine that requests the URLs of the command line side by side and shows the pages in their order.
//   c++ -std=c++20 -I. awaitable.cpp -lhttpPool -lzepfoundation -o awaitable

#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "httpPool/httpPool.hpp"

namespace {

httpPool::Detached showAll(httpPool::Pool& pool, std::vector<std::string> urls,
                           std::optional<int>& failures) {
  std::vector<httpPool::Run> runs;
  for (const std::string& url : urls) {
    runs.push_back(pool.task().url(url).method("GET").run());
  }
  int failed = 0;
  for (const httpPool::Run& run : runs) {
    const httpPool::Outcome outcome = co_await run;
    std::cout << (outcome ? outcome.text() : outcome.description()) << std::endl;
    failed += outcome ? 0 : 1;
  }
  failures = failed;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    return 2;
  }
  std::optional<int> failures;
  httpPool::Pool pool;
  showAll(pool, {argv + 1, argv + argc}, failures);
  httpPool::runUntil([&] { return failures.has_value(); });
  return failures == 0 ? 0 : 1;
}
