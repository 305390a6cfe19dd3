#include "foundation/security/TrustSettings.h"

#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "foundation/base/Shortage.h"
#include "foundation/base/Trace.h"
#include "foundation/files/FileState.h"
#include "foundation/files/PropertyList.h"
#include "foundation/files/RegularFile.h"
#include "foundation/files/SearchPath.h"

namespace foundation {
namespace {

/// The settings by upper-case SHA-1.
using TrustList = std::map<std::string, std::vector<Dictionary>, std::less<>>;

/// Only whoever the settings are for, or root, may lay them down.
bool isUsersOwn(const RegularFile& file) {
  struct stat status = {};
  return fstat(file.descriptor(), &status) == 0 && (status.st_uid == geteuid() || status.st_uid == 0) &&
         (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

std::string upperCase(std::string text) {
  std::ranges::transform(text, text.begin(), g_ascii_toupper);
  return text;
}

const Value* member(const Value* value, std::string_view key) {
  const Dictionary* dictionary = value != nullptr ? value->dictionary() : nullptr;
  return dictionary != nullptr ? dictionary->find(key) : nullptr;
}

/// An element that is no dictionary must not make a refusal of the others vanish.
std::vector<Dictionary> settingsOf(const Array& array) {
  std::vector<Dictionary> settings;
  for (const Value& element : array) {
    const Dictionary* dictionary = element.dictionary();
    settings.push_back(dictionary != nullptr ? *dictionary : Dictionary());
  }
  return settings;
}

/// Nothing when the file cannot be opened now.
std::optional<TrustList> readTrustList(const std::string& path) {
  constexpr std::size_t kMostBytes = 1 << 20;
  const RegularFile file(path);
  if (isShortage(file.error())) {
    trace(TraceLevel::Warning, "the trust settings cannot be read now: " + path);
    return std::nullopt;
  }
  if (file.isOpen() && !isUsersOwn(file)) {
    trace(TraceLevel::Warning, "others than the user can write the trust settings: " + path);
    return TrustList();
  }
  const std::optional<Value> root = propertyListFromFile(file, kMostBytes);
  const Value* list = root ? member(&*root, "trustList") : nullptr;
  if (list == nullptr || list->dictionary() == nullptr) {
    trace(TraceLevel::Warning, "the trust settings cannot be read: " + path);
    return TrustList();
  }
  TrustList trustList;
  for (const auto& [digest, entry] : list->dictionary()->entries()) {
    const Value* settings = member(&entry, "trustSettings");
    if (settings != nullptr && settings->array() != nullptr) {
      trustList.emplace(upperCase(digest), settingsOf(*settings->array()));
    }
  }
  return trustList;
}

/// What the user may have refused.
std::vector<Dictionary> refusal() {
  constexpr int kDeny = 3;
  return {{{"kSecTrustSettingsResult", kDeny}}};
}

/// The list as the file held it last.
class TrustSettingsFile {
 public:
  explicit TrustSettingsFile(std::string path) : path_(std::move(path)) {}

  /// Null: there is no file. Empty: it cannot be opened now.
  std::shared_ptr<const std::optional<TrustList>> list() {
    const std::lock_guard lock(mutex_);
    struct stat status = {};
    if (stat(path_.c_str(), &status) != 0) {
      const int error = errno;
      state_.reset();
      list_.reset();
      return isShortage(error) ? std::make_shared<const std::optional<TrustList>>() : nullptr;
    }
    const FileState state(status);
    if (state_ != state) {
      list_ = std::make_shared<const std::optional<TrustList>>(readTrustList(path_));
      state_ = *list_ && state.isSettled() ? std::optional(state) : std::nullopt;
    }
    return list_;
  }

 private:
  const std::string path_;
  std::mutex mutex_;
  std::optional<FileState> state_;
  std::shared_ptr<const std::optional<TrustList>> list_;
};

TrustSettingsFile& usersFile() {
  // Never freed: evaluations may still run while the process exits.
  static auto* const file =
      new TrustSettingsFile(userConfigurationFolder(environmentOfThisProcess()) + "/zep/TrustSettings.plist");
  return *file;
}

}  // namespace

std::optional<std::vector<Dictionary>> copyTrustSettings(const Certificate& certificate) {
  const auto list = usersFile().list();
  if (list == nullptr) {
    return std::nullopt;
  }
  if (!*list) {
    return refusal();
  }
  const auto found = (*list)->find(certificate.sha1());
  return found != (*list)->end() ? std::optional(found->second) : std::nullopt;
}

}  // namespace foundation
