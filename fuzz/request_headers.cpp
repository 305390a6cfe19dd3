// Header fields as a host gives them, the JSON text of an object, on their way into the header of a request. The
// request is told in a second, plainer way, too.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/base/JsonText.h"
#include "foundation/base/Trace.h"
#include "foundation/url/loader/RequestHeaders.h"
#include "fuzz/Input.h"
#include "fuzz/Require.h"
#include "httpPool/HttpCallMacImpl.h"
#include "httpPool/MacDownloadEngine.h"
#include "httpPool/Utf8Text.h"

namespace {

using foundation::Dictionary;
using Field = std::pair<std::string, std::string>;

constexpr std::array<std::string_view, 4> kKinds = {"Exchange-Autodiscover", "Exchange-Listmeeting",
                                                    "Adjacency", "Glint"};

std::vector<std::string> traced;

void keepTrace(foundation::TraceLevel /*level*/, std::string_view text) {
  traced.emplace_back(text);
}

std::string lowerCased(std::string text) {
  for (char& c : text) {
    c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
  }
  return text;
}

bool isSame(const std::string& name, const char* other) {
  return lowerCased(name) == lowerCased(other);
}

bool isName(const std::string& text) {
  constexpr std::string_view kTokens =
      "!#$%&'*+-.^_`|~0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  return !text.empty() && text.find_first_not_of(kTokens) == std::string::npos;
}

bool hasLineEnd(const std::string& text) {
  return text.find('\r') != std::string::npos || text.find('\n') != std::string::npos ||
         text.find('\0') != std::string::npos;
}

std::string withoutBlanks(std::string text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) {
    text.erase(0, 1);
  }
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) {
    text.pop_back();
  }
  return text;
}

/// What the dictionary asks for.
struct Wish {
  std::string method = "POST";
  std::string_view kind;
  std::vector<Field> fields;

  explicit Wish(const Dictionary& dictionary, std::size_t bodyLength, bool hasBody) {
    if (hasBody) {
      fields.emplace_back("Content-Length", std::to_string(bodyLength));
    }
    fields.emplace_back("Content-Type", "application/x-www-form-urlencoded");
    for (const auto& [key, value] : dictionary.entries()) {
      add(key, value.text() != nullptr ? *value.text() : std::string());
    }
  }

  void add(const std::string& key, const std::string& value) {
    bool isSent = true;
    for (const std::string_view name : kKinds) {
      if (key == name) {
        kind = name;
        isSent = name == "Glint";
      }
    }
    if (key == "HttpMethonGet") {
      method = "GET";
    } else if (key == "HttpMethod") {
      method = value;
    } else if (isSent) {
      set(key, value);
    }
  }

  void set(const std::string& key, const std::string& value) {
    for (Field& field : fields) {
      if (lowerCased(field.first) == lowerCased(key)) {
        field = {key, value};
        return;
      }
    }
    fields.emplace_back(key, value);
  }
};

Dictionary parsed(const std::string& json) {
  CHttpCallMacImpl call;
  call.SetHeaderFields(json.c_str());
  return call.ParseHeaders();
}

/// The other reader of JSON texts refuses what is not UTF-8 and skips a byte order mark, with which nothing is an
/// object to this one; apart from that both read the same.
void checkReading(const std::string& json, const Dictionary& fields) {
  if (json.starts_with("\xEF\xBB\xBF")) {
    require(fields.size() == 0);
    return;
  }
  for (const auto& [key, value] : fields.entries()) {
    require(value.text() != nullptr && IsUtf8(key) && IsUtf8(*value.text()));
  }
  require(parsed(foundation::jsonText(fields)) == fields);
  const auto other = foundation::dictionaryFromJsonText(json);
  if (!other) {
    return;
  }
  require(other->size() == fields.size());
  for (std::size_t i = 0; i < fields.size(); ++i) {
    require(fields.entries()[i].first == other->entries()[i].first);
    require(*fields.entries()[i].second.text() == other->text(other->entries()[i].first));
  }
}

