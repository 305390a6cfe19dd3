#pragma once

// What was measured of one contender at one work. Goes from the contender's process to the program that compares as
// JSON. A value; any thread.

#include <json/value.h>

#include <optional>
#include <string>
#include <vector>

namespace bench {

struct Figures {
  long requests = 0;   ///< sent from the first to the last, also outside the measured time
  long abandoned = 0;  ///< of those: not waited for in the end; some of them may never have been sent
  long failed = 0;     ///< of those: without the answer that was asked for
  long finished = 0;   ///< good answers within the measured time
  double seconds = 0;  ///< the measured time
  long bytes = 0;      ///< of all bodies within the measured time
  /// From the request's launch until its end is seen. Nothing where a command does not tell it.
  std::optional<double> medianMs;
  std::optional<double> p99Ms;
  double cpuSeconds = 0;  ///< user and system, of the contender alone, within the measured time
  long voluntarySwitches = 0;
  long involuntarySwitches = 0;
  long peakKilobytes = 0;  ///< resident, libraries and program included
  int threads = 0;         ///< the most that were seen at once
  std::string note;        ///< a limit that the reader has to know of

  double perSecond() const { return seconds > 0 ? static_cast<double>(finished) / seconds : 0; }
  double megabytesPerSecond() const { return seconds > 0 ? static_cast<double>(bytes) / 1e6 / seconds : 0; }
  double cpuPerThousand() const {
    return finished > 0 ? cpuSeconds * 1000 / static_cast<double>(finished) : 0;
  }
  double switchesPerThousand() const;

  Json::Value toJson() const;
  static Figures fromJson(const Json::Value& json);
  /// Each figure's median; requests, and those that failed or were abandoned, are added up.
  static Figures medianOf(const std::vector<Figures>& all);
};

}  // namespace bench
