// A pool's timer over ten seconds: how late its beats are on their grid of 10 ms, and whether the grid holds.

#include <benchmark/benchmark.h>
#include <glib.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <vector>

#include "common/zep/IZEPTimer_Callback.h"
#include "common/zep/ZEPTimer.h"

namespace {

using Clock = std::chrono::steady_clock;

class Beats : public IZEPTimer_Callback {
 public:
  virtual ~Beats() = default;
  void OnTimer(unsigned int) override { times.push_back(Clock::now()); }

  std::vector<Clock::time_point> times;
};

/// How much later than its grid's point each beat was, in microseconds.
std::vector<double> lateness(Clock::time_point start, std::chrono::milliseconds interval,
                             const std::vector<Clock::time_point>& beats) {
  std::vector<double> late;
  late.reserve(beats.size());
  for (const auto beat : beats) {
    late.push_back(std::chrono::duration<double, std::micro>((beat - start) % interval).count());
  }
  return late;
}

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

void TimerGrid(benchmark::State& state) {
  constexpr std::chrono::milliseconds kInterval(10);
  constexpr unsigned int kTimerId = 1;
  // The first and the last second: a grid that drifts is later at its end.
  constexpr std::size_t kBeatsOfASecond = 100;
  for ([[maybe_unused]] const auto _ : state) {
    Beats beats;
    ZEPTimer timer(&beats);
    const auto start = Clock::now();
    timer.SetTimer(kTimerId, static_cast<unsigned int>(kInterval.count()));
    const auto end = start + std::chrono::seconds(state.range(0));
    while (Clock::now() < end) {
      g_main_context_iteration(nullptr, TRUE);
    }
    timer.KillTimer(kTimerId);

    std::vector<double> late = lateness(start, kInterval, beats.times);
    if (late.size() < 2 * kBeatsOfASecond) {
      state.SkipWithError("hardly any beat came");
      break;
    }
    const double drift = median({late.end() - kBeatsOfASecond, late.end()}) -
                         median({late.begin(), late.begin() + kBeatsOfASecond});
    const double all = std::chrono::duration<double>(end - start) / kInterval;
    std::sort(late.begin(), late.end());
    state.counters["late_median_us"] = late[late.size() / 2];
    state.counters["late_p99_us"] = late[late.size() * 99 / 100];
    state.counters["late_max_us"] = late.back();
    state.counters["drift_us"] = drift;
    state.counters["missed"] = all - static_cast<double>(late.size());
  }
}
BENCHMARK(TimerGrid)->Arg(10)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
