// A thread of the host's waits for a request; the main thread, which owns the pool, turns the run loop meanwhile.
//   c++ -std=c++20 -I. future.cpp -lhttpPool -lzepfoundation -o future

#include <algorithm>
#include <future>
#include <iostream>
#include <string>
#include <utility>

#include "httpPool/httpPool.hpp"

namespace {

std::size_t countWords(std::future<httpPool::Outcome> page) {
  const std::string text = page.get().value();
  std::size_t words = 0;
  for (std::size_t at = 0; (at = text.find_first_not_of(" \t\r\n", at)) != std::string::npos; ++words) {
    at = std::min(text.find_first_of(" \t\r\n", at), text.size());
  }
  return words;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    return 2;
  }
  httpPool::Pool pool;
  httpPool::Task task = pool.task().url(argv[1]).method("GET");
  auto words = std::async(std::launch::async, countWords, task.run().future());
  httpPool::runUntilReady(words);
  try {
    std::cout << words.get() << " words" << std::endl;
    return 0;
  } catch (const httpPool::RequestError& error) {
    std::cout << error.what() << std::endl;
    return 1;
  }
}
