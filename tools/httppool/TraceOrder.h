// Puts requests, which end in any order, into the order of their starts. A request waits for those that started
// before it; when kMostWaiting wait, the first of them goes ahead. One thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <utility>

#include "TraceRequest.h"

namespace httppool {

class TraceOrder {
 public:
  using Sink = std::function<void(TraceRequest&&)>;

  static constexpr std::size_t kMostWaiting = 1000;

  explicit TraceOrder(Sink sink) : sink_(std::move(sink)) {}

  void add(TraceRequest&& request);
  // No more is to come.
  void finish();

 private:
  void passFirst();

  Sink sink_;
  std::map<std::uint64_t, TraceRequest> waiting_;
  std::uint64_t next_ = 1;
};

}  // namespace httppool
