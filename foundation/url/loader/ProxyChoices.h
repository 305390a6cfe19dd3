#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "foundation/url/URL.h"
#include "foundation/url/loader/ProxyLookUp.h"

namespace foundation {

/// Which proxy requests go through. The desktop's settings are asked by origin and not by URL, so that neither a
/// script among them nor a proxy's log learns of paths and queries; what they say holds for a second, and one answer
/// serves all requests that wait for it. So many requests to one server cost one look-up.
///
/// Owned by the loader; lives on the loader thread.
class ProxyChoices {
 public:
  using Clock = std::chrono::steady_clock;
  using Answer = std::function<void(const ProxyChoice&)>;
  using Post = std::function<void(std::function<void()>)>;
  using LookUp = std::function<void(const std::string& url, std::function<void(ProxyChoice)> answer)>;

  /// `post` runs a block later on the owner's thread.
  explicit ProxyChoices(Post post, LookUp lookUp = findProxy);
  ProxyChoices(const ProxyChoices&) = delete;
  ProxyChoices& operator=(const ProxyChoices&) = delete;

  /// Calls `answer` once: at once when it is known, else later.
  void find(const URL& url, Clock::time_point now, Answer answer);

 private:
  struct Choice {
    ProxyChoice proxy;
    /// When the settings were asked.
    Clock::time_point asked;
    /// Not empty: they have not answered yet.
    std::vector<Answer> waiting;
  };

  void answered(const std::string& origin, const ProxyChoice& proxy);
  void makeRoom();

  const Post post_;
  const LookUp lookUp_;
  std::unordered_map<std::string, Choice> choices_;
};

}  // namespace foundation
