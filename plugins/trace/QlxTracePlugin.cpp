// The five functions of a trace plug-in. Called from any thread, at any time: before main, while the process exits, in
// the child of a fork. So the one state is made without constructors, is set up at the first call and never destroyed.

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "plugins/trace/Configuration.h"
#include "plugins/trace/LineWriter.h"
#include "plugins/trace/LocalTime.h"
#include "plugins/trace/Notice.h"
#include "plugins/trace/Record.h"
#include "plugins/trace/TraceFile.h"

#define PLUGIN_EXPORT extern "C" __attribute__((visibility("default")))

namespace traceplugin {
namespace {

constexpr int kNotWritten = -1;

enum class Destination { Nothing, StandardError, File };

struct State {
  unsigned long level = 0;
  Destination destination = Destination::Nothing;
  pid_t process = 0;  ///< that has set this up, and not a child of it
  TraceFile file;
  LineWriter standardError;
};

constinit State state;
// Unlike the guard of a local variable it does not hold up a process that was forked off during the set-up.
pthread_once_t isSetUp = PTHREAD_ONCE_INIT;

/// Where nothing was open as standard error, something of the host's may be later.
Destination standardErrorIfOpen() {
  return fcntl(STDERR_FILENO, F_GETFD) >= 0 ? Destination::StandardError : Destination::Nothing;
}

void setUp() {
  state.process = getpid();
  state.destination = standardErrorIfOpen();
  const Configuration configuration = Configuration::fromEnvironment();
  state.level = configuration.level;
  if (configuration.file != nullptr) {
    const char* reason = state.file.open(configuration.file, configuration.maxBytes);
    if (reason == nullptr) {
      state.destination = Destination::File;
    } else {
      giveNotice("QLX_TRACE_FILE", configuration.file, reason, "traces go to standard error");
    }
  }
}

/// The caller's errno stays, and a cancelled thread is not ended here, in the middle of the host's call.
class Call {
 public:
  Call() : error_(errno) {
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelState_);
    pthread_once(&isSetUp, setUp);
  }
  ~Call() {
    pthread_setcancelstate(cancelState_, nullptr);
    errno = error_;
  }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

 private:
  int error_;
  int cancelState_ = PTHREAD_CANCEL_ENABLE;
};

bool write(const Record& record) {
  switch (state.destination) {
    case Destination::File:
      return state.file.write(record);
    case Destination::StandardError:
      return state.standardError.write(STDERR_FILENO, record);
    case Destination::Nothing:
      break;
  }
  return false;
}

/// The number of bytes of the text; 0 when it is below the threshold, below 0 when it could not be written.
int trace(unsigned long level, char letter, const char* text) {
  const Call call;
  if (level < state.level) {
    return 0;
  }
  if (text == nullptr) {
    return kNotWritten;
  }
  const std::size_t length = strnlen(text, INT_MAX);
  const auto lookUp =
      getpid() == state.process ? LocalTime::OffsetLookUp::Allowed : LocalTime::OffsetLookUp::Avoided;
  const Record record(letter, {text, length}, lookUp);
  return write(record) ? static_cast<int>(length) : kNotWritten;
}

}  // namespace
}  // namespace traceplugin

PLUGIN_EXPORT unsigned long QlxGetTraceLevel() noexcept {
  const traceplugin::Call call;
  return traceplugin::state.level;
}

// The library hands its finished text over as the format, without arguments. So the text, which holds what peers send,
// is never used as a format.

PLUGIN_EXPORT int QLXDEBUG(const char* format, ...) noexcept {
  return traceplugin::trace(1, 'D', format);
}

PLUGIN_EXPORT int QLXINFO(const char* format, ...) noexcept {
  return traceplugin::trace(2, 'I', format);
}

PLUGIN_EXPORT int QLXWARN(const char* format, ...) noexcept {
  return traceplugin::trace(4, 'W', format);
}

PLUGIN_EXPORT int QLXERROR(const char* format, ...) noexcept {
  return traceplugin::trace(8, 'E', format);
}
