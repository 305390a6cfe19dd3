#include "JobFile.h"

#include <json/reader.h>
#include <json/value.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

#include "TerminalText.h"

namespace httppool {
namespace {

std::string inQuotes(const std::string& text) {
  return "\"" + escaped(text) + "\"";
}

// One file's reading. The first thing wrong is kept and ends it: every step returns whether to go on.
class Reading {
 public:
  Reading(std::string path, std::string text) : path_(std::move(path)), text_(std::move(text)) {}

  JobFile result() {
    JobFile file;
    Json::Value root;
    if (!parse(root) || !readPools(root, file.pools)) {
      file.pools.clear();
      file.error = error_;
    }
    return file;
  }

 private:
  bool parse(Json::Value& root) {
    if (!isUtf8(text_)) {
      error_ = path_ + ": not UTF-8";
      return false;
    }
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    std::string errors;
    try {
      if (reader->parse(text_.data(), text_.data() + text_.size(), &root, &errors)) {
        return true;
      }
    } catch (const std::exception& exception) {
      error_ = path_ + ": " + exception.what();
      return false;
    }
    error_ = path_ + placedError(errors);
    return false;
  }

  // The reader says "* Line 3, Column 7\n  what\n..."; the first error is the cause of the others.
  static std::string placedError(const std::string& errors) {
    std::size_t line = 0;
    std::size_t column = 0;
    const std::size_t lineEnd = errors.find('\n');
    if (lineEnd == std::string::npos ||
        std::sscanf(errors.c_str(), "* Line %zu, Column %zu", &line, &column) != 2) {  // NOLINT(cert-err34-c)
      return ": " + oneLine(errors);
    }
    const std::size_t start = errors.find_first_not_of(' ', lineEnd + 1);
    const std::string what =
        start == std::string::npos ? "" : errors.substr(start, errors.find('\n', start) - start);
    return ":" + std::to_string(line) + ":" + std::to_string(column) + ": " + escaped(what);
  }

  bool fail(const Json::Value& at, const std::string& what) {
    const auto offset = std::min(static_cast<std::size_t>(at.getOffsetStart()), text_.size());
    const std::string_view before = std::string_view(text_).substr(0, offset);
    const auto line = std::count(before.begin(), before.end(), '\n') + 1;
    const std::size_t lineStart = before.rfind('\n') == std::string_view::npos ? 0 : before.rfind('\n') + 1;
    error_ = path_ + ":" + std::to_string(line) + ":" + std::to_string(offset - lineStart + 1) + ": " +
             where_ + (where_.empty() ? "" : ": ") + what;
    return false;
  }

  bool checkFields(const Json::Value& object, std::initializer_list<std::string_view> known) {
    if (!object.isObject()) {
      return fail(object, "must be an object");
    }
    for (const std::string& name : object.getMemberNames()) {
      if (std::find(known.begin(), known.end(), name) == known.end()) {
        return fail(object[name], "unknown field " + inQuotes(name));
      }
    }
    return true;
  }

  // Leaves `value` alone when the object has no such field.
  template <typename Text>
  bool readText(const Json::Value& object, const char* field, Text& value) {
    if (!object.isMember(field)) {
      return true;
    }
    if (!object[field].isString()) {
      return fail(object[field], inQuotes(field) + " must be a string");
    }
    value = object[field].asString();
    return true;
  }

  bool readRequired(const Json::Value& object, const char* field, std::string& value) {
    if (!object.isMember(field)) {
      return fail(object, inQuotes(field) + " is missing");
    }
    if (!readText(object, field, value)) {
      return false;
    }
    return !value.empty() || fail(object[field], inQuotes(field) + " is empty");
  }

  bool readList(const Json::Value& object, const char* field) {
    if (!object.isMember(field)) {
      return fail(object, inQuotes(field) + " is missing");
    }
    if (!object[field].isArray()) {
      return fail(object[field], inQuotes(field) + " must be an array");
    }
    return !object[field].empty() || fail(object[field], inQuotes(field) + " is empty");
  }

