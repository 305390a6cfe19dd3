#include "foundation/files/SearchPath.h"

#include <glib.h>
#include <pwd.h>
#include <sys/auxv.h>
#include <unistd.h>

#include <array>
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

Environment environmentOfThisProcess() {
  return getauxval(AT_SECURE) == 0 ? Environment::Trusted : Environment::Distrusted;
}

std::string userConfigurationFolder(Environment environment) {
  if (environment == Environment::Trusted) {
    return g_get_user_config_dir();
  }
  std::array<char, 16384> texts;
  passwd account = {};
  passwd* found = nullptr;
  if (getpwuid_r(geteuid(), &account, texts.data(), texts.size(), &found) != 0 || found == nullptr) {
    return {};
  }
  return std::string(found->pw_dir) + "/.config";
}

}  // namespace foundation
