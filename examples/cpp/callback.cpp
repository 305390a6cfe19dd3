// Requests the URLs of the command line side by side and tells each end as it comes.
//   c++ -std=c++20 -I. callback.cpp -lhttpPool -lzepfoundation -o callback

#include <iostream>

#include "httpPool/httpPool.hpp"

int main(int argc, char** argv) {
  bool areAllDone = true;
  int running = argc - 1;
  // Behind what its callbacks use, since its end calls those that still wait.
  httpPool::Pool pool("callbacks");

  for (int i = 1; i < argc; ++i) {
    // Nobody keeps this task: its request belongs to the pool.
    pool.task(argv[i]).url(argv[i]).method("GET").run().then(
        [&, url = argv[i]](const httpPool::Outcome& outcome) {
          std::cout << url << ": " << outcome.description() << std::endl;
          areAllDone = areAllDone && outcome.isDone();
          if (--running == 0) {
            httpPool::stop();
          }
        });
  }
  // An application with GTK or Qt turns its own loop instead.
  httpPool::runUntil([&] { return running == 0; });
  return areAllDone ? 0 : 1;
}
