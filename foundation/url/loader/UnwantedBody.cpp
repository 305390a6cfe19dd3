#include "foundation/url/loader/UnwantedBody.h"

#include <algorithm>

#include "foundation/url/loader/Limits.h"

namespace foundation {

bool UnwantedBody::isWorthReading(std::optional<std::size_t> length) {
  return length.value_or(0) <= kDrainedBodyLimit;
}

UnwantedBody::UnwantedBody(Time now) : end_(now + kDrainTime) {
}

bool UnwantedBody::take(std::size_t length) {
  bytes_ += length;
  return bytes_ <= kDrainedBodyLimit;
}

UnwantedBody::Time UnwantedBody::deadline(Time lastByte) const {
  return std::min(lastByte + kDrainIdle, end_);
}

}  // namespace foundation
