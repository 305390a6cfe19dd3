#pragma once

#include <memory>

#include "foundation/url/URL.h"
#include "foundation/url/loader/TransferClient.h"

namespace foundation {

/// Reads the regular file of a file URL (RFC 8089) on a worker thread and reports it as a response without a
/// status, its bytes, and the end; at once as a failure when the system refuses a thread. Ends early when the client
/// wants no more.
void startFileLoad(const URL& url, std::size_t bodyLimit, const std::shared_ptr<TransferClient>& client);

}  // namespace foundation
