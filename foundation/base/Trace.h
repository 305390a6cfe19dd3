#pragma once

#include <string_view>

#include "foundation/base/Export.h"

namespace foundation {

enum class TraceLevel : unsigned { Debug = 1, Info = 2, Warning = 4, Error = 8 };

/// Receives the foundation's own diagnostic lines, on whatever thread they arise. The text is one line without
/// its end, valid during the call.
using TraceSink = void (*)(TraceLevel level, std::string_view text);

/// Where the lines go; null (the initial state) drops them. Any thread. A sink that is being replaced may still
/// be in a call on another thread when this returns.
FOUNDATION_EXPORT void setTraceSink(TraceSink sink);

/// Writes a line to the sink, if there is one. Any thread. Secrets are never passed to it.
FOUNDATION_EXPORT void trace(TraceLevel level, std::string_view text);

}  // namespace foundation
