// A host that traces: the library's own way to its plug-in, without the rest of the library. The first argument says
// what to do; it prints what cannot be seen in the trace.

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <barrier>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "support/CFuncTrace.h"
#include "support/QlxTrace.h"
#include "support/logstream.h"

namespace {

using Arguments = std::vector<std::string>;

int traced(const std::string& text, unsigned long level = QLX_LEVEL_INFO) {
  return QLXTRACERAWA(level, nullptr, nullptr, text.c_str());
}

/// LEVEL TEXT...: prints what the writer returns for each.
void texts(const Arguments& arguments) {
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    std::printf("%d\n", traced(arguments[i], std::stoul(arguments[0])));
  }
}

/// COUNT BYTE: one text of that many bytes of that value.
void longText(const Arguments& arguments) {
  const std::string text(std::stoul(arguments[0]), static_cast<char>(std::stoi(arguments[1])));
  std::printf("%d\n", traced(text));
}

void levels(const Arguments&) {
  std::printf("threshold %lu\n", _getTraceLevel());
  const CFuncTrace frame("frame");
  logstream(QLX_LEVEL_DEBUG, "Unknown").l_value() << "debug" << std::endl;
  logstream(QLX_LEVEL_INFO, "Unknown").l_value() << "info" << std::endl;
  logstream(QLX_LEVEL_WARNING, "Unknown").l_value() << "warning" << std::endl;
  logstream(QLX_LEVEL_ERROR, "Unknown").l_value() << "error" << std::endl;
}

/// NAME...: a line from a thread of each name; prints the threads' ids.
void names(const Arguments& arguments) {
  traced("main");
  std::printf("%d\n", gettid());
  for (const std::string& name : arguments) {
    std::thread([&name] {
      pthread_setname_np(pthread_self(), name.c_str());
      traced("named");
      std::printf("%d\n", gettid());
    }).join();
  }
}

long openDescriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return std::distance(begin(all), end(all));
}

/// GATE THREADS LINES PADDING: begins when the file can be locked. Prints how many lines the writer refused, and how
/// many descriptors have become more.
void threads(const Arguments& arguments) {
  const int count = std::stoi(arguments[1]);
  const int lines = std::stoi(arguments[2]);
  const std::string padding(std::stoul(arguments[3]), '.');
  const int gate = open(arguments[0].c_str(), O_RDONLY | O_CLOEXEC);
  flock(gate, LOCK_SH);
  close(gate);
  // Opens the file.
  _getTraceLevel();
  const long descriptors = openDescriptors();
  std::atomic<int> refused{0};
  std::barrier begin(count);
  std::vector<std::thread> all;
  for (int thread = 0; thread < count; ++thread) {
    all.emplace_back([&, thread] {
      begin.arrive_and_wait();
      for (int line = 0; line < lines; ++line) {
        const std::string text =
            "thread " + std::to_string(thread) + " line " + std::to_string(line) + " " + padding;
        refused += traced(text) == static_cast<int>(text.size()) ? 0 : 1;
      }
    });
  }
  for (std::thread& thread : all) {
    thread.join();
  }
  std::printf("%d %ld\n", refused.load(), openDescriptors() - descriptors);
}

void killed(const Arguments&) {
  traced("the last line");
  kill(getpid(), SIGKILL);
}

/// Whether the child could do its part.
bool inChild(const std::function<void()>& part) {
  const pid_t child = fork();
  if (child == 0) {
    part();
    _exit(0);
  }
  int status = -1;
  return waitpid(child, &status, 0) == child && status == 0;
}

void forked(const Arguments&) {
  traced("parent");
  std::printf("%d\n", getpid());
  const bool didTrace = inChild([] { traced("child"); });
  std::printf("%d\n", didTrace);
  traced("parent again");
}

/// CHILDREN: forks while other threads trace; prints how many children could trace.
void forkedAmidTraces(const Arguments& arguments) {
  traced("loads the plug-in");
  std::atomic<bool> isOver{false};
  std::vector<std::thread> others;
  for (int thread = 0; thread < 4; ++thread) {
    others.emplace_back([&isOver] {
      while (!isOver) {
        traced("from a thread");
      }
    });
  }
  int done = 0;
  for (int child = 0; child < std::stoi(arguments[0]); ++child) {
    done += inChild([child] { traced("child " + std::to_string(child)); }) ? 1 : 0;
  }
  isOver = true;
  for (std::thread& thread : others) {
    thread.join();
  }
  std::printf("%d\n", done);
}

bool tracesTheWholeLife = std::getenv("PLUGIN_HOST_WHOLE_LIFE") != nullptr;

__attribute__((constructor(101))) void beforeMain() {
  if (std::getenv("PLUGIN_HOST_WHOLE_LIFE") != nullptr) {
    QLXTRACERAWA(QLX_LEVEL_INFO, nullptr, nullptr, "before main");
  }
}

__attribute__((destructor(101))) void afterMain() {
  if (tracesTheWholeLife) {
    QLXTRACERAWA(QLX_LEVEL_INFO, nullptr, nullptr, "after all destructors");
  }
}

