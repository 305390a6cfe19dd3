#include "foundation/url/loader/ProxyChoices.h"

#include <algorithm>
#include <utility>

#include "foundation/url/loader/URLCredential.h"

namespace foundation {
namespace {

constexpr std::chrono::seconds kHolds{1};
constexpr std::size_t kMostChoices = 1000;

/// "https://host:port/", without a user's name.
std::string originOf(const URL& url) {
  std::string text = textWithoutUserInfo(url);
  const std::size_t authority = text.find("://") + 3;
  text.resize(std::min(text.find_first_of("/?#", authority), text.size()));
  return text.append("/");
}

}  // namespace

ProxyChoices::ProxyChoices(Post post, LookUp lookUp) : post_(std::move(post)), lookUp_(std::move(lookUp)) {
}

void ProxyChoices::find(const URL& url, Clock::time_point now, Answer answer) {
  const std::string origin = originOf(url);
  auto known = choices_.find(origin);
  if (known != choices_.end() && known->second.waiting.empty() && now - known->second.asked < kHolds) {
    const ProxyChoice proxy = known->second.proxy;
    answer(proxy);
    return;
  }
  if (known == choices_.end()) {
    makeRoom();
    known = choices_.try_emplace(origin).first;
  }
  Choice& choice = known->second;
  choice.waiting.push_back(std::move(answer));
  if (choice.waiting.size() > 1) {
    return;  // asked already
  }
  choice.asked = now;
  try {
    lookUp_(origin, [this, origin](const ProxyChoice& proxy) {
      post_([this, origin, proxy] { answered(origin, proxy); });
    });
  } catch (...) {
    choice.waiting.clear();
    throw;
  }
}

void ProxyChoices::answered(const std::string& origin, const ProxyChoice& proxy) {
  const auto known = choices_.find(origin);
  known->second.proxy = proxy;
  // Whoever is answered may ask anew, and so move the table.
  const std::vector<Answer> waiting = std::exchange(known->second.waiting, {});
  for (const Answer& answer : waiting) {
    answer(proxy);
  }
}

/// What somebody waits for stays, so the table has at most one place for each running transfer beyond its limit.
void ProxyChoices::makeRoom() {
  if (choices_.size() >= kMostChoices) {
    std::erase_if(choices_, [](const auto& choice) { return choice.second.waiting.empty(); });
  }
}

}  // namespace foundation
