#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/url/HeaderFields.h"

namespace foundation {

/// Collects the header lines of the answers to one request, as curl hands them over. Bounded in bytes and
/// lines, interim answers (RFC 9110 §15.2) and trailers (§6.5) included.
class ResponseHead {
 public:
  enum class Progress {
    More,       ///< the head is not complete
    Complete,   ///< the final answer's head is complete
    TooLarge,   ///< the peer sends more than is taken
    Ambiguous,  ///< the length of the body can be read in several ways (RFC 9112 §6.3)
  };

  /// One line with its end.
  Progress addLine(std::string_view line);
  /// One line behind the body: counted, and not kept. More or TooLarge.
  Progress addTrailer(std::string_view line);

  /// Whether anything of an answer has come.
  bool isBegun() const { return lines_ > 0; }
  int statusCode() const { return statusCode_; }
  const HeaderFields& fields() const { return fields_; }
  /// The body's length if the peer says it and does not encode the body.
  std::optional<std::size_t> contentLength() const;
  /// 301, 302, 303, 307 or 308 with a Location.
  bool isRedirect() const;
  /// What a 401 offers in WWW-Authenticate or a 407 in Proxy-Authenticate, one text for each field line, so
  /// that a malformed line does not spoil the next. Empty for every other status.
  std::vector<std::string> challengeFields() const;

 private:
  bool hasRoomFor(std::string_view line);
  void beginAnswer(std::string_view statusLine);
  void addField(std::string_view line);
  bool isAmbiguous() const;

  int statusCode_ = 0;
  HeaderFields fields_;
  std::vector<std::string> serverChallenges_;
  std::vector<std::string> proxyChallenges_;
  std::size_t bytes_ = 0;
  std::size_t lines_ = 0;
};

}  // namespace foundation
