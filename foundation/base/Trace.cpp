#include "foundation/base/Trace.h"

#include <atomic>

namespace foundation {
namespace {

std::atomic<TraceSink> currentSink{nullptr};

}  // namespace

void setTraceSink(TraceSink sink) {
  currentSink = sink;
}

void trace(TraceLevel level, std::string_view text) {
  if (const TraceSink sink = currentSink) {
    sink(level, text);
  }
}

}  // namespace foundation