  bool readPools(const Json::Value& root, std::vector<PoolJob>& pools) {
    if (!checkFields(root, {"pools"}) || !readList(root, "pools")) {
      return false;
    }
    std::set<std::string> names;
    for (const Json::Value& item : root["pools"]) {
      where_ = "pool " + std::to_string(pools.size() + 1);
      PoolJob& pool = pools.emplace_back();
      if (!checkFields(item, {"name", "tasks"}) || !readRequired(item, "name", pool.name)) {
        return false;
      }
      where_ = "pool " + inQuotes(pool.name);
      if (pool.name.find('\0') != std::string::npos) {
        return fail(item["name"], "the name has a zero character");
      }
      if (!names.insert(pool.name).second) {
        return fail(item["name"], "there is a pool of that name already");
      }
      if (!readList(item, "tasks") || !readTasks(item["tasks"], pool)) {
        return false;
      }
    }
    return true;
  }

  bool readTasks(const Json::Value& list, PoolJob& pool) {
    const std::string wherePool = where_;
    std::set<std::string> names;
    for (const Json::Value& item : list) {
      where_ = wherePool + ", task " + std::to_string(pool.tasks.size() + 1);
      TaskJob& task = pool.tasks.emplace_back();
      if (!checkFields(item, {"name", "url", "method", "headers", "post", "dataFile", "download"}) ||
          !readRequired(item, "name", task.name)) {
        return false;
      }
      where_ = wherePool + ", task " + inQuotes(task.name);
      if (!names.insert(task.name).second) {
        return fail(item["name"], "the pool has a task of that name already");
      }
      if (!readTask(item, task)) {
        return false;
      }
    }
    return true;
  }

  bool readTask(const Json::Value& item, TaskJob& task) {
    std::string dataFile;
    if (!readRequired(item, "url", task.url) || !readText(item, "method", task.method) ||
        !readText(item, "post", task.post) || !readText(item, "dataFile", dataFile) ||
        !readText(item, "download", task.download) || !readHeaders(item, task)) {
      return false;
    }
    if (item.isMember("dataFile")) {
      if (const auto reason = readBody(dataFile, task)) {
        return fail(item["dataFile"], *reason);
      }
    }
    if (const auto reason = reasonAgainst(task)) {
      return fail(item, *reason);
    }
    if (!task.download.empty()) {
      if (const auto reason = reasonAgainstTarget(task.download)) {
        return fail(item["download"], *reason);
      }
      if (!downloads_.insert(task.download).second) {
        return fail(item["download"], inQuotes(task.download) + " is the file of another task already");
      }
    }
    return true;
  }

  bool readHeaders(const Json::Value& item, TaskJob& task) {
    if (!item.isMember("headers")) {
      return true;
    }
    const Json::Value& headers = item["headers"];
    if (!headers.isObject()) {
      return fail(headers, "\"headers\" must be an object");
    }
    for (const std::string& name : headers.getMemberNames()) {
      if (!headers[name].isString()) {
        return fail(headers[name], "the value of header field " + inQuotes(name) + " must be a string");
      }
      task.headers.push_back({name, headers[name].asString()});
    }
    return true;
  }

  std::string path_;
  std::string text_;
  std::string where_;  // which pool and task is being read
  std::set<std::string> downloads_;
  std::string error_;
};

}  // namespace

JobFile readJobFile(const std::string& path) {
  std::error_code error;
  std::ifstream file(path, std::ios::binary);
  if (std::filesystem::is_directory(path, error) || !file) {
    const char* const reason = file ? "it is a folder" : std::strerror(errno);
    return {{}, "cannot read " + escaped(path) + ": " + reason};
  }
  std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  return Reading(escaped(path), std::move(text)).result();
}

}  // namespace httppool
