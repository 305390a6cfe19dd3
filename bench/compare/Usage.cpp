#include "bench/compare/Usage.h"

#include <chrono>
#include <cstring>
#include <fstream>
#include <string>

namespace bench {
namespace {

double secondsOf(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

}  // namespace

Usage Usage::operator-(const Usage& earlier) const {
  return {.cpuSeconds = cpuSeconds - earlier.cpuSeconds,
          .voluntarySwitches = voluntarySwitches - earlier.voluntarySwitches,
          .involuntarySwitches = involuntarySwitches - earlier.involuntarySwitches};
}

Usage usageOf(__rusage_who who) {
  rusage usage{};
  getrusage(who, &usage);
  return {.cpuSeconds = secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime),
          .voluntarySwitches = usage.ru_nvcsw,
          .involuntarySwitches = usage.ru_nivcsw};
}

long statusNumber(pid_t process, const char* label) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(label)) {
      return std::strtol(line.c_str() + std::strlen(label), nullptr, 10);
    }
  }
  return 0;
}

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace bench
