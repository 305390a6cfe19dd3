#include "foundation/url/loader/Limits.h"

#include <dirent.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string_view>
#include <system_error>

namespace foundation {
namespace {

/// A whole number greater than 0 from the environment; nothing for anything else.
std::optional<std::size_t> fromEnvironment(const char* name) {
  const char* text = secure_getenv(name);
  if (text == nullptr) {
    return std::nullopt;
  }
  const std::string_view view(text);
  std::size_t value = 0;
  const auto [end, error] = std::from_chars(view.data(), view.data() + view.size(), value);
  if (error != std::errc() || end != view.data() + view.size() || value == 0) {
    return std::nullopt;
  }
  return value;
}

std::size_t halfOfMemory() {
  const long pages = sysconf(_SC_PHYS_PAGES);
  const long pageSize = sysconf(_SC_PAGESIZE);
  if (pages <= 0 || pageSize <= 0) {
    return std::size_t{1} << 30;
  }
  return static_cast<std::size_t>(pages) / 2 * static_cast<std::size_t>(pageSize);
}

std::size_t openDescriptors() {
  // Not by a directory_iterator, which ends the process when it gets no memory.
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir("/proc/self/fd"), &closedir);
  std::size_t count = 0;
  while (folder != nullptr && readdir(folder.get()) != nullptr) {
    ++count;
  }
  return count;
}

/// A transfer holds one descriptor, and two more while its host name is being looked up; the host needs some
/// for what it opens later.
std::size_t transfersUnderDescriptorLimit() {
  constexpr std::size_t kKeptFree = 64, kPerTransfer = 3, kFewest = 4, kMost = 16'384;
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) {
    return kFewest;
  }
  const std::size_t taken = openDescriptors() + kKeptFree;
  const std::size_t all = limit.rlim_cur == RLIM_INFINITY ? kMost * kPerTransfer + taken : limit.rlim_cur;
  return std::clamp(all > taken ? (all - taken) / kPerTransfer : 0, kFewest, kMost);
}

}  // namespace

Limits Limits::ofThisProcess() {
  constexpr std::size_t kLongestIdle = std::size_t{24} * 60 * 60 * 1000;
  return {
      .idle = std::chrono::milliseconds(
          std::min(fromEnvironment("ZEP_URL_TIMEOUT_MS").value_or(60'000), kLongestIdle)),
      .bodyBytes = fromEnvironment("ZEP_URL_MAX_BODY_BYTES").value_or(halfOfMemory()),
      .transfers = transfersUnderDescriptorLimit(),
  };
}

}  // namespace foundation
