// A coroutine that requests the URLs of the command line side by side and shows the pages in their order.
//   c++ -std=c++20 -I. awaitable.cpp -lhttpPool -lzepfoundation -o awaitable

#include <iostream>
#include <string>
#include <vector>

#include "httpPool/httpPool.hpp"

namespace {

httpPool::Detached showAll(httpPool::Pool& pool, std::vector<std::string> urls, int& failures) {
  std::vector<httpPool::Run> runs;
  for (const std::string& url : urls) {
    runs.push_back(pool.task().url(url).method("GET").run());
  }
  for (const httpPool::Run& run : runs) {
    const httpPool::Outcome outcome = co_await run;
    std::cout << (outcome ? outcome.text() : outcome.description()) << std::endl;
    failures += outcome ? 0 : 1;
  }
  httpPool::stop();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    return 2;
  }
  httpPool::Pool pool;
  int failures = 0;
  showAll(pool, {argv + 1, argv + argc}, failures);
  httpPool::run();
  return failures == 0 ? 0 : 1;
}
