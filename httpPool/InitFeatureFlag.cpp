#include "httpPool/InitFeatureFlag.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <new>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "foundation/base/LongDate.h"
#include "foundation/files/FileHandle.h"
#include "foundation/files/PropertyList.h"
#include "foundation/files/SearchPath.h"

bool IS_MONITOR_POOL = false;

namespace {

using NameSet = std::set<std::string, std::less<>>;

// Never destroyed: a host may ask for a status after the static objects are gone, while the process exits. It is empty
// when the image is unloaded, because the first pool pins the image.
alignas(NameSet) std::byte s_pooltaskNamesStorage[sizeof(NameSet)];
NameSet& s_pooltaskNames = *new (s_pooltaskNamesStorage) NameSet;

std::optional<std::string> MonitorFile(const char* name) {
  const auto folders = foundation::searchPathForDirectoriesInDomains(
      foundation::SearchPathDirectory::Application, foundation::SearchPathDomainMask::System);
  if (folders.empty()) {
    return std::nullopt;
  }
  return folders.front() + "/Tilvo/" + name;
}

}  // namespace

void InitFeatureFlag() {
  constexpr std::size_t kMostBytes = 1 << 20;
  const std::optional<std::string> path = MonitorFile("pool-task-config.plist");
  if (!path) {
    return;
  }
  const std::optional<foundation::Value> settings = foundation::propertyListFromFile(*path, kMostBytes);
  const foundation::Dictionary* dictionary = settings ? settings->dictionary() : nullptr;
  const foundation::Value* monitor = dictionary ? dictionary->find("Taskmonitor") : nullptr;
  IS_MONITOR_POOL = monitor && monitor->boolValue();
}

bool IsPoolTaskNameExisting(const char* name) {
  return name && s_pooltaskNames.find(std::string_view(name)) != s_pooltaskNames.end();
}

void AddPoolTaskName(const char* name) {
  if (name) {
    s_pooltaskNames.emplace(name);
  }
}

void RecordTimeoutPoolTask(const char* name) {
  if (!name || IsPoolTaskNameExisting(name)) {
    return;
  }
  // Before the file is written, so that a record that fails is not tried at every status query.
  AddPoolTaskName(name);
  DoRecordTimeoutPoolTask(name);
}

void DoRecordTimeoutPoolTask(const char* name) {
  const std::optional<std::string> path = MonitorFile("pool-task-monitor.txt");
  if (!name || !path) {
    return;
  }
  foundation::createFileAtPath(*path);
  std::optional<foundation::FileHandle> file = foundation::FileHandle::forAppendingAtPath(*path);
  if (!file) {
    return;
  }
  const std::string date =
      foundation::longDateAndTime(std::chrono::system_clock::now(), foundation::currentDateLocale());
  // Both lines at once, so that no other process's record comes between them.
  file->writeData(date + "\n" + name + "\n");
}
