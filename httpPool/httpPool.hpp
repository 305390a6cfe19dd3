#pragma once

/// @file
/// httpPool.hpp: libhttpPool.so and libzepfoundation.so for hosts in C++20. Headers only, over ZEP_HttpPool.h and
/// ZEP_Foundation.h, which say what the library does; link with -lhttpPool -lzepfoundation.
///
///     httpPool::Pool pool;
///     httpPool::Task front = pool.task("front").url("http://example.org/").method("GET").header("Accept", "text/html");
///     front.run().then([](const httpPool::Outcome& outcome) { ... });      // called on the host's thread
///     std::future<httpPool::Outcome> future = front.run().future();        // for another thread
///     const httpPool::Outcome outcome = co_await front.run();              // in a coroutine
///     std::optional<httpPool::Outcome> outcome = front.run().wait();       // turns the run loop meanwhile
///
/// - THREADS: Everything is done on the host's thread, the one that makes the Pool and turns its run loop: by GTK or Qt,
///   or by run(), runFor(), runUntil(). Other threads may wait for futures, use Outcomes, and work with
///   notifications and setExceptionHandler().
/// - OWNERSHIP: A Pool destroys its pool, a Task resets and removes its task. Whoever waits for a request learns its end
///   exactly once, also when task or pool is destroyed: as Status::Cancelled.
/// - ERRORS: Outcomes are values. Exceptions come from Outcome::value(), which is asked for them, and when memory runs
///   out. None passes through the library: what leaves a callback goes to setExceptionHandler().
/// - MODULES: Several shared objects of a process may include this, with hidden or default visibility: each has its own
///   pools and tasks, and must destroy them before it is unloaded. The exception handler is each one's own with
///   hidden visibility.
///
/// The compiler needs C++20; co_await and Detached are there when it has coroutines (`__cpp_impl_coroutine`: GCC with
/// -std=c++20, clang from 17 on). Neither run-time type information nor another library is needed.

// IWYU pragma: begin_exports
#include "httpPool/cpp/Exceptions.hpp"
#include "httpPool/cpp/Json.hpp"
#include "httpPool/cpp/Notifications.hpp"
#include "httpPool/cpp/Outcome.hpp"
#include "httpPool/cpp/Pool.hpp"
#include "httpPool/cpp/Prompts.hpp"
#include "httpPool/cpp/Request.hpp"
#include "httpPool/cpp/Run.hpp"
#include "httpPool/cpp/RunLoop.hpp"
// IWYU pragma: end_exports

/// The library for hosts in C++; see httpPool.hpp.
namespace httpPool {
/// What the names of httpPool stand for. They are used without it.
inline namespace v1 {}
}  // namespace httpPool
