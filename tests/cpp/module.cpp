// A shared object with requests of its own, as a plug-in of a host has them.

#include <optional>
#include <string>

#include "httpPool/httpPool.hpp"

namespace {
std::optional<httpPool::Pool> pool;
std::optional<httpPool::Run> last;
}  // namespace

extern "C" {
__attribute__((visibility("default"))) void moduleBegin(const char* url);
__attribute__((visibility("default"))) const char* modulePoolName();
/// Null while it is running.
__attribute__((visibility("default"))) const char* moduleResult();
__attribute__((visibility("default"))) void moduleEnd();
}

void moduleBegin(const char* url) {
  pool.emplace("shared name");
  last = pool->task("shared name").url(url).run();
}

const char* modulePoolName() {
  return pool->name().c_str();
}

const char* moduleResult() {
  return last->hasEnded() ? last->outcome()->text().c_str() : nullptr;
}

void moduleEnd() {
  pool.reset();
}
