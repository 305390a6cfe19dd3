#pragma once

#include <curl/curl.h>

#include "foundation/base/Error.h"

namespace foundation {

/// How far a transfer had come when it failed.
enum class TransferStage { Connecting, AwaitingHead, InBody };

/// The one table from what curl and the system report to the public code. `osError` is an errno of the
/// connect, or 0.
URLErrorCode urlErrorCode(CURLcode result, long osError, TransferStage stage);

/// The same for a host name that was not found, from what getaddrinfo(3) says.
URLErrorCode urlErrorCodeOfLookUp(int addressInfoError);

/// The same for a file that cannot be opened or read, from errno; 0 is something that is no regular file.
URLErrorCode urlErrorCodeOfFile(int osError);

}  // namespace foundation
