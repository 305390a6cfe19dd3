#include "tests/support/UserFile.h"

#include <filesystem>
#include <stdexcept>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"

namespace test {
namespace {

void run(const std::vector<std::string>& arguments, const std::string& outputFile) {
  ChildProcess process({.arguments = arguments, .outputFile = outputFile});
  if (process.wait() != ChildProcess::End{.exitStatus = 0, .signal = 0}) {
    throw std::runtime_error(arguments.front() + ":\n" + readFile(outputFile));
  }
}

}  // namespace

void writeBasicUserFile(const std::string& path, const std::string& user, const std::string& password) {
  const std::string output = path + ".output";
  run({"/usr/bin/htpasswd", "-bcm", path, user, password}, output);
  std::filesystem::remove(output);
}

void writeDigestUserFile(const std::string& path, const std::string& user, const std::string& realm,
                         const std::string& password) {
  // htdigest takes passwords from a terminal only.
  constexpr std::size_t kSumLength = 32;
  const std::string secret = path + ".secret";
  const std::string output = path + ".output";
  writeFile(secret, user + ":" + realm + ":" + password);
  run({"/usr/bin/md5sum", secret}, output);
  writeFile(path, user + ":" + realm + ":" + readFile(output).substr(0, kSumLength) + "\n");
  std::filesystem::remove(secret);
  std::filesystem::remove(output);
}

}  // namespace test
