// A host whose memory is refused: its malloc(3) family fails the n-th time it is called from outside GLib, which ends
// the process when it gets none. GIO and OpenSSL have begun before: the one loads plug-ins then, which end the process,
// too, as its look-up of proxies does; the other never tries again. For each n of a range a request is run in a child
// process, and then one more.
//
//   memory_host URL FIRST END STEP COUNT cold|warm host|others
//
// COUNT allocations in a row are refused: on the host's thread, or on all others. Cold: the first request of the
// process is hit; warm: the second. Prints what was wrong, and at the end how many children there were and how many of
// them met a refusal.

#include <gio/gio.h>
#include <link.h>
#include <openssl/ssl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "foundation/ZEP_Foundation.h"
#include "httpPool/ZEP_HttpPool.h"

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
}

namespace {

/// Counted down to the refusals while positive; refused from 0 down to -count.
std::atomic<long> left{-1};
std::atomic<long> refusals{0};
std::atomic<bool> isArmed{false};
thread_local bool isHostsThread = false;
bool isHostHit = true;
std::uintptr_t glibBegin = 0;
std::uintptr_t glibEnd = 0;

bool isRefused(const void* caller) {
  const auto address = reinterpret_cast<std::uintptr_t>(caller);
  if (isHostsThread != isHostHit || !isArmed.load(std::memory_order_relaxed) ||
      (address >= glibBegin && address < glibEnd)) {
    return false;
  }
  if (left.fetch_sub(1) > 0) {
    return false;
  }
  if (refusals.fetch_sub(1) <= 0) {
    isArmed = false;
    return false;
  }
  errno = ENOMEM;
  return true;
}

int findGlib(dl_phdr_info* info, std::size_t, void*) {
  if (std::strstr(info->dlpi_name, "/libglib-2.0.so") != nullptr) {
    for (int i = 0; i < info->dlpi_phnum; ++i) {
      const ElfW(Phdr)& segment = info->dlpi_phdr[i];
      if (segment.p_type == PT_LOAD && (segment.p_flags & PF_X) != 0) {
        glibBegin = info->dlpi_addr + segment.p_vaddr;
        glibEnd = glibBegin + segment.p_memsz;
      }
    }
  }
  return 0;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) void* malloc(std::size_t size) noexcept {
  return isRefused(__builtin_return_address(0)) ? nullptr : __libc_malloc(size);
}

extern "C" __attribute__((visibility("default"))) void* calloc(std::size_t count, std::size_t size) noexcept {
  return isRefused(__builtin_return_address(0)) ? nullptr : __libc_calloc(count, size);
}

extern "C" __attribute__((visibility("default"))) void* realloc(void* memory, std::size_t size) noexcept {
  return isRefused(__builtin_return_address(0)) ? nullptr : __libc_realloc(memory, size);
}

extern "C" __attribute__((visibility("default"))) int posix_memalign(void** memory, std::size_t alignment,
                                                                     std::size_t size) noexcept {
  *memory = isRefused(__builtin_return_address(0)) ? nullptr : __libc_memalign(alignment, size);
  return *memory != nullptr ? 0 : ENOMEM;
}

extern "C" __attribute__((visibility("default"))) void* aligned_alloc(std::size_t alignment,
                                                                      std::size_t size) noexcept {
  return isRefused(__builtin_return_address(0)) ? nullptr : __libc_memalign(alignment, size);
}

namespace {

constexpr int kNothingRefused = 10;

// The host's own side needs no memory.
ZEP_HTTP_TASK_STATUS lastStatus = ZEP_HTTP_TASK_UNINITIALIZED;
char lastResult[64];

void notified(ZEP_HTTP_POOL_TASK_NOTIFY, const char* pool, const char* task, const char*) {
  ZEP_HttpPool_GetTaskStatus(pool, task, &lastStatus);
  if (lastStatus == ZEP_HTTP_TASK_DONE || lastStatus == ZEP_HTTP_TASK_FAILED) {
    long size = sizeof(lastResult) - 1;
    std::memset(lastResult, 0, sizeof(lastResult));
    ZEP_HttpPool_GetTaskProperty(pool, task, ZEP_HTTP_TASK_PROP_RESULT, lastResult, &size);
    ZEP_RunLoop_Stop();
  }
}

/// Whether the task ended.
bool run(const char* task) {
  lastStatus = ZEP_HTTP_TASK_UNINITIALIZED;
  ZEP_HTTP_TASK_STATUS launched = ZEP_HTTP_TASK_UNINITIALIZED;
  ZEP_HttpPool_TaskRun("pool", task, &launched);
  for (int turns = 0; turns < 200 && lastStatus != ZEP_HTTP_TASK_DONE && lastStatus != ZEP_HTTP_TASK_FAILED;
       ++turns) {
    ZEP_RunLoop_Run(100);
  }
  return lastStatus == ZEP_HTTP_TASK_DONE || lastStatus == ZEP_HTTP_TASK_FAILED;
}

bool isGood(const char* task, const char* url) {
  ZEP_HttpPool_AddTask("pool", task);
  ZEP_HttpPool_SetTaskProperty("pool", task, ZEP_HTTP_TASK_PROP_URL, url);
  const bool isGood = run(task) && lastStatus == ZEP_HTTP_TASK_DONE && std::strcmp(lastResult, "good") == 0;
  ZEP_HttpPool_RemoveTask("pool", task);
  return isGood;
}

/// What the child ends with: 0, kNothingRefused, or what is wrong.
int runOne(const char* url, long refused, long count, bool isWarm) {
  ZEP_HttpPool_Create("pool");
  ZEP_HttpPool_SetPoolProc("pool", &notified);
  if (isWarm && !isGood("warm", url)) {
    return 1;
  }
  ZEP_HttpPool_AddTask("pool", "hit");
  left = refused;
  refusals = count;
  isArmed = true;
  try {
    ZEP_HttpPool_SetTaskProperty("pool", "hit", ZEP_HTTP_TASK_PROP_POST_DATA,
                                 "a text that is too long to need no memory");
    ZEP_HttpPool_SetTaskProperty("pool", "hit", ZEP_HTTP_TASK_PROP_HEADER_FIELDS,
                                 R"({"X-Header": "a value"})");
    ZEP_HttpPool_SetTaskProperty("pool", "hit", ZEP_HTTP_TASK_PROP_URL, url);
    if (!run("hit")) {
      return 2;
    }
    ZEP_HttpPool_RemoveTask("pool", "hit");
    ZEP_HttpPool_AddTask("pool", "another");
    ZEP_HttpPool_RemoveTask("pool", "another");
  } catch (...) {
    isArmed = false;
    return 3;
  }
  isArmed = false;
  if (!isGood("next", url)) {
    return 4;
  }
  return left < 0 ? 0 : kNothingRefused;
}

const char* wordOf(int exit) {
  switch (exit) {
    case 1:
      return "does not work at all";
    case 2:
      return "does not end";
    case 3:
      return "lets an exception out";
    case 4:
      return "does not serve the next request";
    default:
      return "ends the host";
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 8) {
    return 2;
  }
  dl_iterate_phdr(&findGlib, nullptr);
  setenv("GIO_USE_PROXY_RESOLVER", "dummy", 1);
  g_proxy_resolver_get_default();
  OPENSSL_init_ssl(0, nullptr);
  isHostsThread = true;
  const char* const url = argv[1];
  const long first = std::atol(argv[2]);
  const long end = std::atol(argv[3]);
  const long step = std::atol(argv[4]);
  const long count = std::atol(argv[5]);
  const bool isWarm = std::strcmp(argv[6], "warm") == 0;
  isHostHit = std::strcmp(argv[7], "host") == 0;
  constexpr int kAtOnce = 24;
  struct Child {
    pid_t process;
    long refused;
  } children[kAtOnce] = {};
  int running = 0;
  int met = 0;
  int all = 0;
  const auto reap = [&] {
    int status = 0;
    const pid_t ended = waitpid(-1, &status, 0);
    --running;
    for (Child& child : children) {
      if (child.process == ended) {
        child.process = 0;
        const int exit = WIFEXITED(status) ? WEXITSTATUS(status) : 100 + WTERMSIG(status);
        met += exit != kNothingRefused ? 1 : 0;
        if (exit != 0 && exit != kNothingRefused) {
          std::printf("refused %ld: %s (%d)\n", child.refused, wordOf(exit), exit);
        }
      }
    }
  };
  for (long refused = first; refused < end; refused += step) {
    if (running == kAtOnce) {
      reap();
    }
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
      alarm(60);
      _exit(runOne(url, refused, count, isWarm));
    }
    for (Child& free : children) {
      if (free.process == 0) {
        free = {child, refused};
        break;
      }
    }
    ++running;
    ++all;
  }
  while (running > 0) {
    reap();
  }
  std::printf("%d children, %d refusals\n", all, met);
  return 0;
}
