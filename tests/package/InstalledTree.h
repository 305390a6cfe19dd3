#pragma once

// The project as it is installed, in a folder of its own: what the packages bring, or what "cmake --install" does,
// moved to another place afterwards. Belongs to the test that makes it.

#include <string>
#include <vector>

#include "tests/package/Command.h"
#include "tests/support/TemporaryFolder.h"

namespace test {

enum class Origin { Packages, MovedInstallation };

class InstalledTree {
 public:
  explicit InstalledTree(Origin origin);

  const std::string& prefix() const { return prefix_; }
  std::string libraries() const { return prefix_ + "/" LIBRARY_FOLDER; }
  /// What programs need to find the libraries. Of the packages: what the system's own folders do otherwise.
  Environment environment() const;
  /// What pkg-config is told to find the libraries there, and nowhere else.
  Environment packageConfiguration() const;
  /// The folder that was installed to in the beginning; nothing is there any more, and nothing may speak of it.
  const std::string& formerPrefix() const { return formerPrefix_; }

 private:
  Origin origin_;
  TemporaryFolder folder_;
  std::string prefix_;
  std::string formerPrefix_;
};

}  // namespace test
