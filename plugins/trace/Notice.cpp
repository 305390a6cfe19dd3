#include "plugins/trace/Notice.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "plugins/trace/LineText.h"
#include "plugins/trace/SignalGuard.h"

namespace traceplugin {

void giveNotice(const char* variable, const char* value, const char* reason, const char* consequence) {
  constexpr std::size_t kMostValueBytes = 1024;
  char memory[LineText::kEscapedBytes * kMostValueBytes + 512];
  LineText line(memory, sizeof memory - 1);
  line.append("qlxtracedylib: ");
  line.append(variable);
  line.append(": cannot use \"");
  line.appendEscaped({value, strnlen(value, kMostValueBytes)});
  line.append("\" (");
  line.append(reason);
  line.append("); ");
  line.append(consequence);
  memory[line.text().size()] = '\n';
  const SignalGuard guard;
  if (write(STDERR_FILENO, memory, line.text().size() + 1) < 0) {
    guard.discardSignalOf(errno);
  }
}

}  // namespace traceplugin
