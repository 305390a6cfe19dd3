// Both headers in C++: the functions have C linkage.
#include "foundation/ZEP_Foundation.h"
#include "httpPool/ZEP_HttpPool.h"

extern "C" long ZEP_RunLoop_Run(long milliseconds);
extern "C" long ZEP_HttpPool_Create(const char* poolName);
