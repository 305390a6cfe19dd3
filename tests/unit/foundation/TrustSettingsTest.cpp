// What the user has laid down about certificates, and what it means for an evaluation.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <plist/plist.h>
#include <pwd.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "foundation/base/Descriptor.h"
#include "foundation/base/Trace.h"
#include "foundation/files/SearchPath.h"
#include "foundation/security/Trust.h"
#include "foundation/security/TrustSettings.h"
#include "tests/support/Files.h"
#include "tests/support/WaitUntil.h"
#include "tests/unit/foundation/TrustSurroundings.h"

namespace foundation {
namespace {

using Authority = test::CertificateAuthority;
using Settings = std::vector<Dictionary>;

constexpr const char* kKey = "kSecTrustSettingsResult";

/// An element of a trust settings array with that number.
std::string result(int number) {
  return "<dict><key>kSecTrustSettingsResult</key><integer>" + std::to_string(number) + "</integer></dict>";
}

std::string list(const std::string& entries) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict><key>trustList</key>" +
         entries + "</dict></plist>\n";
}

std::string entry(const std::string& digest, const std::string& settings) {
  return "<key>" + digest + "</key><dict><key>trustSettings</key>" + settings + "</dict>";
}

std::string binary(const std::string& xml) {
  plist_t root = nullptr;
  plist_from_xml(xml.data(), static_cast<std::uint32_t>(xml.size()), &root);
  char* bytes = nullptr;
  std::uint32_t length = 0;
  plist_to_bin(root, &bytes, &length);
  std::string made(bytes, length);
  plist_to_bin_free(bytes);
  plist_free(root);
  return made;
}

class TrustSettingsTest : public testing::Test {
 protected:
  TrustSettingsTest() { surroundings_.removeSettings(); }
  ~TrustSettingsTest() override { surroundings_.removeSettings(); }

  /// A file that holds these settings (elements of the array) of the certificate.
  void lay(const std::string& digest, const std::string& settings) {
    surroundings_.writeSettings(
        list("<dict>" + entry(digest, "<array>" + settings + "</array>") + "</dict>"));
  }
  void lay(const std::string& settings) { lay(leaf_.sha1(), settings); }

  TrustResult evaluate(const Authority::Leaf& leaf, const std::string& host = "localhost") {
    Trust trust(Authority::derChain(leaf.chainFile), TrustPolicy::ssl(host));
    TrustResult outcome = TrustResult::Invalid;
    EXPECT_EQ(trust.evaluate(outcome), 0);
    return outcome;
  }
  /// With these settings about it.
  TrustResult evaluateWith(const std::string& settings, const Authority::Leaf& leaf,
                           const std::string& host = "localhost") {
    lay(certificate(leaf).sha1(), settings);
    return evaluate(leaf, host);
  }

  static Certificate certificate(const Authority::Leaf& leaf) {
    return Certificate::fromDER(Authority::derChain(leaf.chainFile).at(0)).value();
  }

