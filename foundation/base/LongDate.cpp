#include "foundation/base/LongDate.h"

#include <unicode/udat.h>
#include <unicode/uloc.h>
#include <unicode/ustring.h>

#include <array>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "foundation/base/Release.h"

namespace foundation {
namespace {

using Format = std::unique_ptr<UDateFormat, Release<udat_close>>;

constexpr const char* kStandardLocale = "en_US_POSIX";

/// ICU's name for a locale of the environment, without its encoding; it knows the C library's standard one by another.
std::string icuLocale(const std::string& locale) {
  const std::string_view name = std::string_view(locale).substr(0, locale.find('.'));
  if (name.empty() || name == "C" || name == "POSIX") {
    return kStandardLocale;
  }
  std::array<char, ULOC_FULLNAME_CAPACITY> canonical{};
  UErrorCode error = U_ZERO_ERROR;
  const std::int32_t length = uloc_canonicalize(locale.c_str(), canonical.data(),
                                                static_cast<std::int32_t>(canonical.size()), &error);
  if (U_FAILURE(error)) {
    return kStandardLocale;
  }
  return {canonical.data(), static_cast<std::size_t>(length)};
}

std::string utf8(const UChar* text, std::int32_t length) {
  // A UTF-16 unit becomes three bytes at most.
  std::string bytes(static_cast<std::size_t>(length) * 3, '\0');
  std::int32_t used = 0;
  UErrorCode error = U_ZERO_ERROR;
  u_strToUTF8(bytes.data(), static_cast<std::int32_t>(bytes.size()), &used, text, length, &error);
  bytes.resize(U_SUCCESS(error) ? static_cast<std::size_t>(used) : 0);
  return bytes;
}

}  // namespace

std::string currentDateLocale() {
  for (const char* name : {"LC_ALL", "LC_TIME", "LANG"}) {
    if (const char* value = std::getenv(name); value != nullptr && *value != '\0') {
      return value;
    }
  }
  return "C";
}

std::string longDateAndTime(std::chrono::system_clock::time_point date, const std::string& locale) {
  UErrorCode error = U_ZERO_ERROR;
  const Format format(
      udat_open(UDAT_LONG, UDAT_LONG, icuLocale(locale).c_str(), nullptr, 0, nullptr, 0, &error));
  if (U_FAILURE(error)) {
    return "";
  }
  const std::chrono::duration<double, std::milli> sinceEpoch = date.time_since_epoch();
  std::array<UChar, 512> text{};
  const std::int32_t length = udat_format(format.get(), sinceEpoch.count(), text.data(),
                                          static_cast<std::int32_t>(text.size()), nullptr, &error);
  return U_SUCCESS(error) ? utf8(text.data(), length) : "";
}

}  // namespace foundation
