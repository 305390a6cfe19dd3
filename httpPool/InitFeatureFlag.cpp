#include "httpPool/InitFeatureFlag.h"

bool IS_MONITOR_POOL = false;

void InitFeatureFlag() {
  // The settings file that would switch the monitor on belongs to the monitor, which this version does not
  // have.
}
