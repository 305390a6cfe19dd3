#pragma once

// What processes have used so far, from the kernel's books. Any thread.

#include <sys/resource.h>
#include <sys/types.h>

namespace bench {

struct Usage {
  double cpuSeconds = 0;
  long voluntarySwitches = 0;
  long involuntarySwitches = 0;

  Usage operator-(const Usage& earlier) const;
};

/// Of this process, of one thread, or of the children that have been waited for (getrusage(2)).
Usage usageOf(__rusage_who who);

/// A number behind a label of /proc/PID/status, such as "VmHWM:"; 0 when the process is gone.
long statusNumber(pid_t process, const char* label);

/// Seconds of the monotonic clock.
double now();

}  // namespace bench
