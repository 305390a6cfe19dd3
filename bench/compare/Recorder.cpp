#include "bench/compare/Recorder.h"

#include <algorithm>

#include "bench/compare/Numbers.h"

namespace bench {
namespace {

/// Whoever has not answered every slot once by then is measured as he is.
double warmUpLimit(double seconds) {
  return std::max(10.0, 3 * seconds);
}

}  // namespace

Recorder::Recorder(int slots, double seconds)
    : seconds_(seconds),
      slots_(slots),
      running_(slots),
      created_(now()),
      begun_(static_cast<std::size_t>(slots)) {
  milliseconds_.reserve(1'000'000);
  if (seconds_ == 0) {
    startMeasuring(created_);
  }
}

void Recorder::begin(int slot) {
  begun_[static_cast<std::size_t>(slot)] = now();
  ++figures_.requests;
}

bool Recorder::end(int slot, long bodyBytes, bool good) {
  const double time = now();
  changePhase(time);
  ++ended_;
  if (!good) {
    ++figures_.failed;
  } else if (phase_ == Phase::Measuring) {
    ++figures_.finished;
    figures_.bytes += bodyBytes;
    milliseconds_.push_back((time - begun_[static_cast<std::size_t>(slot)]) * 1000);
  }
  const bool goesOn = phase_ != Phase::Ending && seconds_ > 0;
  running_ -= goesOn ? 0 : 1;
  if (running_ == 0 && phase_ == Phase::Measuring) {
    stopMeasuring(now());
  }
  return goesOn;
}

void Recorder::changePhase(double time) {
  if (seconds_ == 0) {
    return;
  }
  if (phase_ == Phase::WarmingUp && (ended_ >= slots_ || time - created_ > warmUpLimit(seconds_))) {
    startMeasuring(time);
  } else if (phase_ == Phase::Measuring && time - measuredFrom_ > seconds_) {
    stopMeasuring(time);
  }
}

void Recorder::startMeasuring(double time) {
  phase_ = Phase::Measuring;
  measuredFrom_ = time;
  usage_ = usageOf(RUSAGE_SELF);
}

void Recorder::stopMeasuring(double time) {
  phase_ = Phase::Ending;
  measuredTo_ = time;
  usage_ = usageOf(RUSAGE_SELF) - usage_;
}

Figures Recorder::figures() const {
  Figures result = figures_;
  result.seconds = measuredTo_ - measuredFrom_;
  result.cpuSeconds = usage_.cpuSeconds;
  result.voluntarySwitches = usage_.voluntarySwitches;
  result.involuntarySwitches = usage_.involuntarySwitches;
  if (!milliseconds_.empty()) {
    result.medianMs = percentile(milliseconds_, 0.5);
    result.p99Ms = percentile(milliseconds_, 0.99);
  }
  return result;
}

}  // namespace bench
