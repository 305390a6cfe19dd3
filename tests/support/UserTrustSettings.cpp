#include "tests/support/UserTrustSettings.h"

#include <filesystem>
#include <stdexcept>

#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

namespace test {
namespace {

/// SHA-1 in upper-case hexadecimal.
std::string fingerprint(const std::string& pemFile) {
  const TemporaryFolder folder;
  ChildProcess openssl(
      {.arguments = {"/usr/bin/openssl", "x509", "-noout", "-fingerprint", "-sha1", "-in", pemFile},
       .outputFile = folder.file("output")});
  if (openssl.wait() != ChildProcess::End{.exitStatus = 0, .signal = 0}) {
    throw std::runtime_error("no certificate: " + pemFile);
  }
  std::string text = readFile(folder.file("output"));
  text = text.substr(text.find('=') + 1, text.find_last_not_of('\n') - text.find('='));
  std::erase(text, ':');
  return text;
}

}  // namespace

void settleTrust(const std::string& configurationFolder, const std::string& pemFile,
                 const std::vector<std::optional<int>>& results) {
  std::string entries;
  for (const auto& result : results) {
    entries +=
        "<dict>" +
        (result ? "<key>kSecTrustSettingsResult</key><integer>" + std::to_string(*result) + "</integer>"
                : std::string()) +
        "</dict>";
  }
  const std::string file = configurationFolder + "/zep/TrustSettings.plist";
  std::filesystem::create_directories(configurationFolder + "/zep");
  writeFile(file,
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist "
            "version=\"1.0\"><dict><key>trustList</key><dict><key>" +
                fingerprint(pemFile) + "</key><dict><key>trustSettings</key><array>" + entries +
                "</array></dict></dict></dict></plist>");
  std::filesystem::permissions(file, std::filesystem::perms(0600));
}

}  // namespace test
