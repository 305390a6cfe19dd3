#pragma once

#include <cstddef>
#include <string_view>

#include "foundation/base/Export.h"

namespace foundation {

/// Writes all bytes to a descriptor; false, with errno, when it does not take them all. What a failing write would send
/// to its thread as a signal, SIGXFSZ at the limit of a file's size and SIGPIPE of a pipe that nobody reads, would end
/// the host: it stays an error. Any thread.
FOUNDATION_EXPORT bool writeWhole(int descriptor, std::string_view bytes);

/// The same; how many bytes it has taken.
std::size_t writeWhatFits(int descriptor, std::string_view bytes);

}  // namespace foundation
