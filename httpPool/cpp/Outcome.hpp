#pragma once

// How a request ended: Status, ErrorId, Error, Outcome, and RequestError for those who prefer exceptions.
// Values without ties to anything; any thread. Part of httpPool.hpp.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "httpPool/cpp/Json.hpp"

namespace httpPool {
inline namespace v1 {

/// The state of a task; the ones from Done on are ends.
enum class Status {
  Uninitialized,  ///< never run, or reset
  Requesting,     ///< its request is running
  Done,           ///< answered by status 200, 404 or 407, or read from a file URL
  Redirected,     ///< a redirect of a RequestKind::Autodiscover request was captured
  Failed,         ///< Outcome::error() says why
  TimedOut,       ///< reserved by the library; a server that falls silent is Failed with ErrorId::Silence
  Refused,   ///< not launched: the URL is malformed or holds a zero byte, as may the download path, or the
             ///< byte body is longer than 2^31 - 1 bytes
  Cancelled  ///< reset, run again, or its Task or Pool is gone
};

/// What the library reports as "errorID".
enum class ErrorId {
  Unknown = 0,  ///< not an error of URL loading
  Connection =
      1,  ///< no network, connection lost, name server did not answer; a proxy that demands a password; a
          ///< server certificate that is revoked or denied by the user's settings
  Response = 2,    ///< any other status of the server; or host not found, connection refused, TLS failure
  NotAllowed = 3,  ///< signing in was skipped or refused, or a server certificate was
  Silence = 4,     ///< no byte in either direction for 60 s
  RetryLater = 5,  ///< status 429 of a RequestKind::Glint request; Error::retryAfter says when
  Other = 6        ///< anything else; among it too many redirects and a body that does not fit into memory
};

/// Why a request failed. A value.
struct Error {
  /// The cause.
  ErrorId id = ErrorId::Unknown;
  /// Not 0 with ErrorId::RetryLater only.
  std::chrono::milliseconds retryAfter{0};

  /// Equal in both members.
  bool operator==(const Error&) const = default;

  /// Reads {"errorID":n,"errorReason":m}; nothing when the text is something else. A number without a name here is
  /// Other.
  static std::optional<Error> parse(std::string_view json) {
    const auto members = JsonObject::parse(json);
    const auto number = members ? members->number("errorID") : std::nullopt;
    const auto reason = members ? members->number("errorReason") : std::nullopt;
    if (!number || !reason) {
      return std::nullopt;
    }
    const bool isNamed = *number >= 0 && *number <= static_cast<std::int64_t>(ErrorId::Other);
    return Error{isNamed ? static_cast<ErrorId>(*number) : ErrorId::Other,
                 std::chrono::milliseconds(*reason)};
  }
};

/// One sentence without a full stop, in English.
inline const char* description(ErrorId id) {
  switch (id) {
    case ErrorId::Connection:
      return "no network, connection lost, or refused by a proxy or a certificate's revocation";
    case ErrorId::Response:
      return "unexpected status of the server, or it could not be reached";
    case ErrorId::NotAllowed:
      return "signing in failed, or the server's certificate was refused";
    case ErrorId::Silence:
      return "the server fell silent";
    case ErrorId::RetryLater:
      return "too many requests";
    case ErrorId::Unknown:
    case ErrorId::Other:
      break;
  }
  return "the request could not be completed";
}

/// How a request ended. A value; copies share the text, so they are cheap. Any number of threads may read one.
class Outcome {
 public:
  /// Status::Done with a body or a path. This and the next three make outcomes for the host's tests.
  static Outcome done(std::string text) {
    return {Status::Done, std::make_shared<const std::string>(std::move(text)), {}};
  }
  /// Status::Redirected with its target.
  static Outcome redirected(std::string url) {
    return {Status::Redirected, std::make_shared<const std::string>(std::move(url)), {}};
  }
  /// Status::Failed.
  static Outcome failed(Error error) noexcept { return {Status::Failed, nullptr, error}; }
  /// One of the ends that have nothing to tell: TimedOut, Refused, Cancelled.
  static Outcome ended(Status status) noexcept { return {status, nullptr, {}}; }

  /// An end: neither Uninitialized nor Requesting.
  Status status() const { return status_; }
  /// Whether text() counts.
  bool isDone() const { return status_ == Status::Done; }
  /// isDone().
  explicit operator bool() const { return isDone(); }

  /// Done: the body, zero bytes included, or the path of the downloaded file; otherwise empty. Of a body that is not
  /// UTF-8 what comes before the first zero byte: such bodies are for downloads.
  const std::string& text() const { return status_ == Status::Done ? *text_ : nothing(); }
  /// text() as bytes; valid as long as this object, or a copy of it, is there.
  std::span<const std::byte> bytes() const { return std::as_bytes(std::span(text())); }
  /// Redirected: the target; otherwise empty.
  const std::string& redirectUrl() const { return status_ == Status::Redirected ? *text_ : nothing(); }
  /// Failed: why.
  const std::optional<Error>& error() const { return error_; }

  /// text() of a request that is done. Otherwise throws RequestError.
  const std::string& value() const&;
  /// The same of a temporary: a copy that stays.
  std::string value() &&;

  /// Equal in status, error and text.
  bool operator==(const Outcome& other) const {
    return status_ == other.status_ && error_ == other.error_ && text() == other.text() &&
           redirectUrl() == other.redirectUrl();
  }

  /// For people and logs, in English: "done, 12 bytes", "failed: the server fell silent (errorID 4)".
  std::string description() const;

 private:
  Outcome(Status status, std::shared_ptr<const std::string> text, std::optional<Error> error) noexcept
      : status_(status), text_(std::move(text)), error_(error) {}

  static const std::string& nothing() {
    static const std::string empty;
    return empty;
  }

  Status status_;
  /// Null unless Done or Redirected.
  std::shared_ptr<const std::string> text_;
  std::optional<Error> error_;
};

/// What Outcome::value() throws.
class RequestError : public std::runtime_error {
 public:
  /// what() is the outcome's description().
  explicit RequestError(Outcome outcome)
      : std::runtime_error(outcome.description()), outcome_(std::move(outcome)) {}
  /// How the request ended; never as Status::Done.
  const Outcome& outcome() const { return outcome_; }

 private:
  Outcome outcome_;
};

inline const std::string& Outcome::value() const& {
  if (!isDone()) {
    throw RequestError(*this);
  }
  return *text_;
}

inline std::string Outcome::value() && {
  return std::as_const(*this).value();
}

inline std::string Outcome::description() const {
  switch (status_) {
    case Status::Done:
      return "done, " + std::to_string(text_->size()) + " bytes";
    case Status::Redirected:
      return "redirected to " + *text_;
    case Status::Failed: {
      const Error error = error_.value_or(Error{});
      std::string text = std::string("failed: ") + httpPool::description(error.id) + " (errorID " +
                         std::to_string(static_cast<int>(error.id));
      if (error.retryAfter.count() != 0) {
        text += ", again in " + std::to_string(error.retryAfter.count()) + " ms";
      }
      return text + ")";
    }
    case Status::TimedOut:
      return "timed out";
    case Status::Refused:
      return "refused: the request cannot be sent as it is";
    case Status::Cancelled:
      return "cancelled";
    case Status::Uninitialized:
    case Status::Requesting:
      break;
  }
  return "not ended";
}

}  // namespace v1
}  // namespace httpPool
