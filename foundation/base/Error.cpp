#include "foundation/base/Error.h"

namespace foundation {
namespace {

const char* sentence(URLErrorCode code) {
  switch (code) {
    case URLErrorCode::Unknown:
      return "The request failed.";
    case URLErrorCode::BadURL:
      return "The address or the method of the request is malformed.";
    case URLErrorCode::TimedOut:
      return "The request timed out.";
    case URLErrorCode::UnsupportedURL:
      return "Addresses of this kind cannot be loaded.";
    case URLErrorCode::CannotFindHost:
      return "No server of this name was found.";
    case URLErrorCode::CannotConnectToHost:
      return "The server could not be reached.";
    case URLErrorCode::NetworkConnectionLost:
      return "The connection was lost.";
    case URLErrorCode::DNSLookupFailed:
      return "The name of the server could not be looked up.";
    case URLErrorCode::HTTPTooManyRedirects:
      return "The server redirected too often.";
    case URLErrorCode::NotConnectedToInternet:
      return "There is no network connection.";
    case URLErrorCode::RedirectToNonExistentLocation:
      return "The server redirected to an address that cannot be used.";
    case URLErrorCode::BadServerResponse:
      return "The answer of the server could not be understood.";
    case URLErrorCode::UserCancelledAuthentication:
      return "The sign-in was cancelled.";
    case URLErrorCode::UserAuthenticationRequired:
      return "The server asks for a sign-in.";
    case URLErrorCode::CannotDecodeContentData:
      return "The content could not be decoded.";
    case URLErrorCode::FileDoesNotExist:
      return "The file does not exist.";
    case URLErrorCode::NoPermissionsToReadFile:
      return "The file cannot be read.";
    case URLErrorCode::DataLengthExceedsMaximum:
      return "The content is too large.";
    case URLErrorCode::SecureConnectionFailed:
      return "A secure connection to the server could not be made.";
    case URLErrorCode::ServerCertificateUntrusted:
      return "The certificate of the server is not trusted.";
  }
  return "The request failed.";
}

}  // namespace

Error makeURLError(URLErrorCode code, const std::string& detail) {
  const int number = static_cast<int>(code);
  std::string description = std::string(kURLErrorDomain) + " " + std::to_string(number);
  if (!detail.empty()) {
    description += ": " + detail;
  }
  return {kURLErrorDomain, number, std::move(description), sentence(code)};
}

}  // namespace foundation
