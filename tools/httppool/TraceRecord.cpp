#include "TraceRecord.h"

#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <utility>

namespace httppool {
namespace {

constexpr std::int64_t kMicroseconds = 1'000'000;
constexpr std::int64_t kMinute = 60 * kMicroseconds;

// Takes what a line consists of off its front, one after another; the first that does not fit spoils the rest.
class Front {
 public:
  explicit Front(std::string_view line) : rest_(line) {}

  bool isSpoilt() const { return isSpoilt_; }
  std::string_view rest() const { return rest_; }

  void literal(std::string_view text) { take(rest_.starts_with(text) ? text.size() : 0, !text.empty()); }

  char oneOf(std::string_view characters) {
    const std::string_view taken =
        take(!rest_.empty() && characters.find(rest_.front()) != rest_.npos ? 1 : 0, true);
    return taken.empty() ? '\0' : taken.front();
  }

  // Digits: as many as said, or with 0 any number of them.
  std::uint32_t number(std::size_t digits = 0) {
    const std::size_t count = std::min(rest_.find_first_not_of("0123456789"), rest_.size());
    const std::string_view text = take(count, digits == 0 || count == digits);
    std::uint32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    isSpoilt_ = isSpoilt_ || error != std::errc();
    return value;
  }

  std::string_view upTo(std::string_view end) {
    const std::size_t at = rest_.find(end);
    const std::string_view text = take(at == rest_.npos ? 0 : at, at != rest_.npos);
    literal(end);
    return text;
  }

 private:
  std::string_view take(std::size_t length, bool isAllowed) {
    if (isSpoilt_ || length == 0 || !isAllowed) {
      isSpoilt_ = true;
      return {};
    }
    const std::string_view taken = rest_.substr(0, length);
    rest_.remove_prefix(length);
    return taken;
  }

  std::string_view rest_;
  bool isSpoilt_ = false;
};

struct Instant {
  std::int64_t time = 0;
  int offsetMinutes = 0;
};

std::optional<Instant> readInstant(Front& front) {
  using namespace std::chrono;
  const year y(static_cast<int>(front.number(4)));
  front.literal("-");
  const month m(front.number(2));
  front.literal("-");
  const day d(front.number(2));
  front.literal("T");
  const std::uint32_t hour = front.number(2);
  front.literal(":");
  const std::uint32_t minute = front.number(2);
  front.literal(":");
  const std::uint32_t second = front.number(2);
  front.literal(".");
  const std::uint32_t microsecond = front.number(6);
  const int sign = front.oneOf("+-") == '-' ? -1 : 1;
  const std::uint32_t offsetHours = front.number(2);
  front.literal(":");
  const std::uint32_t offsetMinutes = front.number(2);
  const year_month_day date(y, m, d);
  // A leap second is 60.
  if (front.isSpoilt() || !date.ok() || hour > 23 || minute > 59 || second > 60 || offsetHours > 23 ||
      offsetMinutes > 59) {
    return std::nullopt;
  }
  const int offset = sign * static_cast<int>(offsetHours * 60 + offsetMinutes);
  const std::int64_t seconds = std::int64_t{sys_days(date).time_since_epoch().count()} * 86'400 +
                               std::int64_t{hour} * 3600 + std::int64_t{minute} * 60 + second;
  return Instant{seconds * kMicroseconds + microsecond - offset * kMinute, offset};
}

int hexDigit(char c) {
  return c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

struct Unescaped {
  char character = 0;
  std::size_t length = 0;  // of the escape; 0: it is none
};

Unescaped unescapedAt(std::string_view text, std::size_t at) {
  switch (at + 1 < text.size() ? text[at + 1] : '\0') {
    case 'n':
      return {'\n', 2};
    case 'r':
      return {'\r', 2};
    case 't':
      return {'\t', 2};
    case '\\':
      return {'\\', 2};
    case 'x':
      break;
    default:
      return {};
  }
  const int high = at + 2 < text.size() ? hexDigit(text[at + 2]) : -1;
  const int low = at + 3 < text.size() ? hexDigit(text[at + 3]) : -1;
  return high < 0 || low < 0 ? Unescaped{} : Unescaped{static_cast<char>(high * 16 + low), 4};
}

// What is no escape stays as it is.
std::string unescaped(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t backslash = std::min(text.find('\\', at), text.size());
    result += text.substr(at, backslash - at);
    at = backslash;
    if (at == text.size()) {
      break;
    }
    const Unescaped character = unescapedAt(text, at);
    result += character.length == 0 ? '\\' : character.character;
    at += character.length == 0 ? 1 : character.length;
  }
  return result;
}

}  // namespace

std::optional<TraceRecord> readTraceRecord(std::string_view line) {
  Front front(line);
  const auto instant = readInstant(front);
  if (!instant) {
    return std::nullopt;
  }
  TraceRecord record;
  record.time = instant->time;
  record.offsetMinutes = instant->offsetMinutes;
  front.literal(" ");
  record.level = front.oneOf("DIWE");
  front.literal(" ");
  record.thread.process = front.number();
  front.literal("/");
  record.thread.thread = front.number();
  front.literal(" ");
  const std::string_view name = front.upTo(" | ");
  if (front.isSpoilt() || name.find(' ') != std::string_view::npos) {
    return std::nullopt;
  }
  record.threadName = name;
  record.text = unescaped(front.rest());
  record.length = record.text.size();
  return record;
}

std::string timeOfDay(std::int64_t time, int offsetMinutes) {
  const std::string text = dayAndTime(time, offsetMinutes);
  return text.substr(text.find(' ') + 1, 15);
}

std::string dayAndTime(std::int64_t time, int offsetMinutes) {
  using namespace std::chrono;
  const sys_time<microseconds> local{microseconds(time + offsetMinutes * kMinute)};
  const auto midnight = floor<days>(local);
  const year_month_day date(midnight);
  const hh_mm_ss<microseconds> clock(local - midnight);
  const int offset = std::abs(offsetMinutes);
  std::array<char, 96> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02u-%02u %02d:%02d:%02d.%06d %c%02d:%02d",
                static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                static_cast<unsigned>(date.day()), static_cast<int>(clock.hours().count()),
                static_cast<int>(clock.minutes().count()), static_cast<int>(clock.seconds().count()),
                static_cast<int>(clock.subseconds().count()), offsetMinutes < 0 ? '-' : '+', offset / 60,
                offset % 60);
  return text.data();
}

}  // namespace httppool
