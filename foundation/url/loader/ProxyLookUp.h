#pragma once

#include <functional>
#include <optional>
#include <string>

namespace foundation {

/// The proxy for a URL in curl's form (CURLOPT_PROXY(3)): "" for none, nothing to let curl read the usual
/// environment variables.
using ProxyChoice = std::optional<std::string>;

/// Asks the desktop's proxy settings (GProxyResolver), which may take its time and so happens on a worker
/// thread. `answer` is called once: at once, when the desktop is known to have no settings service or the system
/// refuses a thread, else on a worker.
void findProxy(const std::string& url, const std::function<void(ProxyChoice)>& answer);

/// The first of a resolver's proxies that curl can use; "" when it says "direct://" or nothing that is
/// usable.
std::string usableProxy(const char* const* proxies);

}  // namespace foundation
