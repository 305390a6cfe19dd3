/* The header alone, twice: it needs nothing before it and bears a second time. */
#include "httpPool/ZEP_HttpPool.h"

ZEP_HttpPool_NotifyProc poolHeaderProc;
int poolHeaderEnumsAreInts[sizeof(ZEP_HTTP_TASK_STATUS) == sizeof(int) ? 1 : -1];
int poolHeaderPropertiesAreInts[sizeof(ZEP_HTTP_TASK_PROPERTY) == sizeof(int) ? 1 : -1];
