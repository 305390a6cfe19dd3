#pragma once

#include <curl/curl.h>

namespace foundation {

/// Makes a handle's TLS connections verify the peer's chain and host name strictly, against the process's own
/// certificate store. False when curl refuses.
[[nodiscard]] bool configureTls(CURL* easy);

}  // namespace foundation
