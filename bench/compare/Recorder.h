#pragma once

// Keeps the time of requests that run side by side in slots, each begun again when it has ended. The measured time
// begins when every slot has ended once, so that connections stand and code is warm, and ends after the given seconds;
// what is in flight then still ends, but does not count. Belongs to the thread that runs the requests.

#include <vector>

#include "bench/compare/Figures.h"
#include "bench/compare/Usage.h"

namespace bench {

class Recorder {
 public:
  /// 0 seconds: no warming up, and the first end ends it.
  Recorder(int slots, double seconds);

  void begin(int slot);
  /// `bodyBytes` is what arrived; `good`: it is what was asked for. Returns whether the slot has to begin again.
  bool end(int slot, long bodyBytes, bool good);
  /// Every slot has ended for good, or is given up.
  bool isDone() const { return running_ == 0; }

  Figures figures() const;

 private:
  enum class Phase { WarmingUp, Measuring, Ending };

  void startMeasuring(double time);
  void stopMeasuring(double time);
  void warmUp(int slot, double time);

  double seconds_;
  int cold_;  ///< slots that have not ended yet
  int running_;
  Phase phase_ = Phase::WarmingUp;
  double created_;
  double measuredFrom_ = 0;
  double measuredTo_ = 0;
  Usage usage_;
  std::vector<double> begun_;
  std::vector<bool> isWarm_;
  std::vector<double> milliseconds_;
  Figures figures_;
};

}  // namespace bench
