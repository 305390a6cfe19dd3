#include "plugins/trace/Record.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace traceplugin {
namespace {

void appendTime(LineText& line, const LocalTime& time) {
  line.append(static_cast<std::uint64_t>(time.year), 4);
  line.append('-');
  line.append(time.month, 2);
  line.append('-');
  line.append(time.day, 2);
  line.append('T');
  line.append(time.hour, 2);
  line.append(':');
  line.append(time.minute, 2);
  line.append(':');
  line.append(time.second, 2);
  line.append('.');
  line.append(time.microsecond, 6);
  const auto offset = static_cast<std::uint64_t>(std::abs(time.offsetMinutes));
  line.append(time.offsetMinutes < 0 ? '-' : '+');
  line.append(offset / 60, 2);
  line.append(':');
  line.append(offset % 60, 2);
}

/// As one word, so that the fields can be told apart.
void appendThreadName(LineText& line) {
  constexpr std::size_t kNameBytes = 16;
  char name[kNameBytes] = "";
  prctl(PR_GET_NAME, name);
  const std::size_t length = strnlen(name, kNameBytes);
  for (std::size_t i = 0; i < length; ++i) {
    const auto byte = static_cast<unsigned char>(name[i]);
    line.append(byte <= ' ' || byte == 0x7f ? '_' : name[i]);
  }
  if (length == 0) {
    line.append('_');
  }
}

void appendFields(LineText& line, char letter, LocalTime::OffsetLookUp lookUp) {
  appendTime(line, LocalTime::now(lookUp));
  line.append(' ');
  line.append(letter);
  line.append(' ');
  line.append(static_cast<std::uint64_t>(getpid()));
  line.append('/');
  line.append(static_cast<std::uint64_t>(gettid()));
  line.append(' ');
  appendThreadName(line);
  line.append(" | ");
}

void appendCut(LineText& line, std::string_view text, std::size_t bytes) {
  line.appendEscaped({text.data(), bytes});
  line.append(" ... [cut, ");
  line.append(text.size());
  line.append(" bytes]");
}

}  // namespace

Record::Record(char letter, std::string_view text, LocalTime::OffsetLookUp lookUp) {
  // The library's lines end with a line end, entry and exit lines do not.
  if (text.ends_with('\n')) {
    text.remove_suffix(1);
  }
  std::size_t bytes = text.size() < kMostTextBytes ? text.size() : kMostTextBytes;
  std::size_t room = sizeof ownMemory_;
  if (bytes > kLibrarysTextBytes) {
    const std::size_t needed = kFrameBytes + LineText::kEscapedBytes * bytes;
    if (auto* more = static_cast<char*>(std::malloc(needed)); more != nullptr) {
      memory_ = more;
      room = needed;
    } else {
      bytes = kLibrarysTextBytes;
    }
  }
  LineText line(memory_, room);
  line.append('\n');
  appendFields(line, letter, lookUp);
  if (bytes == text.size()) {
    line.appendEscaped(text);
  } else {
    appendCut(line, text, bytes);
  }
  line.append('\n');
  size_ = line.text().size();
}

Record::~Record() {
  if (memory_ != ownMemory_) {
    std::free(memory_);
  }
}

}  // namespace traceplugin
