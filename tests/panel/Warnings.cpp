#include "tests/panel/Warnings.h"

#include <mutex>
#include <string_view>

#include "foundation/base/Trace.h"

namespace test {
namespace {

std::mutex mutex;
std::vector<std::string> lines;

void record(foundation::TraceLevel level, std::string_view text) {
  if (level == foundation::TraceLevel::Warning) {
    const std::lock_guard lock(mutex);
    lines.emplace_back(text);
  }
}

}  // namespace

Warnings::Warnings() {
  clear();
  foundation::setTraceSink(record);
}

Warnings::~Warnings() {
  foundation::setTraceSink(nullptr);
}

void Warnings::clear() {
  const std::lock_guard lock(mutex);
  lines.clear();
}

std::vector<std::string> Warnings::all() const {
  const std::lock_guard lock(mutex);
  return lines;
}

std::string Warnings::text() const {
  std::string text;
  for (const std::string& line : all()) {
    text += line + "\n";
  }
  return text;
}

}  // namespace test