void wholeLife(const Arguments&) {
  traced("in main");
  std::atexit([] { traced("at exit"); });
}

void errorNumber(const Arguments&) {
  // Loads the plug-in without a call of it.
  qlxHasWriter(QLX_LEVEL_INFO);
  for (int call = 0; call < 2; ++call) {
    errno = EDOM;
    const int result = traced("text");
    const int error = errno;
    std::printf("%d %d\n", result, error == EDOM ? 1 : 0);
  }
}

/// Standard error is a pipe that nobody reads any more. Prints the result, whether SIGPIPE is blocked then, and
/// waiting.
void brokenPipe(const Arguments&) {
  int ends[2];
  if (pipe(ends) != 0 || dup2(ends[1], STDERR_FILENO) < 0) {
    std::abort();
  }
  close(ends[0]);
  signal(SIGPIPE, SIG_DFL);
  for (const int how : {SIG_UNBLOCK, SIG_BLOCK}) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    pthread_sigmask(how, &signals, nullptr);
    const int result = traced("text");
    sigset_t after;
    sigset_t pending;
    pthread_sigmask(SIG_SETMASK, nullptr, &after);
    sigpending(&pending);
    std::printf("%d %d %d\n", result, sigismember(&after, SIGPIPE), sigismember(&pending, SIGPIPE));
  }
  // One of the host's own that waits already stays.
  pthread_kill(pthread_self(), SIGPIPE);
  traced("text");
  sigset_t pending;
  sigpending(&pending);
  std::printf("%d\n", sigismember(&pending, SIGPIPE));
}

/// BYTES: the file size limit, for a while.
void fileSizeLimit(const Arguments& arguments) {
  signal(SIGXFSZ, SIG_DFL);
  const auto setLimit = [](rlim_t bytes) {
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = bytes;
    setrlimit(RLIMIT_FSIZE, &limit);
  };
  std::printf("%d\n", traced("before"));
  setLimit(std::stoul(arguments[0]));
  std::printf("%d\n", traced("cut in the middle " + std::string(200, 'x')));
  std::printf("%d\n", traced("dropped"));
  setLimit(RLIM_INFINITY);
  std::printf("%d\n", traced("after"));
}

/// OTHER: closes all descriptors, as daemons do, and opens another file under the first free numbers.
void closesAll(const Arguments& arguments) {
  traced("before");
  close_range(STDERR_FILENO + 1, ~0U, 0);
  std::vector<int> others;
  for (int file = 0; file < 4; ++file) {
    others.push_back(open(arguments[0].c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
  }
  traced("after");
  traced("again");
  for (const int other : others) {
    dprintf(other, "the host's\n");
  }
}

/// OTHER: has no standard error when it traces first, and another file under its number then.
void withoutStandardError(const Arguments& arguments) {
  close(STDERR_FILENO);
  std::printf("%d\n", traced("first"));
  const int other = open(arguments[0].c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  std::printf("%d %d\n", other, traced("second"));
}

/// Prints the number that the host's next descriptor gets, which is one of the standard ones.
void withoutStandardDescriptors(const Arguments&) {
  const int output = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 10);
  close_range(STDIN_FILENO, STDERR_FILENO, 0);
  traced("text");
  const int next = open("/dev/null", O_RDONLY | O_CLOEXEC);
  dprintf(output, "%d\n", next);
}

/// Prints what the cancelled thread got to know.
void cancelled(const Arguments&) {
  int result = 0;
  std::thread([&result] {
    pthread_cancel(pthread_self());
    result = traced("of a cancelled thread");
  }).join();
  std::printf("%d\n", result);
}

void changesFolder(const Arguments&) {
  traced("before");
  if (chdir("/") != 0) {
    std::abort();
  }
  traced("after");
}

/// FROM TO: renames the file in the middle; no TO: removes it.
void movesFile(const Arguments& arguments) {
  traced("before");
  const bool isDone = arguments.size() == 2 ? rename(arguments[0].c_str(), arguments[1].c_str()) == 0
                                            : unlink(arguments[0].c_str()) == 0;
  std::printf("%d\n", isDone);
  traced("after");
}

}  // namespace

int main(int argc, char** argv) {
  const std::map<std::string, void (*)(const Arguments&)> all = {
      {"texts", texts},
      {"longText", longText},
      {"levels", levels},
      {"names", names},
      {"threads", threads},
      {"killed", killed},
      {"forked", forked},
      {"forkedAmidTraces", forkedAmidTraces},
      {"wholeLife", wholeLife},
      {"errorNumber", errorNumber},
      {"brokenPipe", brokenPipe},
      {"fileSizeLimit", fileSizeLimit},
      {"closesAll", closesAll},
      {"withoutStandardError", withoutStandardError},
      {"withoutStandardDescriptors", withoutStandardDescriptors},
      {"cancelled", cancelled},
      {"changesFolder", changesFolder},
      {"movesFile", movesFile},
  };
  setvbuf(stdout, nullptr, _IONBF, 0);
  const auto found = argc > 1 ? all.find(argv[1]) : all.end();
  if (found == all.end()) {
    return 2;
  }
  found->second(Arguments(argv + 2, argv + argc));
  return 0;
}
