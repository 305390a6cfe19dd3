#include "TraceOrder.h"

#include <algorithm>

namespace httppool {

void TraceOrder::add(TraceRequest&& request) {
  const std::uint64_t number = request.number;
  waiting_.emplace(number, std::move(request));
  while (!waiting_.empty() && (waiting_.begin()->first <= next_ || waiting_.size() > kMostWaiting)) {
    passFirst();
  }
}

void TraceOrder::finish() {
  while (!waiting_.empty()) {
    passFirst();
  }
}

void TraceOrder::passFirst() {
  auto first = waiting_.extract(waiting_.begin());
  next_ = std::max(next_, first.key() + 1);
  sink_(std::move(first.mapped()));
}

}  // namespace httppool
