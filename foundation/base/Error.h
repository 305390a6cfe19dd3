#pragma once

#include <string>

#include "foundation/base/Export.h"

namespace foundation {

/// The domain of every error of URL loading.
inline constexpr const char* kURLErrorDomain = "NSURLErrorDomain";

/// Codes of kURLErrorDomain.
enum class URLErrorCode : int {
  Unknown = -1,
  BadURL = -1000,
  TimedOut = -1001,
  UnsupportedURL = -1002,
  CannotFindHost = -1003,
  CannotConnectToHost = -1004,
  NetworkConnectionLost = -1005,
  DNSLookupFailed = -1006,
  HTTPTooManyRedirects = -1007,
  NotConnectedToInternet = -1009,
  RedirectToNonExistentLocation = -1010,
  BadServerResponse = -1011,
  UserCancelledAuthentication = -1012,
  UserAuthenticationRequired = -1013,
  CannotDecodeContentData = -1016,
  FileDoesNotExist = -1100,
  NoPermissionsToReadFile = -1102,
  DataLengthExceedsMaximum = -1103,
  SecureConnectionFailed = -1200,
  ServerCertificateUntrusted = -1202,
};

/// Why something failed: a value, copied freely.
struct FOUNDATION_EXPORT Error {
  std::string domain;
  int code = 0;
  /// For developers: the condition with the raw code beneath it.
  std::string description;
  /// For users: one sentence.
  std::string localizedDescription;
};

/// An error of kURLErrorDomain; `detail` is what the layer beneath reported, for the description.
FOUNDATION_EXPORT Error makeURLError(URLErrorCode code, const std::string& detail);

}  // namespace foundation
