#include "foundation/url/loader/ProxyLookUp.h"

#include <fcntl.h>
#include <gio/gio.h>

#include <array>
#include <atomic>
#include <chrono>
#include <latch>
#include <memory>
#include <new>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "foundation/base/Descriptor.h"
#include "foundation/base/ExitBarrier.h"
#include "foundation/base/Retry.h"
#include "foundation/base/Trace.h"
#include "foundation/runloop/BlockedSignals.h"
#include "foundation/runloop/DispatchQueue.h"

namespace foundation {
namespace {

enum class Desktop { NotAskedYet, HasNoSettings, HasSettings };

std::atomic<Desktop> desktop{Desktop::NotAskedYet};

/// GIO's stand-in for a missing settings service knows only "direct://" and not the environment variables.
bool knowsSettings(GProxyResolver* resolver) {
  return resolver != nullptr && std::string_view(G_OBJECT_TYPE_NAME(resolver)) != "GDummyProxyResolver" &&
         g_proxy_resolver_is_supported(resolver);
}

/// GIO loads plug-ins for a look-up; when the process ends meanwhile, their libraries are begun anew after they have
/// been ended, and that ends the process by a signal. So the exit waits for look-ups, but not for long, because a
/// script among the settings may take its time.
ExitBarrier& lookUps() {
  constexpr std::chrono::seconds kLongest{2};
  static ExitBarrier& barrier = *new ExitBarrier(kLongest);
  return barrier;
}

/// GIO ends the process when there is no descriptor for a plug-in that it has seen before.
bool areDescriptorsLeft() {
  constexpr std::size_t kEnough = 16;
  std::vector<Descriptor> opened;
  while (opened.size() < kEnough) {
    Descriptor descriptor(open("/", O_PATH | O_CLOEXEC));
    if (!descriptor.isOpen()) {
      return false;
    }
    opened.push_back(std::move(descriptor));
  }
  return true;
}

/// It ends the process, too, when there is no thread for what it makes at the first look-up.
bool areThreadsLeft() {
  constexpr std::size_t kEnough = 4;
  const BlockedSignals blocked;
  std::latch end(1);
  std::vector<std::thread> started;
  started.reserve(kEnough);
  try {
    while (started.size() < kEnough) {
      started.emplace_back([&end] { end.wait(); });
    }
  } catch (...) {
    // The next one is refused, or its memory.
  }
  const bool areEnough = started.size() == kEnough;
  end.count_down();
  for (std::thread& thread : started) {
    thread.join();
  }
  return areEnough;
}

ProxyChoice ask(const std::string& url) {
  if (desktop == Desktop::NotAskedYet && !(areDescriptorsLeft() && areThreadsLeft())) {
    trace(TraceLevel::Warning, "no descriptors or threads for the desktop's proxy settings");
    return std::nullopt;
  }
  // One for the process. Our own once, because GLib's is nothing that a thread sanitizer can see.
  static GProxyResolver* const resolver = g_proxy_resolver_get_default();
  if (!knowsSettings(resolver)) {
    desktop = Desktop::HasNoSettings;
    return std::nullopt;
  }
  desktop = Desktop::HasSettings;
  GError* rawError = nullptr;
  const std::unique_ptr<gchar*, decltype(&g_strfreev)> proxies(
      g_proxy_resolver_lookup(resolver, url.c_str(), nullptr, &rawError), g_strfreev);
  const std::unique_ptr<GError, decltype(&g_error_free)> error(rawError, g_error_free);
  if (proxies == nullptr) {
    trace(TraceLevel::Warning, std::string("the desktop's proxy settings do not answer: ") +
                                   (error ? error->message : "no reason given"));
    return std::string();
  }
  return usableProxy(proxies.get());
}

}  // namespace

void findProxy(const std::string& url, const std::function<void(ProxyChoice)>& answer) {
  if (desktop == Desktop::HasNoSettings) {
    answer(std::nullopt);
    return;
  }
  const bool isAsking = DispatchQueue::workers().async([url, answer] {
    ProxyChoice proxy;
    try {
      const ExitBarrier::Use lookUp(lookUps());
      // Too late, nobody waits for the answer any more.
      if (!lookUp.isAllowed()) {
        return;
      }
      proxy = ask(url);
    } catch (const std::bad_alloc&) {
      proxy = std::nullopt;
    }
    untilThereIsMemory([&] { answer(proxy); });
  });
  if (!isAsking) {
    answer(std::nullopt);
  }
}

std::string usableProxy(const char* const* proxies) {
  // What GIO calls "socks" and "socks5" leaves the names to the proxy.
  constexpr std::array<std::pair<std::string_view, std::string_view>, 6> kSchemes = {{
      {"http://", "http://"},
      {"https://", "https://"},
      {"socks://", "socks5h://"},
      {"socks5://", "socks5h://"},
      {"socks4a://", "socks4a://"},
      {"socks4://", "socks4://"},
  }};
  for (; *proxies != nullptr; ++proxies) {
    const std::string_view proxy(*proxies);
    if (proxy.starts_with("direct://")) {
      return {};
    }
    for (const auto& [theirs, curls] : kSchemes) {
      if (proxy.starts_with(theirs)) {
        return std::string(curls).append(proxy.substr(theirs.size()));
      }
    }
  }
  return {};
}

}  // namespace foundation
