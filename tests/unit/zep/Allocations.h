#pragma once

/// While it lives, the `count`-th call of operator new on this thread, counted from 0, finds no memory.
class FailingAllocation {
 public:
  explicit FailingAllocation(int count);
  ~FailingAllocation();
  FailingAllocation(const FailingAllocation&) = delete;
  FailingAllocation& operator=(const FailingAllocation&) = delete;
  /// Whether there was such a call.
  bool hasFailed() const;
};
