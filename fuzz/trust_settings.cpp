// What the user has laid down about certificates, as it may stand in the settings' file, and what comes of it for a
// server whose certificate nobody else vouches for. The file is read in a second way, too: by the property list alone.

#include <glib.h>
#include <sys/stat.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "foundation/files/PropertyList.h"
#include "foundation/security/Trust.h"
#include "foundation/security/TrustSettings.h"
#include "fuzz/Input.h"
#include "fuzz/Require.h"

namespace {

using foundation::Certificate;
using foundation::Dictionary;
using foundation::TrustResult;
using foundation::Value;

/// Self-signed, for "host.test", until 2099. Its digest stands in the corpus and in the dictionary.
constexpr const char* kCertificate =
    "MIIBqTCCAVCgAwIBAgIUG9HjXkZ8WshgJqaVnMpzq3ufOc4wCgYIKoZIzj0EAwIwFDESMBAGA1UEAwwJaG9zdC50ZXN0MCAXDTI2"
    "MTEyMTE4MjQwN1oYDzIwOTkwNjExMTgyNDA3WjAUMRIwEAYDVQQDDAlob3N0LnRlc3QwWTATBgcqhkjOPQIBBggqhkjOPQMBBwNC"
    "AARwjFS0X31NBO3EccyTwI2C+y+0BVXNEvW0j2ZZ1+XE/UVoa0wcNKU28fugPyLZdE0aRSTDoKgjdJmnf/wsr37so34wfDAdBgNV"
    "HQ4EFgQUVBn3MV5XH7sRByqphRcuonTqHBkwHwYDVR0jBBgwFoAUVBn3MV5XH7sRByqphRcuonTqHBkwDwYDVR0TAQH/BAUwAwEB"
    "/zAUBgNVHREEDTALgglob3N0LnRlc3QwEwYDVR0lBAwwCgYIKwYBBQUHAwEwCgYIKoZIzj0EAwIDRwAwRAIgX/sOYrpW2faIy/x0"
    "2zp2NxBhmD3JrR6vk2uP/68SsUQCIHdc14gaAuOF/bEv0G6LKFPGjHRSg/9ulkLdobbAXlUN";

std::string decoded(const char* base64) {
  gsize length = 0;
  guchar* bytes = g_base64_decode(base64, &length);
  const std::string text(reinterpret_cast<char*>(bytes), length);
  g_free(bytes);
  return text;
}

/// The user's configuration folder, which is looked up once in a process; gone with it.
class SettingsFile {
 public:
  SettingsFile() {
    std::array<char, 32> name{"/tmp/fuzz-trust-XXXXXX"};
    require(mkdtemp(name.data()) != nullptr);
    folder_ = name.data();
    std::filesystem::create_directory(folder_ + "/zep");
    setenv("XDG_CONFIG_HOME", folder_.c_str(), 1);
    setenv("SSL_CERT_FILE", "/dev/null", 1);
    setenv("SSL_CERT_DIR", folder_.c_str(), 1);
    require(g_get_user_config_dir() == folder_);
    umask(022);  // a file that others may write is not looked at
  }
  ~SettingsFile() {
    std::error_code error;
    std::filesystem::remove_all(folder_, error);
  }
  SettingsFile(const SettingsFile&) = delete;
  SettingsFile& operator=(const SettingsFile&) = delete;

  void write(std::string_view content) const {
    std::ofstream(folder_ + "/zep/TrustSettings.plist", std::ios::binary) << content;
  }

 private:
  std::string folder_;
};

std::string upperCase(std::string text) {
  for (char& c : text) {
    c = g_ascii_toupper(c);
  }
  return text;
}

const Value* find(const Value* value, const char* key) {
  return value != nullptr && value->dictionary() != nullptr ? value->dictionary()->find(key) : nullptr;
}

/// The array under the first entry of that digest that has one.
const foundation::Array* settingsIn(const Value& root, const std::string& digest) {
  const Value* list = find(&root, "trustList");
  if (list == nullptr || list->dictionary() == nullptr) {
    return nullptr;
  }
  for (const auto& [key, entry] : list->dictionary()->entries()) {
    const Value* settings = find(&entry, "trustSettings");
    if (upperCase(key) == digest && settings != nullptr && settings->array() != nullptr) {
      return settings->array();
    }
  }
  return nullptr;
}

TrustResult expectedResult(const foundation::Array* settings) {
  if (settings != nullptr) {
    for (const Value& setting : *settings) {
      const Value* number = find(&setting, "kSecTrustSettingsResult");
      const std::int64_t result = number != nullptr && number->integer() != nullptr ? *number->integer() : 0;
      if (result >= 1 && result <= 3) {
        return result == 3 ? TrustResult::Deny : TrustResult::Proceed;
      }
    }
  }
  return TrustResult::RecoverableTrustFailure;
}

void checkSettings(const std::optional<std::vector<Dictionary>>& settings,
                   const foundation::Array* expected) {
  require(settings.has_value() == (expected != nullptr));
  if (!settings) {
    return;
  }
  require(settings->size() == expected->size());
  for (std::size_t i = 0; i < expected->size(); ++i) {
    const Dictionary* dictionary = (*expected)[i].dictionary();
    require((*settings)[i] == (dictionary != nullptr ? *dictionary : Dictionary()));
  }
}

TrustResult evaluated(const std::string& der, const char* host) {
  foundation::Trust trust({der}, foundation::TrustPolicy::ssl(host));
  TrustResult result = TrustResult::Invalid;
  require(trust.evaluate(result) == 0);
  return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static SettingsFile file;
  static const std::string& der = *new std::string(decoded(kCertificate));
  static const Certificate& certificate = *new Certificate(Certificate::fromDER(der).value());
  file.write(textOf(data, size));

  const auto root = foundation::propertyListFromData(textOf(data, size));
  const foundation::Array* expected = root ? settingsIn(*root, certificate.sha1()) : nullptr;
  checkSettings(foundation::copyTrustSettings(certificate), expected);
  const TrustResult result = expectedResult(expected);
  require(evaluated(der, "host.test") == result);
  // Nobody can have meant it for another host.
  require(evaluated(der, "other.test") ==
          (result == TrustResult::Deny ? TrustResult::Deny : TrustResult::RecoverableTrustFailure));
  return 0;
}
