// What making and removing costs, while more and more others are there: it should not depend on them.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "TaskPool.h"
#include "httpPool/ZEP_HttpPool.h"

namespace {

/// Adds and removes one task beside that many others.
void TaskAddRemove(benchmark::State& state) {
  const TaskPool tasks(static_cast<std::size_t>(state.range(0)));
  for ([[maybe_unused]] const auto _ : state) {
    ZEP_HttpPool_AddTask(tasks.name(), "one more");
    ZEP_HttpPool_RemoveTask(tasks.name(), "one more");
  }
  state.SetComplexityN(state.range(0));
}
BENCHMARK(TaskAddRemove)->RangeMultiplier(10)->Range(10, 100'000)->Complexity();

/// The same with names of that many characters.
void TaskNameLength(benchmark::State& state) {
  const TaskPool tasks(10);
  const std::string name(static_cast<std::size_t>(state.range(0)), 'n');
  for ([[maybe_unused]] const auto _ : state) {
    ZEP_HttpPool_AddTask(tasks.name(), name.c_str());
    ZEP_HttpPool_RemoveTask(tasks.name(), name.c_str());
  }
  state.SetComplexityN(state.range(0));
}
BENCHMARK(TaskNameLength)->RangeMultiplier(10)->Range(10, 100'000)->Complexity();

enum class Order { First, Last, Any };

/// Adds that many tasks and removes them one by one; the time is that of one task.
void TaskAllOneByOne(benchmark::State& state, Order order) {
  const auto count = static_cast<std::size_t>(state.range(0));
  const TaskPool pool(0);
  const std::vector<std::string> names = TaskPool::names("task", count);
  std::vector<std::string> removals = names;
  if (order == Order::Last) {
    std::reverse(removals.begin(), removals.end());
  } else if (order == Order::Any) {
    std::shuffle(removals.begin(), removals.end(), std::minstd_rand(1));
  }
  for ([[maybe_unused]] const auto _ : state) {
    for (const std::string& name : names) {
      ZEP_HttpPool_AddTask(pool.name(), name.c_str());
    }
    for (const std::string& name : removals) {
      ZEP_HttpPool_RemoveTask(pool.name(), name.c_str());
    }
  }
  state.counters["per_task"] = benchmark::Counter(static_cast<double>(state.iterations() * state.range(0)),
                                                  benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
#define COUNTS RangeMultiplier(10)->Range(10, 100'000)->Unit(benchmark::kMicrosecond)
BENCHMARK_CAPTURE(TaskAllOneByOne, FirstFirst, Order::First)->COUNTS;
BENCHMARK_CAPTURE(TaskAllOneByOne, LastFirst, Order::Last)->COUNTS;
BENCHMARK_CAPTURE(TaskAllOneByOne, AnyOrder, Order::Any)->COUNTS;
#undef COUNTS

/// Creates and destroys one pool beside that many others.
void PoolCreateDestroy(benchmark::State& state) {
  std::vector<std::unique_ptr<TaskPool>> pools;
  for (const std::string& name : TaskPool::names("pool", static_cast<std::size_t>(state.range(0)))) {
    pools.push_back(std::make_unique<TaskPool>(0, name));
  }
  for ([[maybe_unused]] const auto _ : state) {
    ZEP_HttpPool_Create("one more");
    ZEP_HttpPool_Destroy("one more");
    TaskPool::deleteDestroyed();
  }
  state.SetComplexityN(state.range(0));
}
BENCHMARK(PoolCreateDestroy)->RangeMultiplier(10)->Range(10, 100'000)->Complexity();

/// The same with a task in it, so with a timer of its own.
void PoolWithTask(benchmark::State& state) {
  for ([[maybe_unused]] const auto _ : state) {
    const TaskPool pool(1, "one more");
  }
}
BENCHMARK(PoolWithTask);

}  // namespace
