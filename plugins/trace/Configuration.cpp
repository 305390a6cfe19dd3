#include "plugins/trace/Configuration.h"

#include <charconv>
#include <cstdlib>
#include <string_view>

#include "plugins/trace/Notice.h"

namespace traceplugin {
namespace {

struct Level {
  std::string_view name;
  std::string_view number;
  unsigned long value;
};
constexpr Level kLevels[] = {{.name = "debug", .number = "1", .value = 1},
                             {.name = "info", .number = "2", .value = 2},
                             {.name = "warning", .number = "4", .value = 4},
                             {.name = "error", .number = "8", .value = 8}};
constexpr unsigned long kDefaultLevel = 1;

/// The variable's value; null when it is not set or empty.
const char* setting(const char* variable) {
  const char* value = secure_getenv(variable);
  return value == nullptr || *value == '\0' ? nullptr : value;
}

unsigned long levelSetting() {
  constexpr const char* kVariable = "QLX_TRACE_LEVEL";
  const char* value = setting(kVariable);
  if (value == nullptr) {
    return kDefaultLevel;
  }
  for (const Level& level : kLevels) {
    if (level.name == value || level.number == value) {
      return level.value;
    }
  }
  giveNotice(kVariable, value, "debug, info, warning, error, 1, 2, 4 or 8", "everything is traced");
  return kDefaultLevel;
}

std::uint64_t maxBytesSetting() {
  constexpr const char* kVariable = "QLX_TRACE_MAX_BYTES";
  const char* value = setting(kVariable);
  if (value == nullptr) {
    return 0;
  }
  const std::string_view digits(value);
  std::uint64_t bytes = 0;
  const auto parsed = std::from_chars(digits.begin(), digits.end(), bytes);
  if (parsed.ec == std::errc() && parsed.ptr == digits.end() && bytes > 0) {
    return bytes;
  }
  giveNotice(kVariable, value, "a number of bytes, at least 1", "the file is not rotated");
  return 0;
}

}  // namespace

Configuration Configuration::fromEnvironment() {
  return {.level = levelSetting(), .file = setting("QLX_TRACE_FILE"), .maxBytes = maxBytesSetting()};
}

}  // namespace traceplugin
