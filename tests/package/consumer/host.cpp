// Requests the URL that its argument names and prints the result.
#include <cstdio>
#include <httpPool/httpPool.hpp>

int main(int argc, char** argv) {
  httpPool::Pool pool;
  httpPool::Task task = pool.task("task").url(argv[argc - 1]).method("GET");
  const auto outcome = task.run().wait();
  if (!outcome || !outcome->isDone()) {
    return 1;
  }
  std::printf("done: %s\n", outcome->text().c_str());
}
