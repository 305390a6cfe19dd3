// A password in a file, for scripts. Main thread.
#pragma once

#include <optional>
#include <string>

#include "Secret.h"

namespace httppool {

// Reads the first line of a file without its line end, "-" is stdin. Returns why it is no password, or nothing.
std::optional<std::string> readPassword(const std::string& path, Secret& password);

}  // namespace httppool
