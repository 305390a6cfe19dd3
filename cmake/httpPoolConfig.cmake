# find_package(httpPool CONFIG) gives two targets. httpPool::httpPool brings httpPool::foundation along.
#   httpPool::httpPool    requests: <httpPool/ZEP_HttpPool.h>, and <httpPool/httpPool.hpp> for C++
#   httpPool::foundation  run loop, notifications and panels: <foundation/ZEP_Foundation.h>
include(${CMAKE_CURRENT_LIST_DIR}/httpPoolTargets.cmake)
