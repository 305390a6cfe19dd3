// Looking a pool and a task up by name: the first, the last and one that is not there.

#include <benchmark/benchmark.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "TaskPool.h"
#include "httpPool/Global.h"

namespace {

enum class Which { First, Last, Missing };

std::string nameOf(const char* prefix, Which which, std::size_t count) {
  switch (which) {
    case Which::First:
      return prefix + std::to_string(0);
    case Which::Last:
      return prefix + std::to_string(count - 1);
    case Which::Missing:
      break;
  }
  return prefix + std::string("-missing");
}

void LookUpTask(benchmark::State& state, Which which) {
  const auto count = static_cast<std::size_t>(state.range(0));
  const TaskPool tasks(count);
  CPool* pool = g_pGlobal->GetPool(tasks.name());
  const std::string name = nameOf("task", which, count);
  if ((pool->GetTask(name.c_str()) == nullptr) != (which == Which::Missing)) {
    state.SkipWithError("found the wrong one");
  }
  for ([[maybe_unused]] const auto _ : state) {
    benchmark::DoNotOptimize(pool->GetTask(name.c_str()));
  }
  state.SetComplexityN(state.range(0));
}
#define TASKS RangeMultiplier(10)->Range(10, 100'000)->Complexity()
BENCHMARK_CAPTURE(LookUpTask, First, Which::First)->TASKS;
BENCHMARK_CAPTURE(LookUpTask, Last, Which::Last)->TASKS;
BENCHMARK_CAPTURE(LookUpTask, Missing, Which::Missing)->TASKS;

void LookUpPool(benchmark::State& state, Which which) {
  const auto count = static_cast<std::size_t>(state.range(0));
  std::vector<std::unique_ptr<TaskPool>> pools;
  for (const std::string& name : TaskPool::names("pool", count)) {
    pools.push_back(std::make_unique<TaskPool>(0, name));
  }
  const std::string name = nameOf("pool", which, count);
  for ([[maybe_unused]] const auto _ : state) {
    benchmark::DoNotOptimize(g_pGlobal->GetPool(name.c_str()));
  }
  state.SetComplexityN(state.range(0));
}
BENCHMARK_CAPTURE(LookUpPool, First, Which::First)->TASKS;
BENCHMARK_CAPTURE(LookUpPool, Last, Which::Last)->TASKS;
BENCHMARK_CAPTURE(LookUpPool, Missing, Which::Missing)->TASKS;
#undef TASKS

}  // namespace
