#pragma once

#include <string>
#include <vector>

#include "foundation/base/Export.h"

namespace foundation {

enum class SearchPathDirectory : unsigned { Application = 1 };
enum class SearchPathDomainMask : unsigned { System = 8 };

/// The folders that are such a directory in those domains, the one to prefer first; they need not exist. The system's
/// applications are in /opt, or in the one folder that the environment variable ZEP_APPLICATIONS_DIR names. An empty
/// value counts as not set; a relative path gives no folder at all, since it would mean another one in every working
/// folder. Programs that run with more rights than their user's do not look at the variable. Any thread.
FOUNDATION_EXPORT std::vector<std::string> searchPathForDirectoriesInDomains(SearchPathDirectory directory,
                                                                             SearchPathDomainMask domains);

/// Whether the environment is to be believed: not in a program that runs with more rights than its user's.
enum class Environment { Trusted, Distrusted };
Environment environmentOfThisProcess();

/// Where the user's applications keep their settings; without a trusted environment that of the account whose rights
/// the program has, whatever it says. Empty: nowhere. Any thread.
std::string userConfigurationFolder(Environment environment);

}  // namespace foundation