  TrustSurroundings& surroundings_ = TrustSurroundings::shared();
  const Authority::Leaf good_ = surroundings_.authority().good();
  const Certificate leaf_ = certificate(good_);
};

TEST_F(TrustSettingsTest, ThereAreNoneWithoutAFile) {
  EXPECT_FALSE(copyTrustSettings(leaf_));
  EXPECT_EQ(evaluate(good_), TrustResult::Unspecified);
}

TEST_F(TrustSettingsTest, AreReadInTheirOrder) {
  lay("<dict><key>kSecTrustSettingsPolicyString</key><string>localhost</string></dict>" + result(3) +
      result(1));
  EXPECT_EQ(copyTrustSettings(leaf_),
            (Settings{{{"kSecTrustSettingsPolicyString", "localhost"}}, {{kKey, 3}}, {{kKey, 1}}}));
}

TEST_F(TrustSettingsTest, AreReadFromABinaryList) {
  const std::string xml =
      list("<dict>" + entry(leaf_.sha1(), "<array>" + result(3) + "</array>") + "</dict>");
  const std::string bytes = binary(xml);
  ASSERT_TRUE(bytes.starts_with("bplist00"));
  surroundings_.writeSettings(bytes);
  EXPECT_EQ(copyTrustSettings(leaf_), (Settings{{{kKey, 3}}}));
}

TEST_F(TrustSettingsTest, AreFoundByTheDigestInEitherCase) {
  std::string lower = leaf_.sha1();
  std::ranges::transform(lower, lower.begin(), [](unsigned char letter) { return std::tolower(letter); });
  lay(lower, result(3));
  EXPECT_EQ(copyTrustSettings(leaf_), (Settings{{{kKey, 3}}}));
}

TEST_F(TrustSettingsTest, OfAnotherCertificateDoNotCount) {
  lay(certificate(surroundings_.authority().expired()).sha1(), result(3));
  EXPECT_FALSE(copyTrustSettings(leaf_));
  EXPECT_EQ(evaluate(good_), TrustResult::Unspecified);
}

TEST_F(TrustSettingsTest, MayBeEmpty) {
  lay("");
  EXPECT_EQ(copyTrustSettings(leaf_), Settings());
  EXPECT_EQ(evaluate(good_), TrustResult::Unspecified);
}

TEST_F(TrustSettingsTest, KeepThePlaceOfWhatIsNoDictionary) {
  lay("<string>deny</string>" + result(1));
  EXPECT_EQ(copyTrustSettings(leaf_), (Settings{{}, {{kKey, 1}}}));
}

TEST_F(TrustSettingsTest, ThereAreNoneInWhatIsNoSuchList) {
  const std::string digest = leaf_.sha1();
  const std::string array = "<array>" + result(3) + "</array>";
  const std::string proper = list("<dict>" + entry(digest, array) + "</dict>");
  const std::vector<std::string> contents = {
      "",
      "garbage",
      proper.substr(0, proper.size() / 2),
      "bplist00",
      binary(proper).substr(0, 60),
      "<plist><array/></plist>",
      "<plist><string>trustList</string></plist>",
      list("<array/>"),
      list("<string/>"),
      list("<dict/>"),
      list("<dict><key>" + digest + "</key>" + array + "</dict>"),
      list("<dict><key>" + digest + "</key><dict/></dict>"),
      list("<dict>" + entry(digest, result(3)) + "</dict>"),
      list("<dict>" + entry(digest, "<integer>3</integer>") + "</dict>"),
      proper + std::string(2 << 20, ' '),
  };
  for (const std::string& content : contents) {
    surroundings_.writeSettings(proper);
    ASSERT_TRUE(copyTrustSettings(leaf_));
    surroundings_.writeSettings(content);
    EXPECT_FALSE(copyTrustSettings(leaf_)) << content.substr(0, 500);
  }
}

TEST_F(TrustSettingsTest, ThereAreNoneInWhatIsNoFile) {
  ASSERT_EQ(mkdir(surroundings_.settingsFile().c_str(), 0700), 0);
  EXPECT_FALSE(copyTrustSettings(leaf_));
  surroundings_.removeSettings();
  // Opening it must not wait for a writer.
  ASSERT_EQ(mkfifo(surroundings_.settingsFile().c_str(), 0600), 0);
  EXPECT_FALSE(copyTrustSettings(leaf_));
}

TEST_F(TrustSettingsTest, FollowTheFile) {
  lay(result(3));
  EXPECT_EQ(evaluate(good_), TrustResult::Deny);
  EXPECT_EQ(evaluate(good_), TrustResult::Deny);
  lay(result(1));
  EXPECT_EQ(evaluate(good_), TrustResult::Proceed);
  surroundings_.removeSettings();
  EXPECT_EQ(evaluate(good_), TrustResult::Unspecified);
  lay(result(3));
  EXPECT_EQ(evaluate(good_), TrustResult::Deny);
}

TEST_F(TrustSettingsTest, FollowEveryChange) {
  lay(result(3));
  struct stat first = {};
  ASSERT_EQ(stat(surroundings_.settingsFile().c_str(), &first), 0);
  const timespec times[] = {first.st_atim, first.st_mtim};
  std::string content = test::readFile(surroundings_.settingsFile());
  const std::size_t at = content.find(result(3));
  // The same file and size, within one tick of the clock, and with the time of the first.
  for (int change = 0; change < 200; ++change) {
    const int number = change % 2 == 0 ? 1 : 3;
    content.replace(at, result(number).size(), result(number));
    test::writeFile(surroundings_.settingsFile(), content);
    ASSERT_EQ(utimensat(AT_FDCWD, surroundings_.settingsFile().c_str(), times, 0), 0);
    ASSERT_EQ(copyTrustSettings(leaf_), (Settings{{{kKey, number}}})) << change;
  }
}

/// Tells whether a file is opened.
class OpeningWatch {
 public:
  explicit OpeningWatch(const std::string& path) : notifications_(inotify_init1(IN_NONBLOCK)) {
    EXPECT_GE(inotify_add_watch(notifications_.number(), path.c_str(), IN_OPEN), 0);
  }
  bool isOpenedBy(const std::function<void()>& action) {
    action();
    std::array<char, 4096> events;
    return read(notifications_.number(), events.data(), events.size()) > 0;
  }

