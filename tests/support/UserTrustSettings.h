#pragma once

#include <optional>
#include <string>
#include <vector>

namespace test {

/// Lays down in the user's configuration folder what they have decided about the first certificate of the PEM file:
/// each a number under the key, or nothing. The only decisions there are.
void settleTrust(const std::string& configurationFolder, const std::string& pemFile,
                 const std::vector<std::optional<int>>& results);

}  // namespace test
