#pragma once

// A static object that is never destroyed, because threads and other static objects may use it while the process exits.
// It holds no memory of its own when its value does not, so unloading a shared object leaves nothing behind. Part of
// httpPool.hpp; not for hosts.

#include <cstddef>
#include <new>

namespace httpPool {
inline namespace v1 {
namespace detail {

template <typename Value>
class Undying {
 public:
  Undying() { ::new (static_cast<void*>(storage_)) Value(); }
  Undying(const Undying&) = delete;
  Undying& operator=(const Undying&) = delete;

  Value& value() { return *std::launder(reinterpret_cast<Value*>(storage_)); }

 private:
  alignas(Value) std::byte storage_[sizeof(Value)];
};

}  // namespace detail
}  // namespace v1
}  // namespace httpPool
