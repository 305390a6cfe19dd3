// bench_work: does the works it is given by name, or all. Under callgrind each ends with a dump of its name that counts
// the work alone; elsewhere it is just done. usage: bench_work [NAME...]

#include <valgrind/callgrind.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "Work.h"

namespace {

bool doWork(const Work& work) {
  const std::function<bool()> once = work.prepare();
  if (!once()) {
    return false;
  }
  const std::string name(work.name);
  CALLGRIND_START_INSTRUMENTATION;
  CALLGRIND_ZERO_STATS;
  const bool isRight = once();
  CALLGRIND_DUMP_STATS_AT(name.c_str());
  CALLGRIND_STOP_INSTRUMENTATION;
  return isRight;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string_view> wanted(argv + 1, argv + argc);
  const auto isWanted = [&](const Work& work) {
    return wanted.empty() || std::find(wanted.begin(), wanted.end(), work.name) != wanted.end();
  };
  for (const Work& work : allWorks()) {
    if (isWanted(work) && !doWork(work)) {
      std::fprintf(stderr, "bench_work: %s did not do what it should\n", std::string(work.name).c_str());
      return EXIT_FAILURE;
    }
  }
  return EXIT_SUCCESS;
}
