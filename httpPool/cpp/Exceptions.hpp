#pragma once

// What becomes of exceptions that leave the host's callbacks: none may pass through the C library, so each is caught
// and handed to one handler. Part of httpPool.hpp.

#include <cstdio>
#include <exception>
#include <functional>
#include <mutex>
#include <utility>

#include "httpPool/cpp/Undying.hpp"

namespace httpPool {
inline namespace v1 {

/// Gets what left a callback; see setExceptionHandler().
using ExceptionHandler = std::function<void(std::exception_ptr)>;

namespace detail {

struct HandlerSlot {
  std::mutex mutex;
  ExceptionHandler handler;
};

inline HandlerSlot& handlerSlot() {
  static Undying<HandlerSlot> slot;
  return slot.value();
}

inline void print(const std::exception_ptr& exception) noexcept {
  try {
    std::rethrow_exception(exception);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "httpPool: an exception left a callback: %s\n", error.what());
  } catch (...) {
    std::fprintf(stderr, "httpPool: an exception left a callback\n");
  }
}

inline void report(const std::exception_ptr& exception) noexcept {
  try {
    ExceptionHandler handler;
    {
      HandlerSlot& slot = handlerSlot();
      const std::lock_guard lock(slot.mutex);
      handler = slot.handler;
    }
    if (!handler) {
      return print(exception);
    }
    handler(exception);
  } catch (...) {
    print(std::current_exception());
  }
}

/// Calls a function of the host's; false when it threw, which has been reported then.
template <typename Function>
bool guarded(const Function& function) noexcept {
  try {
    function();
    return true;
  } catch (...) {
    report(std::current_exception());
    return false;
  }
}

}  // namespace detail

/// Sets what is done with an exception that leaves a callback, an observer, a panel or a Detached coroutine; an empty
/// handler restores the default, one line on stderr. Any thread. The handler is called on the thread that threw, also on
/// threads of the library; what it throws itself is printed.
inline void setExceptionHandler(ExceptionHandler handler) {
  detail::HandlerSlot& slot = detail::handlerSlot();
  const std::lock_guard lock(slot.mutex);
  // The old one goes with the parameter, behind the lock: its captures may do anything.
  std::swap(slot.handler, handler);
}

}  // namespace v1
}  // namespace httpPool
