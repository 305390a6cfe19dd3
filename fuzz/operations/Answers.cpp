#include "fuzz/operations/Answers.h"

#include <json/reader.h>

#include <cstddef>
#include <cstring>
#include <memory>

#include "fuzz/Require.h"
#include "httpPool/ZEP_HttpPool.h"

namespace operations {
namespace {

template <typename Get>
std::optional<std::string> textOf(const Get& get) {
  constexpr long kUntouched = -7;
  long size = kUntouched;
  require(get(nullptr, nullptr) == 0 && get(nullptr, &size) == 0);
  if (size == kUntouched) {
    return std::nullopt;
  }
  require(size > 0);
  const auto block = std::make_unique<char[]>(static_cast<std::size_t>(size));
  long again = 0;
  require(get(block.get(), &again) == 0 && again == size);
  require(std::strlen(block.get()) + 1 == static_cast<std::size_t>(size));
  return std::string(block.get());
}

Json::Value parsed(const std::string& text) {
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  Json::Value root;
  require(reader->parse(text.data(), text.data() + text.size(), &root, nullptr));
  return root;
}

}  // namespace

std::string propertyOf(const char* pool, const char* task, int property) {
  const auto which = static_cast<ZEP_HTTP_TASK_PROPERTY>(property);
  long length = ZEP_HttpPool_GetTaskProperty(pool, task, which, nullptr, nullptr);
  require(length >= 0);
  std::string text(static_cast<std::size_t>(length), '\0');
  require(ZEP_HttpPool_GetTaskProperty(pool, task, which, text.data(), &length) == length);
  return text;
}

bool isRunning(const char* pool, const char* task) {
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_UNINITIALIZED;
  require(ZEP_HttpPool_GetTaskStatus(pool, task, &status) == 0);
  return status == ZEP_HTTP_TASK_REQUESTING || status == ZEP_HTTP_TASK_REDIRECTED;
}

std::optional<Json::Value> taskListOf(const char* pool) {
  const auto text =
      textOf([&](char* buffer, long* size) { return ZEP_HttpPool_GetTaskList(pool, buffer, size); });
  return text ? std::optional(parsed(*text)) : std::nullopt;
}

Json::Value snapshot() {
  return parsed(
      textOf([](char* buffer, long* size) { return ZEP_HttpPool_GetSnapshot(buffer, size); }).value());
}

}  // namespace operations
