#include "bench/compare/Recorder.h"

#include <algorithm>

#include "bench/compare/Numbers.h"

namespace bench {
namespace {

/// Whoever has not answered every slot once by then is measured as he is, and in the end not waited for any longer.
double patience(double seconds) {
  return std::max(10.0, 3 * seconds);
}

}  // namespace

Recorder::Recorder(int slots, double seconds)
    : seconds_(seconds),
      cold_(slots),
      running_(slots),
      created_(now()),
      begun_(static_cast<std::size_t>(slots)),
      isWarm_(static_cast<std::size_t>(slots)) {
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
  const bool counts = phase_ == Phase::Measuring;
  warmUp(slot, time);
  if (!good) {
    ++figures_.failed;
  } else if (counts) {
    ++figures_.finished;
    figures_.bytes += bodyBytes;
    milliseconds_.push_back((time - begun_[static_cast<std::size_t>(slot)]) * 1000);
  }
  // It lasts until a request ends, whose end counts: else requests that are slower than it would not count at all.
  if (counts && time - measuredFrom_ >= seconds_) {
    stopMeasuring(time);
  }
  const bool goesOn = phase_ != Phase::Ending;
  running_ -= goesOn ? 0 : 1;
  if (!goesOn && time - measuredTo_ > patience(seconds_)) {
    figures_.abandoned = running_;
    running_ = 0;
  }
  return goesOn;
}

void Recorder::warmUp(int slot, double time) {
  if (phase_ != Phase::WarmingUp) {
    return;
  }
  cold_ -= isWarm_[static_cast<std::size_t>(slot)] ? 0 : 1;
  isWarm_[static_cast<std::size_t>(slot)] = true;
  const bool isLate = cold_ > 0 && time - created_ > patience(seconds_);
  if (isLate) {
    figures_.note =
        "Not every request had ended once when measuring had to begin: connections were still made.";
  }
  if (cold_ == 0 || isLate) {
    startMeasuring(time);
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
