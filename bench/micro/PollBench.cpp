// A pool's beat: the host is notified of each task and asks for its status.

#include <benchmark/benchmark.h>
#include <glib.h>

#include <cstddef>

#include "TaskPool.h"
#include "httpPool/Global.h"

namespace {

constexpr unsigned int kPollTimerId = 10001;

std::size_t g_notified = 0;

void askForStatus(ZEP_HTTP_POOL_TASK_NOTIFY, const char* pool, const char* task, const char*) {
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_NOT_EXIST;
  ZEP_HttpPool_GetTaskStatus(pool, task, &status);
  benchmark::DoNotOptimize(status);
  ++g_notified;
}

void countOnly(ZEP_HTTP_POOL_TASK_NOTIFY, const char*, const char*, const char*) {
  ++g_notified;
}

void setPerTask(benchmark::State& state) {
  state.counters["per_task"] = benchmark::Counter(static_cast<double>(state.iterations() * state.range(0)),
                                                  benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void beat(benchmark::State& state, ZEP_HttpPool_NotifyProc notify) {
  const auto count = static_cast<std::size_t>(state.range(0));
  const TaskPool tasks(count);
  ZEP_HttpPool_SetPoolProc(tasks.name(), notify);
  CPool* pool = g_pGlobal->GetPool(tasks.name());
  g_notified = 0;
  for ([[maybe_unused]] const auto _ : state) {
    pool->OnTimer(kPollTimerId);
  }
  if (g_notified != count * static_cast<std::size_t>(state.iterations())) {
    state.SkipWithError("not every task was notified in every beat");
  }
  setPerTask(state);
}

void PollTick(benchmark::State& state) {
  beat(state, &askForStatus);
}
BENCHMARK(PollTick)->RangeMultiplier(10)->Range(1, 100'000);

/// What is left of it when the host asks for nothing.
void PollTickNotifyOnly(benchmark::State& state) {
  beat(state, &countOnly);
}
BENCHMARK(PollTickNotifyOnly)->RangeMultiplier(10)->Range(1, 100'000);

/// Beats as the run loop brings them, every 10 ms. The processor's time is what counts; the clock's is the grid's.
void PollTickOfTimer(benchmark::State& state) {
  const TaskPool tasks(static_cast<std::size_t>(state.range(0)));
  ZEP_HttpPool_SetPoolProc(tasks.name(), &askForStatus);
  for ([[maybe_unused]] const auto _ : state) {
    g_notified = 0;
    while (g_notified == 0) {
      g_main_context_iteration(nullptr, TRUE);
    }
  }
}
BENCHMARK(PollTickOfTimer)
    ->RangeMultiplier(10)
    ->Range(1, 10'000)
    ->Iterations(100)
    ->Unit(benchmark::kMicrosecond);

/// What any timer of GLib's takes, with nothing to do: the difference is ours.
void PollTickOfGLib(benchmark::State& state) {
  int beats = 0;
  const guint source = g_timeout_add(
      10,
      [](gpointer count) -> gboolean {
        ++*static_cast<int*>(count);
        return G_SOURCE_CONTINUE;
      },
      &beats);
  for ([[maybe_unused]] const auto _ : state) {
    const int before = beats;
    while (beats == before) {
      g_main_context_iteration(nullptr, TRUE);
    }
  }
  g_source_remove(source);
}
BENCHMARK(PollTickOfGLib)->Iterations(100)->Unit(benchmark::kMicrosecond);

}  // namespace
