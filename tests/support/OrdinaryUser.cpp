#include "tests/support/OrdinaryUser.h"

#include <grp.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace test {
namespace {

constexpr unsigned kNobody = 65534;

void giveOne(const std::string& path) {
  if (lchown(path.c_str(), kNobody, kNobody) != 0) {
    throw std::runtime_error("cannot give away " + path + ": " + std::strerror(errno));
  }
}

}  // namespace

std::vector<std::string> asOrdinaryUser(std::vector<std::string> arguments) {
  if (geteuid() != 0) {
    return arguments;
  }
  // A change of the user clears the signal for the parent's death: it is set anew behind the change.
  const std::string id = std::to_string(kNobody);
  const std::vector<std::string> prefix = {"/usr/bin/setpriv", "--reuid=" + id,    "--regid=" + id,
                                           "--clear-groups",   "--pdeathsig=KILL", "--"};
  arguments.insert(arguments.begin(), prefix.begin(), prefix.end());
  return arguments;
}

void giveToOrdinaryUser(const std::string& folder) {
  if (geteuid() != 0) {
    return;
  }
  giveOne(folder);
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    giveOne(entry.path());
  }
}

void becomeOrdinaryUser() {
  if (geteuid() != 0) {
    return;
  }
  if (setgroups(0, nullptr) != 0 || setresgid(kNobody, kNobody, kNobody) != 0 ||
      setresuid(kNobody, kNobody, kNobody) != 0) {
    throw std::runtime_error(std::string("cannot become an ordinary user: ") + std::strerror(errno));
  }
  // The change took it away, and the leak sanitizer looks at its own process like a debugger.
  prctl(PR_SET_DUMPABLE, 1);
}

}  // namespace test
