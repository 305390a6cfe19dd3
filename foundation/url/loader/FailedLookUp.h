#pragma once

#include <functional>
#include <string>

#include "foundation/base/Error.h"

namespace foundation {

/// Finds out why a host name was not found. curl does not say whether the name does not exist or its server
/// did not answer, so the question is asked once more, on a worker thread; questions about one name that are
/// open at the same time share one look-up. `answer` is called once, on the worker; at once, and as if the server had
/// not answered, when the system refuses a thread for that.
void diagnoseFailedLookUp(const std::string& host, std::function<void(URLErrorCode)> answer);

}  // namespace foundation
