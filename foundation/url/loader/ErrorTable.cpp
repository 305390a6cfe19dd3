#include "foundation/url/loader/ErrorTable.h"

#include <netdb.h>

#include <cerrno>

namespace foundation {

URLErrorCode urlErrorCode(CURLcode result, long osError, TransferStage stage) {
  switch (result) {
    case CURLE_URL_MALFORMAT:
      return URLErrorCode::BadURL;
    case CURLE_OPERATION_TIMEDOUT:
      return URLErrorCode::TimedOut;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
      return URLErrorCode::CannotFindHost;
    case CURLE_COULDNT_CONNECT:
      if (osError == ECONNRESET) {
        return URLErrorCode::NetworkConnectionLost;  // it was there, and was reset before it could be used
      }
      return osError == ENETUNREACH || osError == ENETDOWN ? URLErrorCode::NotConnectedToInternet
                                                           : URLErrorCode::CannotConnectToHost;
    case CURLE_PROXY:
    case CURLE_INTERFACE_FAILED:
      return URLErrorCode::CannotConnectToHost;
    case CURLE_GOT_NOTHING:
    case CURLE_PARTIAL_FILE:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_FAIL_REWIND:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
      return URLErrorCode::NetworkConnectionLost;
    case CURLE_OUT_OF_MEMORY:
      // curl says so, too, of a header line that is longer than it holds.
      return stage == TransferStage::AwaitingHead ? URLErrorCode::BadServerResponse
                                                  : URLErrorCode::DataLengthExceedsMaximum;
    case CURLE_UNSUPPORTED_PROTOCOL:
      // The scheme was looked at before; this is an answer without a status line.
    case CURLE_ABORTED_BY_CALLBACK:
      // By WireRequest: a proxy's answer to CONNECT is too long.
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_HTTP_RETURNED_ERROR:
      return URLErrorCode::BadServerResponse;
    case CURLE_LOGIN_DENIED:
    case CURLE_AUTH_ERROR:
      return URLErrorCode::UserAuthenticationRequired;
    case CURLE_BAD_CONTENT_ENCODING:
      return URLErrorCode::CannotDecodeContentData;
    case CURLE_PEER_FAILED_VERIFICATION:
      return URLErrorCode::ServerCertificateUntrusted;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_ENGINE_NOTFOUND:
    case CURLE_SSL_ENGINE_SETFAILED:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_USE_SSL_FAILED:
    case CURLE_SSL_ENGINE_INITFAILED:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_SHUTDOWN_FAILED:
    case CURLE_SSL_CRL_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
    case CURLE_SSL_INVALIDCERTSTATUS:
    case CURLE_SSL_CLIENTCERT:
      return URLErrorCode::SecureConnectionFailed;
    default:
      return URLErrorCode::Unknown;
  }
}

URLErrorCode urlErrorCodeOfLookUp(int addressInfoError) {
  switch (addressInfoError) {
    case EAI_NONAME:
    case EAI_NODATA:
    case EAI_ADDRFAMILY:
    case EAI_FAMILY:
      return URLErrorCode::CannotFindHost;
    default:
      // EAI_AGAIN and the like, and 0: the name is found now.
      return URLErrorCode::DNSLookupFailed;
  }
}

URLErrorCode urlErrorCodeOfFile(int osError) {
  switch (osError) {
    case ENOENT:
    case ENOTDIR:
    case ENAMETOOLONG:
      return URLErrorCode::FileDoesNotExist;
    default:
      return URLErrorCode::NoPermissionsToReadFile;
  }
}

}  // namespace foundation
