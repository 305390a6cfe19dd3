#include "foundation/files/SearchPath.h"

#include <cstdlib>
#include <string_view>

namespace foundation {

std::vector<std::string> searchPathForDirectoriesInDomains(SearchPathDirectory directory,
                                                           SearchPathDomainMask domains) {
  if (directory != SearchPathDirectory::Application || domains != SearchPathDomainMask::System) {
    return {};
  }
  const char* value = secure_getenv("ZEP_APPLICATIONS_DIR");
  const std::string_view folder = value != nullptr && *value != '\0' ? value : "/opt";
  if (!folder.starts_with('/')) {
    return {};
  }
  return {std::string(folder)};
}

}  // namespace foundation
