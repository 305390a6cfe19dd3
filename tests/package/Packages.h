#pragma once

// The Debian packages that have been made of this build. Any thread.

#include <string>
#include <vector>

namespace test {

/// The path of the package of that name; throws std::runtime_error when there is not exactly one.
std::string packageFile(const std::string& name);

/// The paths of all three.
std::vector<std::string> packageFiles();

/// Unpacks all three into a folder, as dpkg would into the root.
void unpackInto(const std::string& folder);

/// A file of a package's control data.
std::string controlFile(const std::string& package, const std::string& name);

/// A field of a package's control data.
std::string controlField(const std::string& package, const std::string& name);

}  // namespace test
