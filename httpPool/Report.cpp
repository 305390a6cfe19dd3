#include "httpPool/Report.h"

void CReport::UpdateStatus(const char* /*poolName*/, const char* /*taskName*/, ENUM_POOL_EVENT /*event*/) {
}
