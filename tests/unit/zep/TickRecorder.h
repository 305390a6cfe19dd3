#pragma once

#include <algorithm>
#include <functional>
#include <vector>

#include "common/zep/IZEPTimer_Callback.h"

/// Writes down the ticks it gets.
class TickRecorder final : public IZEPTimer_Callback {
 public:
  std::vector<TimerID> ticks;
  std::function<void(TimerID)> onTick;

  void OnTimer(TimerID id) override {
    ticks.push_back(id);
    if (onTick) {
      onTick(id);
    }
  }
  long countOf(TimerID id) const { return std::count(ticks.begin(), ticks.end(), id); }
};
