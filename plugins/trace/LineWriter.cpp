#include "plugins/trace/LineWriter.h"

#include <unistd.h>

#include <cerrno>

#include "plugins/trace/SignalGuard.h"

namespace traceplugin {

bool LineWriter::write(int descriptor, const Record& record) {
  const SignalGuard guard;
  const bool followsFragment = hasFragment_.exchange(false, std::memory_order_relaxed);
  const std::string_view bytes = followsFragment ? record.lineAfterFragment() : record.line();
  std::size_t done = 0;
  // An ordinary line is gone with the first turn; a signal or a limit may end a long one's in the middle.
  while (done < bytes.size()) {
    const ssize_t count = ::write(descriptor, bytes.data() + done, bytes.size() - done);
    if (count > 0) {
      done += static_cast<std::size_t>(count);
    } else if (count == 0 || errno != EINTR) {
      guard.discardSignalOf(count == 0 ? 0 : errno);
      break;
    }
  }
  if (done < bytes.size() && (done > 0 || followsFragment)) {
    hasFragment_.store(true, std::memory_order_relaxed);
  }
  return done == bytes.size();
}

}  // namespace traceplugin
