// The JSON texts that are handed to the host: a pool's tasks, and the snapshot of all pools.

#include <benchmark/benchmark.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "TaskPool.h"
#include "httpPool/ZEP_HttpPool.h"

namespace {

void TextOfTaskList(benchmark::State& state) {
  const TaskPool tasks(static_cast<std::size_t>(state.range(0)));
  long size = 0;
  ZEP_HttpPool_GetTaskList(tasks.name(), nullptr, &size);
  std::string buffer(static_cast<std::size_t>(size), '\0');
  for ([[maybe_unused]] const auto _ : state) {
    ZEP_HttpPool_GetTaskList(tasks.name(), buffer.data(), &size);
  }
  state.SetBytesProcessed(state.iterations() * size);
  state.SetComplexityN(state.range(0));
}
BENCHMARK(TextOfTaskList)
    ->RangeMultiplier(10)
    ->Range(10, 100'000)
    ->Complexity()
    ->Unit(benchmark::kMicrosecond);

/// That many tasks in ten pools.
void TextOfSnapshot(benchmark::State& state) {
  constexpr std::size_t kPools = 10;
  std::vector<std::unique_ptr<TaskPool>> pools;
  for (const std::string& name : TaskPool::names("pool", kPools)) {
    pools.push_back(std::make_unique<TaskPool>(static_cast<std::size_t>(state.range(0)) / kPools, name));
  }
  long size = 0;
  ZEP_HttpPool_GetSnapshot(nullptr, &size);
  std::string buffer(static_cast<std::size_t>(size), '\0');
  for ([[maybe_unused]] const auto _ : state) {
    ZEP_HttpPool_GetSnapshot(buffer.data(), &size);
  }
  state.SetBytesProcessed(state.iterations() * size);
  state.SetComplexityN(state.range(0));
}
BENCHMARK(TextOfSnapshot)
    ->RangeMultiplier(10)
    ->Range(10, 100'000)
    ->Complexity()
    ->Unit(benchmark::kMicrosecond);

}  // namespace
