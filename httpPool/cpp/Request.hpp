#pragma once

// What a task asks for: Request, a value, and RequestSetters, by which a Task is told. Any thread; see Task for when it
// counts. Part of httpPool.hpp.

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <limits>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "httpPool/cpp/Json.hpp"

namespace httpPool {
inline namespace v1 {

/// What a request is for. All but Any change what the library does with it.
enum class RequestKind {
  Any = 0,           ///< nothing in particular
  Autodiscover = 1,  ///< a 301 or 302 is not followed but ends as Status::Redirected
  ListMeeting = 2,   ///< told to the host when it is asked to sign in
  Adjacency = 3,     ///< an untrusted server certificate is accepted without asking the user
  Glint = 4          ///< a 429 ends as ErrorId::RetryLater; a field "Glint: 1" is sent, too
};

/// A request. Texts are UTF-8.
struct Request {
  /// By RFC 3986; http, https, file.
  std::string url{};
  /// For example "GET". Empty: POST, also without a body, unless a header field "HttpMethod" says otherwise.
  std::string method{};
  /// Header fields (RFC 9110 section 5) in their order; of two of one name the later counts. A name that is no token,
  /// and a value with CR, LF or NUL or that is not UTF-8, is left out by the library. "Content-Type" is
  /// application/x-www-form-urlencoded unless given.
  std::vector<std::pair<std::string, std::string>> headers{};
  /// What it is for.
  RequestKind kind = RequestKind::Any;
  /// A body of text. Any bytes, but an empty one is none.
  std::string post{};
  /// A body of bytes, at most 2^31 - 1. Empty: none. Goes before `downloadFile` and `post`.
  std::vector<std::byte> body{};
  /// The file that the body of the answer is written to; it replaces one that is there. Empty: none. Goes before
  /// `post`. Whether it could be written is not reported.
  std::string downloadFile{};

  /// Equal in all members.
  bool operator==(const Request&) const = default;

  /// Replaces the value of the field of exactly that name, or adds the field.
  void setHeader(std::string_view name, std::string_view value) {
    const auto found =
        std::find_if(headers.begin(), headers.end(), [&](const auto& field) { return field.first == name; });
    if (found != headers.end()) {
      found->second = value;
    } else {
      headers.emplace_back(name, value);
    }
  }

  /// The answer of a 429 is an error with a delay.
  bool isGlint() const {
    return kind == RequestKind::Glint || std::any_of(headers.begin(), headers.end(), [](const auto& field) {
             return field.first == "Glint";
           });
  }
  /// Whether the result is the path of a file.
  bool isDownload() const { return body.empty() && !downloadFile.empty(); }
  /// What is sent: `body`, or `post` when it has to go as bytes because it holds a zero byte. Empty: `post`, if
  /// anything, goes as text.
  std::span<const std::byte> bytes() const {
    const bool isText = !body.empty() || isDownload() || post.find('\0') == std::string::npos;
    return isText ? std::span(body) : std::as_bytes(std::span(post));
  }
  /// False when the C interface would cut something off.
  bool isWhole() const {
    return url.find('\0') == std::string::npos && downloadFile.find('\0') == std::string::npos &&
           bytes().size() <= static_cast<std::size_t>(std::numeric_limits<int>::max());
  }

  /// The header fields, the method and the kind as the C interface takes them; empty when there are none.
  std::string headerJson() const {
    JsonWriter json;
    if (kind != RequestKind::Any) {
      json.text(keyOf(kind), "1");
    }
    for (const auto& [name, value] : headers) {
      json.text(name, value);
    }
    // The last of two methods counts.
    if (!method.empty()) {
      json.text("HttpMethod", method);
    }
    return kind == RequestKind::Any && headers.empty() && method.empty() ? std::string() : json.str();
  }

 private:
  static const char* keyOf(RequestKind kind) {
    switch (kind) {
      case RequestKind::Autodiscover:
        return "Exchange-Autodiscover";
      case RequestKind::ListMeeting:
        return "Exchange-Listmeeting";
      case RequestKind::Adjacency:
        return "Adjacency";
      case RequestKind::Glint:
        return "Glint";
      case RequestKind::Any:
        break;
    }
    return "";
  }
};

/// The fluent setters of `Self`; each has the meaning of Request's member. They copy what they are given.
template <typename Self>
class RequestSetters {
 public:
  /// What has been set so far.
  const Request& request() const { return request_; }
  /// Replaces everything that was set.
  Self& request(Request request) & {
    return set([&](Request& own) { own = std::move(request); });
  }
  /// The same of a temporary.
  Self&& request(Request request) && { return std::move(this->request(std::move(request))); }

  /// Sets Request::url.
  Self& url(std::string_view url) & {
    return set([&](Request& own) { own.url = url; });
  }
  /// The same of a temporary.
  Self&& url(std::string_view url) && { return std::move(this->url(url)); }

  /// Sets Request::method.
  Self& method(std::string_view method) & {
    return set([&](Request& own) { own.method = method; });
  }
  /// The same of a temporary.
  Self&& method(std::string_view method) && { return std::move(this->method(method)); }

  /// Sets one of Request::headers; replaces the value of a field of exactly that name.
  Self& header(std::string_view name, std::string_view value) & {
    return set([&](Request& own) { own.setHeader(name, value); });
  }
  /// The same of a temporary.
  Self&& header(std::string_view name, std::string_view value) && {
    return std::move(this->header(name, value));
  }

  /// Sets Request::kind.
  Self& kind(RequestKind kind) & {
    return set([&](Request& own) { own.kind = kind; });
  }
  /// The same of a temporary.
  Self&& kind(RequestKind kind) && { return std::move(this->kind(kind)); }

  /// Sets Request::post.
  Self& post(std::string_view text) & {
    return set([&](Request& own) { own.post = text; });
  }
  /// The same of a temporary.
  Self&& post(std::string_view text) && { return std::move(this->post(text)); }

  /// Sets Request::body, a copy of these bytes.
  Self& body(std::span<const std::byte> bytes) & {
    return set([&](Request& own) { own.body.assign(bytes.begin(), bytes.end()); });
  }
  /// The same of a temporary.
  Self&& body(std::span<const std::byte> bytes) && { return std::move(this->body(bytes)); }

  /// Sets Request::downloadFile.
  Self& download(const std::filesystem::path& file) & {
    return set([&](Request& own) { own.downloadFile = file.native(); });
  }
  /// The same of a temporary.
  Self&& download(const std::filesystem::path& file) && { return std::move(this->download(file)); }

 protected:
  RequestSetters() = default;
  ~RequestSetters() = default;
  /// What was set goes along.
  RequestSetters(RequestSetters&&) noexcept = default;
  /// The same.
  RequestSetters& operator=(RequestSetters&&) noexcept = default;

 private:
  template <typename Change>
  Self& set(const Change& change) {
    change(request_);
    return static_cast<Self&>(*this);
  }

  Request request_;
};

}  // namespace v1
}  // namespace httpPool
