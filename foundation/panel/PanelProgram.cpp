#include "foundation/panel/PanelProgram.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <initializer_list>
#include <string_view>

namespace foundation {
namespace {

constexpr const char* kName = "/zep-trust-panel";

bool isProgram(const std::string& path) {
  struct stat status {};
  return path.starts_with('/') && stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
         access(path.c_str(), X_OK) == 0;
}

/// The folder of the image this code is in; empty when its path depends on the working folder.
std::string ownFolder() {
  Dl_info image{};
  if (dladdr(reinterpret_cast<const void*>(&panelProgram), &image) == 0 || image.dli_fname == nullptr ||
      image.dli_fname[0] != '/') {
    return {};
  }
  const std::string path = image.dli_fname;
  return path.substr(0, path.rfind('/'));
}

/// The program's installed place as seen from the library's folder, when that is an installed one; else nothing.
const char* installedPlace(const std::string& folder) {
  return folder.ends_with(ZEP_LIBRARY_FOLDER) ? "/" ZEP_PANEL_FOLDER : "";
}

}  // namespace

std::string panelProgram() {
  if (const char* const chosen = secure_getenv("ZEP_TRUST_PANEL")) {
    return isProgram(chosen) ? chosen : std::string();
  }
  const std::string folder = ownFolder();
  if (folder.empty()) {
    return {};
  }
  for (const std::string_view place : {"/../libexec/zep", "/zep", installedPlace(folder)}) {
    if (std::string path = folder + std::string(place) + kName; !place.empty() && isProgram(path)) {
      return path;
    }
  }
  return {};
}

}  // namespace foundation
