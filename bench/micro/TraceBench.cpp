// A trace statement. In bench_micro there is no plug-in; in bench_trace there is, with the threshold at info: a debug
// statement is below it, one of info is written.

#include <benchmark/benchmark.h>

#include <string>

#include "support/CFuncTrace.h"
#include "support/logstream.h"

namespace {

const char* outcome(bool isWritten, bool isPluginThere) {
  if (!isPluginThere) {
    return "no plug-in";
  }
  return isWritten ? "written" : "below the threshold";
}

void statement(benchmark::State& state, unsigned long level) {
  const std::string url = "https://www.example.com/path/to/a/resource?query=some";
  for ([[maybe_unused]] const auto _ : state) {
    logstream(level, "Unknown").l_value() << "-[MacDownloader Start]"
                                          << ", URL:" << url << ", number: " << 4711 << std::endl;
  }
  state.SetLabel(outcome(IsCanLog(level), qlxHasWriter(level)));
}

void TraceDebug(benchmark::State& state) {
  statement(state, QLX_LEVEL_DEBUG);
}
BENCHMARK(TraceDebug);

void TraceInfo(benchmark::State& state) {
  statement(state, QLX_LEVEL_INFO);
}
BENCHMARK(TraceInfo);

/// What an exported function does at its entry and its exit. The plug-in decides about the threshold.
void TraceFunction(benchmark::State& state) {
  for ([[maybe_unused]] const auto _ : state) {
    const CFuncTrace trace("ZEP_HttpPool_SetTaskProperty");
  }
  state.SetLabel(outcome(IsCanLog(QLX_LEVEL_DEBUG), qlxHasWriter(QLX_LEVEL_DEBUG)));
}
BENCHMARK(TraceFunction);

}  // namespace
