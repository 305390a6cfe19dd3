#pragma once

// The time of day with its offset from UTC. Any thread, and in the child of a fork: the C library is asked for the
// offset at most once in a quarter of an hour, and never in a process that was forked off.

#include <ctime>

namespace traceplugin {

struct LocalTime {
  int year;
  unsigned month;
  unsigned day;
  unsigned hour;
  unsigned minute;
  unsigned second;
  unsigned microsecond;
  int offsetMinutes;  ///< east of Greenwich

  enum class OffsetLookUp { Allowed, Avoided };

  /// Where looking up is avoided the offset is the one last seen. The time still is right, as it goes with its offset.
  static LocalTime now(OffsetLookUp lookUp);
  static LocalTime at(const timespec& time, OffsetLookUp lookUp);
};

}  // namespace traceplugin
