#include "foundation/url/loader/CookieJar.h"

#include <strings.h>

#include <algorithm>
#include <string>
#include <unordered_map>
#include <vector>

#include "foundation/base/Trace.h"

namespace foundation {
namespace {

using Counts = std::unordered_map<std::string_view, std::size_t>;

/// Of a line in the form of a cookie file, whose fields have tabs between them.
std::string_view domainOf(std::string_view line) {
  return line.substr(0, line.find('\t'));
}

/// All cookies, those of one domain in the order in which they came.
std::vector<std::string_view> linesOf(const curl_slist* list) {
  std::vector<std::string_view> lines;
  for (; list != nullptr; list = list->next) {
    lines.emplace_back(list->data);
  }
  return lines;
}

/// How many may stay of each domain.
std::size_t shareOfEach(const Counts& counts) {
  std::size_t share = CookieJar::kMostOfADomain;
  for (; share > 0; --share) {
    std::size_t all = 0;
    for (const auto& [domain, count] : counts) {
      all += std::min(count, share);
    }
    if (all <= CookieJar::kMost) {
      break;
    }
  }
  return share;
}

void keepTheNewest(CURL* easy, const std::vector<std::string_view>& lines) {
  Counts older;
  for (const std::string_view line : lines) {
    ++older[domainOf(line)];
  }
  const std::size_t share = shareOfEach(older);
  curl_easy_setopt(easy, CURLOPT_COOKIELIST, "ALL");
  for (const std::string_view line : lines) {
    if (older[domainOf(line)]-- <= share) {
      curl_easy_setopt(easy, CURLOPT_COOKIELIST, line.data());
    }
  }
  trace(TraceLevel::Warning, "there were " + std::to_string(lines.size()) + " cookies; " +
                                 std::to_string(share) + " of each domain are kept");
}

}  // namespace

bool CookieJar::make() {
  if (!share_) {
    share_.reset(curl_share_init());
  }
  return share_ && curl_share_setopt(share_.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_COOKIE) == CURLSHE_OK;
}

void CookieJar::noteHeaderLine(std::string_view line) {
  constexpr std::string_view kField = "Set-Cookie:";
  if (line.size() > kField.size() && strncasecmp(line.data(), kField.data(), kField.size()) == 0) {
    ++fields_;
  }
}

void CookieJar::keepBounds() {
  if (fields_ < kFieldsBetweenLooks) {
    return;
  }
  fields_ = 0;
  const EasyHandle easy(curl_easy_init());
  curl_slist* all = nullptr;
  if (!easy || curl_easy_setopt(easy.get(), CURLOPT_SHARE, share_.get()) != CURLE_OK ||
      curl_easy_getinfo(easy.get(), CURLINFO_COOKIELIST, &all) != CURLE_OK) {
    return;  // no memory for it now
  }
  const HeaderList owner(all);
  const std::vector<std::string_view> lines = linesOf(all);
  if (lines.size() > kMost) {
    keepTheNewest(easy.get(), lines);
  }
}

}  // namespace foundation
