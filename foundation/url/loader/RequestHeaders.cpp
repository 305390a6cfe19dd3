#include "foundation/url/loader/RequestHeaders.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

#include "foundation/base/Trace.h"

namespace foundation {
namespace {

constexpr std::string_view kUserAgent = "zepfoundation/0.1";

bool framesTheMessage(std::string_view name) {
  constexpr std::array<std::string_view, 3> kNames = {"Content-Length", "Transfer-Encoding", "Expect"};
  return std::any_of(kNames.begin(), kNames.end(),
                     [&](auto own) { return HeaderFields::equalNames(own, name); });
}

/// The name is repeated only when it is harmless, the value never: it may be a secret.
void traceLeftOut(std::string_view name) {
  std::string line = "request header field left out, ";
  if (HeaderFields::isToken(name)) {
    line.append("its value holds CR, LF or NUL: ").append(name);
  } else {
    line.append("its name is no token (").append(std::to_string(name.size())).append(" bytes)");
  }
  trace(TraceLevel::Warning, line);
}

class ListBuilder {
 public:
  void add(const std::string& line) {
    curl_slist* longer = failed_ ? nullptr : curl_slist_append(list_.get(), line.c_str());
    if (longer == nullptr) {
      failed_ = true;
      list_.reset();
    } else if (list_ == nullptr) {
      list_.reset(longer);
    }
  }
  /// "Name;" is curl's way to say a field without a value.
  void add(std::string_view name, std::string_view value) {
    std::string line(name);
    add(value.empty() ? line.append(";") : line.append(": ").append(value));
  }
  /// "Name:" is curl's way to leave out what it would add by itself.
  void suppress(std::string_view name) { add(std::string(name).append(":")); }

  HeaderList take() { return std::move(list_); }

 private:
  HeaderList list_;
  bool failed_ = false;
};

}  // namespace

RequestHeaders makeRequestHeaders(const URLRequest& request) {
  ListBuilder list;
  RequestHeaders headers;
  const HeaderFields& fields = request.headerFields();
  for (const auto& [name, value] : fields.fields()) {
    if (!HeaderFields::isToken(name) || !HeaderFields::isSafeValue(value)) {
      traceLeftOut(name);
    } else if (HeaderFields::equalNames(name, "Cookie")) {
      headers.cookies = HeaderFields::trimmed(value);
    } else if (!framesTheMessage(name)) {
      list.add(name, HeaderFields::trimmed(value));
    }
  }
  if (fields.value("User-Agent") == nullptr) {
    list.add("User-Agent", kUserAgent);
  }
  if (fields.value("Accept-Language") == nullptr) {
    static const std::string& languages = *new std::string(acceptLanguageOfLocale());
    if (!languages.empty()) {
      list.add("Accept-Language", languages);
    }
  }
  if (fields.value("Content-Type") == nullptr) {
    list.suppress("Content-Type");
  }
  // Some servers wait for a body that curl would hold back until they answer 100.
  list.suppress("Expect");
  headers.list = list.take();
  return headers;
}

std::string acceptLanguageOfLocale() {
  // "de_DE.UTF-8@euro", "de_DE", "de", "C": what is left without encoding and modifier, first come first.
  std::vector<std::string> tags;
  const gchar* const* names = g_get_language_names();
  for (; *names != nullptr && tags.size() < 5; ++names) {
    std::string tag(std::string_view(*names).substr(0, std::string_view(*names).find_first_of(".@")));
    std::replace(tag.begin(), tag.end(), '_', '-');
    const bool isTag =
        std::all_of(tag.begin(), tag.end(), [](unsigned char c) { return g_ascii_isalnum(c) || c == '-'; });
    if (isTag && tag.size() >= 2 && tag != "POSIX" &&
        std::find(tags.begin(), tags.end(), tag) == tags.end()) {
      tags.push_back(std::move(tag));
    }
  }
  std::string value;
  for (std::size_t i = 0; i < tags.size(); ++i) {
    value.append(i == 0 ? "" : ", ").append(tags[i]);
    if (i > 0) {
      value.append(";q=0.").append(std::to_string(10 - i));
    }
  }
  return value;
}

}  // namespace foundation
