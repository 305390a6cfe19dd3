#pragma once

// What every test of the C++ face needs: its names, a limit, and a way to read a failed comparison. On the test's main
// thread.

#include <chrono>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "httpPool/httpPool.hpp"

namespace httpPool {
inline namespace v1 {
inline void PrintTo(const Outcome& outcome, std::ostream* stream) {
  *stream << outcome.description() << ": \"" << outcome.text().substr(0, 300) << '"';
}
}  // namespace v1
}  // namespace httpPool

namespace test {

using httpPool::Error;
using httpPool::ErrorId;
using httpPool::Outcome;
using httpPool::Pool;
using httpPool::RequestKind;
using httpPool::Status;
using httpPool::Task;

/// It only decides how long a broken test takes.
inline constexpr std::chrono::minutes kLimit{4};

inline Outcome done(std::string text) {
  return Outcome::done(std::move(text));
}
inline Outcome failed(ErrorId id, std::chrono::milliseconds retryAfter = {}) {
  return Outcome::failed({id, retryAfter});
}
inline Outcome cancelled() {
  return Outcome::ended(Status::Cancelled);
}
inline Outcome refused() {
  return Outcome::ended(Status::Refused);
}

/// Turns the run loop until its end; Uninitialized when that does not come.
inline Outcome end(const httpPool::Run& run) {
  return run.wait(kLimit).value_or(Outcome::ended(Status::Uninitialized));
}

/// Turns the run loop until the predicate holds; false at the limit.
template <typename Predicate>
bool turnUntil(const Predicate& predicate) {
  return httpPool::runUntil(predicate, kLimit);
}

inline std::vector<std::byte> bytesOf(std::string_view text) {
  const auto bytes = std::as_bytes(std::span(text));
  return {bytes.begin(), bytes.end()};
}

}  // namespace test
