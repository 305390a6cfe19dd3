// What stays of 100,000 tasks when they have been removed. Nothing is given back by force: malloc_trim(3) is the
// host's to call.

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <unistd.h>

#include <cstddef>
#include <fstream>
#include <string>
#include <vector>

#include "TaskPool.h"
#include "httpPool/ZEP_HttpPool.h"

namespace {

double residentBytes() {
  std::ifstream statm("/proc/self/statm");
  long size = 0;
  long resident = 0;
  statm >> size >> resident;
  return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE));
}

double allocatedBytes() {
  const struct mallinfo2 info = mallinfo2();
  return static_cast<double>(info.uordblks + info.hblkhd);
}

/// `removal` empties the pool.
template <typename Removal>
void burst(benchmark::State& state, const Removal& removal) {
  const auto count = static_cast<std::size_t>(state.range(0));
  const std::vector<std::string> names = TaskPool::names("burst", count);
  for ([[maybe_unused]] const auto _ : state) {
    const TaskPool pool(1);
    const double allocatedBefore = allocatedBytes();
    const double residentBefore = residentBytes();
    for (const std::string& name : names) {
      ZEP_HttpPool_AddTask(pool.name(), name.c_str());
    }
    const double allocatedFull = allocatedBytes();
    const double residentFull = residentBytes();
    removal(pool, names);
    state.counters["task_bytes"] = (allocatedFull - allocatedBefore) / static_cast<double>(count);
    state.counters["resident_full"] = residentFull - residentBefore;
    state.counters["allocated_left"] = allocatedBytes() - allocatedBefore;
    state.counters["resident_left"] = residentBytes() - residentBefore;
  }
}

void MemoryAfterRemove(benchmark::State& state) {
  burst(state, [](const TaskPool& pool, const std::vector<std::string>& names) {
    for (const std::string& name : names) {
      ZEP_HttpPool_RemoveTask(pool.name(), name.c_str());
    }
  });
}
BENCHMARK(MemoryAfterRemove)->Arg(100'000)->Iterations(1)->Unit(benchmark::kMillisecond);

void MemoryAfterClear(benchmark::State& state) {
  burst(state,
        [](const TaskPool& pool, const std::vector<std::string>&) { ZEP_HttpPool_ClearTask(pool.name()); });
}
BENCHMARK(MemoryAfterClear)->Arg(100'000)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
