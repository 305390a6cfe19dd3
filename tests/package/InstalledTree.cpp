#include "tests/package/InstalledTree.h"

#include <filesystem>

#include "tests/package/Packages.h"

namespace test {

InstalledTree::InstalledTree(Origin origin) : origin_(origin) {
  if (origin_ == Origin::Packages) {
    prefix_ = folder_.file("usr");
    formerPrefix_ = BUILD_FOLDER;
    unpackInto(folder_.path());
    return;
  }
  prefix_ = folder_.file("here");
  formerPrefix_ = folder_.file("there");
  outputOf({CMAKE_PROGRAM, "--install", BUILD_FOLDER, "--prefix", formerPrefix_});
  std::filesystem::rename(formerPrefix_, prefix_);
}

Environment InstalledTree::environment() const {
  if (origin_ == Origin::MovedInstallation) {
    return {{"LD_LIBRARY_PATH", {}}};
  }
  return {{"LD_LIBRARY_PATH", libraries()}};
}

Environment InstalledTree::packageConfiguration() const {
  Environment environment = {{"PKG_CONFIG_LIBDIR", libraries() + "/pkgconfig"}, {"PKG_CONFIG_PATH", {}}};
  if (origin_ == Origin::Packages) {
    environment["PKG_CONFIG_SYSROOT_DIR"] = folder_.path();
  }
  return environment;
}

}  // namespace test
