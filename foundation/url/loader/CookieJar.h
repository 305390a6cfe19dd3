#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <string_view>

#include "foundation/url/loader/CurlHandles.h"

namespace foundation {

/// The cookies of the process. curl keeps every cookie that a server may set, however many; the jar sees to it that
/// what all servers together can make it keep is bounded. Loader thread, once it is made.
class CookieJar {
 public:
  /// More cookies than this do not stay; servers are to reckon with 3,000 (RFC 6265 §6.1).
  static constexpr std::size_t kMost = 3000;
  /// What stays of a domain's when there are more.
  static constexpr std::size_t kMostOfADomain = 50;
  /// Looking costs some milliseconds when the jar is full, so it is done once for so many fields.
  static constexpr std::size_t kFieldsBetweenLooks = 500;

  /// False when there is no memory. May be called again then.
  bool make();
  /// What requests share the jar by; null before it is made.
  CURLSH* share() const { return share_.get(); }

  /// A line of some answer's head.
  void noteHeaderLine(std::string_view line);
  /// Not from inside curl: when there are too many cookies, the newest of each domain are kept, as many of each as
  /// there is room for.
  void keepBounds();

 private:
  ShareHandle share_;
  std::size_t fields_ = 0;
};

}  // namespace foundation