/// What is left out is told, without its value.
void checkTrace(const std::vector<std::string>& told, const std::vector<Field>& leftOut) {
  require(told.size() == leftOut.size());
  for (std::size_t i = 0; i < told.size(); ++i) {
    const std::string& name = leftOut[i].first;
    require(told[i] == "request header field left out, " +
                           (isName(name)
                                ? "its value holds CR, LF or NUL: " + name
                                : "its name is no token (" + std::to_string(name.size()) + " bytes)"));
  }
}

/// "Name: value", "Name;" without a value, and "Name:" for what curl shall not add.
Field fieldOf(const std::string& line) {
  const std::size_t end = line.find_first_of(":;");
  require(end != std::string::npos && isName(line.substr(0, end)) && !hasLineEnd(line));
  if (line[end] == ';') {
    require(end + 1 == line.size());
    return {line.substr(0, end), ""};
  }
  require(end + 1 == line.size() || (line[end + 1] == ' ' && end + 2 < line.size()));
  return {line.substr(0, end), line.substr(std::min(end + 2, line.size()))};
}

void checkHeader(const foundation::URLRequest& request, const Wish& wish) {
  traced.clear();
  const foundation::RequestHeaders headers = foundation::makeRequestHeaders(request);
  const std::vector<std::string> told = traced;
  std::vector<Field> sent;
  for (const curl_slist* item = headers.list.get(); item != nullptr; item = item->next) {
    sent.push_back(fieldOf(item->data));
  }
  std::vector<Field> leftOut;
  std::string cookies;
  std::size_t position = 0;
  bool hasAgent = false;
  for (const auto& [name, value] : wish.fields) {
    hasAgent |= isSame(name, "User-Agent");
    if (!isName(name) || hasLineEnd(value)) {
      leftOut.emplace_back(name, value);
    } else if (isSame(name, "Cookie")) {
      cookies = withoutBlanks(value);
    } else if (!isSame(name, "Content-Length") && !isSame(name, "Transfer-Encoding") &&
               !isSame(name, "Expect")) {
      require(position < sent.size() && sent[position] == Field(name, withoutBlanks(value)));
      ++position;
    }
  }
  checkTrace(told, leftOut);
  require(headers.cookies == cookies && !hasLineEnd(headers.cookies));
  // Behind them come the defaults, and nothing of what frames the message but "not this one".
  require(hasAgent || (position < sent.size() && sent[position++].first == "User-Agent"));
  for (; position < sent.size(); ++position) {
    require(sent[position].first == "Accept-Language" || sent[position] == Field("Expect", "") ||
            sent[position] == Field("Content-Type", ""));
  }
  require(!sent.empty() && sent.back() == Field("Expect", ""));
}

void checkRequest(const Dictionary& fields, const std::shared_ptr<const foundation::Data>& body) {
  const Wish wish(fields, body ? body->length() : 0, body != nullptr);
  MacDownloadEngine engine;
  const auto request = engine.generateURLRequest("http://host.test/", body, &fields);
  require(request.has_value() && request->url().has_value());
  require(request->HTTPMethod() == wish.method);
  require(request->HTTPBody() == body);
  require(request->headerFields().fields() == wish.fields);
  require(engine.isExchAutodiscovering() == (wish.kind == kKinds[0]));
  require(engine.isExchListmeeting() == (wish.kind == kKinds[1]));
  require(engine.isAdjacency() == (wish.kind == kKinds[2]));
  require(engine.isGlintRequest() == (wish.kind == kKinds[3]));
  checkHeader(*request, wish);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // The host's text ends at its first zero byte.
  const std::string json(textOf(data, size).substr(0, textOf(data, size).find('\0')));
  foundation::setTraceSink(&keepTrace);
  const Dictionary fields = parsed(json);
  checkReading(json, fields);
  checkRequest(fields, nullptr);
  checkRequest(fields, std::make_shared<const foundation::Data>(json.data(), json.size()));
  return 0;
}