 private:
  Descriptor notifications_;
};

TEST_F(TrustSettingsTest, AreNotReadAgainFromTheSameFile) {
  lay(result(3));
  OpeningWatch watch(surroundings_.settingsFile());
  const auto look = [&] { EXPECT_EQ(copyTrustSettings(leaf_), (Settings{{{kKey, 3}}})); };
  EXPECT_TRUE(watch.isOpenedBy(look));
  // When the clock cannot give a further change the same time.
  EXPECT_TRUE(test::waitUntil([&] { return !watch.isOpenedBy(look); }));
  EXPECT_FALSE(watch.isOpenedBy(look));
  ASSERT_EQ(chmod(surroundings_.settingsFile().c_str(), 0400), 0);
  EXPECT_TRUE(watch.isOpenedBy(look));
}

std::vector<std::string> traced;

/// A file that others than the user may write is none.
TEST_F(TrustSettingsTest, OfAnybodyElseDoNotCount) {
  for (const mode_t mode : {0620, 0602, 0666}) {
    lay(result(3));
    ASSERT_EQ(chmod(surroundings_.settingsFile().c_str(), mode), 0);
    traced.clear();
    setTraceSink([](TraceLevel, std::string_view text) { traced.emplace_back(text); });
    EXPECT_FALSE(copyTrustSettings(leaf_)) << std::oct << mode;
    EXPECT_EQ(traced, std::vector<std::string>{"others than the user can write the trust settings: " +
                                               surroundings_.settingsFile()});
    setTraceSink(nullptr);
    ASSERT_EQ(chmod(surroundings_.settingsFile().c_str(), 0644), 0);
    EXPECT_TRUE(copyTrustSettings(leaf_));
  }
  // Another's, though nobody else may write it; only root can make one.
  if (geteuid() == 0) {
    constexpr uid_t kAnother = 65534;
    ASSERT_EQ(chown(surroundings_.settingsFile().c_str(), kAnother, static_cast<gid_t>(-1)), 0);
    EXPECT_FALSE(copyTrustSettings(leaf_));
  }
}

TEST(UserConfigurationFolder, IsThatOfTheAccountWhereTheEnvironmentIsDistrusted) {
  const TrustSurroundings& surroundings = TrustSurroundings::shared();
  setenv("HOME", "/nonexistent", 1);
  const std::string home = getpwuid(geteuid())->pw_dir;
  EXPECT_EQ(userConfigurationFolder(Environment::Distrusted), home + "/.config");
  EXPECT_EQ(userConfigurationFolder(environmentOfThisProcess()) + "/zep/TrustSettings.plist",
            surroundings.settingsFile());
}

TEST_F(TrustSettingsTest, DecideByTheFirstThatSaysTrustOrDeny) {
  const std::string nothing = "<dict/>";
  const std::string text = "<dict><key>kSecTrustSettingsResult</key><string>3</string></dict>";
  const std::vector<std::pair<std::string, TrustResult>> cases = {
      {result(1), TrustResult::Proceed},
      {result(2), TrustResult::Proceed},
      {result(3), TrustResult::Deny},
      {result(3) + result(1), TrustResult::Deny},
      {result(1) + result(3), TrustResult::Proceed},
      {nothing, TrustResult::Unspecified},
      {nothing + result(3), TrustResult::Deny},
      {nothing + result(2), TrustResult::Proceed},
      {result(0), TrustResult::Unspecified},
      {result(4), TrustResult::Unspecified},
      {result(4) + result(3), TrustResult::Deny},
      {result(7), TrustResult::Unspecified},
      {result(-1), TrustResult::Unspecified},
      {text, TrustResult::Unspecified},
  };
  for (const auto& [settings, expected] : cases) {
    EXPECT_EQ(evaluateWith(settings, good_), expected) << settings;
  }
}

TEST_F(TrustSettingsTest, LiftOnlyWhatAUserMayDecide) {
  Authority& ca = surroundings_.authority();
  const Authority::Leaf wrongHost = ca.wrongHost();
  EXPECT_EQ(evaluateWith(result(1), ca.selfSigned()), TrustResult::Proceed);
  EXPECT_EQ(evaluateWith(result(1), ca.expired()), TrustResult::Proceed);
  EXPECT_EQ(evaluateWith(result(2), ca.missingIntermediate()), TrustResult::Proceed);
  EXPECT_EQ(evaluateWith(result(1), wrongHost), TrustResult::RecoverableTrustFailure);
  EXPECT_EQ(evaluateWith(result(1), wrongHost, "elsewhere.test"), TrustResult::Proceed);
  EXPECT_EQ(evaluateWith(result(1), surroundings_.revoked()), TrustResult::FatalTrustFailure);
  EXPECT_EQ(evaluateWith(result(3), surroundings_.revoked()), TrustResult::Deny);
  EXPECT_EQ(evaluateWith(result(3), wrongHost), TrustResult::Deny);
}

TEST_F(TrustSettingsTest, OfAnIssuerDoNotCount) {
  const Authority::Leaf leaf = surroundings_.authority().unknownRoot();
  const std::string root = Certificate::fromDER(Authority::derChain(leaf.chainFile).at(1)).value().sha1();
  lay(root, result(1));
  EXPECT_EQ(evaluate(leaf), TrustResult::RecoverableTrustFailure);
}

TEST_F(TrustSettingsTest, AreReadOnManyThreadsWhileTheFileChanges) {
  constexpr int kThreads = 4;
  constexpr int kChanges = 50;
  std::atomic<bool> isOver = false;
  std::atomic<int> strange = 0;
  lay(result(3));
  std::vector<std::thread> readers;
  readers.reserve(kThreads);
  for (int i = 0; i < kThreads; ++i) {
    readers.emplace_back([&] {
      while (!isOver) {
        const auto settings = copyTrustSettings(leaf_);
        strange += settings != Settings{{{kKey, 3}}} && settings != Settings{{{kKey, 1}}} ? 1 : 0;
      }
    });
  }
  for (int change = 0; change < kChanges; ++change) {
    lay(result(change % 2 == 0 ? 1 : 3));
    EXPECT_EQ(copyTrustSettings(leaf_), (Settings{{{kKey, change % 2 == 0 ? 1 : 3}}}));
  }
  isOver = true;
  for (std::thread& reader : readers) {
    reader.join();
  }
  EXPECT_EQ(strange, 0);
}

}  // namespace
}  // namespace foundation
