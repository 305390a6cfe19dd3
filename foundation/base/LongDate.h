#pragma once

#include <chrono>
#include <string>

#include "foundation/base/Export.h"

namespace foundation {

/// The locale in which the user reads dates, as the environment names it: LC_ALL, else LC_TIME, else LANG, for example
/// "de_DE.UTF-8"; "C" when none of them is set. What the process itself has set by setlocale(3) does not count: that
/// is the host's locale. The environment must not be changed meanwhile.
FOUNDATION_EXPORT std::string currentDateLocale();

/// Day and time in the locale's long forms and the user's time zone, in UTF-8, for example
/// "24. Januar 2024 um 17:05:45 MEZ". "C" and "POSIX" read as English. The empty text when the date cannot be
/// formatted. Any thread.
FOUNDATION_EXPORT std::string longDateAndTime(std::chrono::system_clock::time_point date,
                                              const std::string& locale);

}  // namespace foundation
