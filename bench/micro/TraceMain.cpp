// bench_trace: the plug-in's settings, which it reads at the first line, and the benchmarks.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>

#include "support/QlxTrace.h"
#include "tests/support/TemporaryFolder.h"

int main(int argc, char** argv) {
  const test::TemporaryFolder folder;
  setenv("QLX_TRACE_LEVEL", "info", 1);
  setenv("QLX_TRACE_FILE", folder.file("trace.log").c_str(), 1);
  setenv("QLX_TRACE_MAX_BYTES", "16777216", 1);
  if (!qlxHasWriter(QLX_LEVEL_INFO)) {
    std::fputs("bench_trace: there is no trace plug-in beside this program\n", stderr);
    return EXIT_FAILURE;
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return EXIT_FAILURE;
  }
  benchmark::RunSpecifiedBenchmarks();
  return EXIT_SUCCESS;
}
