// Job files of the program httppool. What is read is written again and has to be read the same.

#include <json/reader.h>
#include <json/value.h>
#include <json/writer.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "foundation/base/JsonText.h"
#include "fuzz/Input.h"
#include "fuzz/Require.h"
#include "tools/httppool/JobFile.h"
#include "tools/httppool/RequestHeader.h"
#include "tools/httppool/TerminalText.h"

namespace {

using httppool::JobFile;
using httppool::PoolJob;
using httppool::TaskJob;

constexpr const char* kJobFile = "job.json";
constexpr const char* kBodyFile = "body";

/// A folder of its own, which is the process's current one; gone with it.
class Folder {
 public:
  Folder() {
    std::array<char, 32> name{"/tmp/fuzz-jobs-XXXXXX"};
    require(mkdtemp(name.data()) != nullptr && chdir(name.data()) == 0);
    name_ = name.data();
    std::ofstream(kBodyFile) << "bytes";
  }
  ~Folder() {
    std::error_code error;
    std::filesystem::remove_all(name_, error);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  JobFile read(std::string_view text) const {
    std::ofstream(kJobFile, std::ios::binary) << text;
    JobFile file = httppool::readJobFile(kJobFile);
    std::size_t files = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(name_)) {
      ++files;
    }
    require(files == 2);
    return file;
  }

 private:
  std::string name_;
};

bool mayBeElsewhere(const Json::Value& name) {
  return name.isString() && name.asString().find('/') != std::string::npos;
}

/// A job file names files to read and to write. The ones of this machine are none of the fuzzer's business.
bool namesFilesElsewhere(const Json::Value& value) {
  if (value.isObject() && (mayBeElsewhere(value["dataFile"]) || mayBeElsewhere(value["download"]))) {
    return true;
  }
  for (const Json::Value& part : value) {
    if (namesFilesElsewhere(part)) {
      return true;
    }
  }
  return false;
}

bool isHarmless(std::string_view text) {
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  Json::Value root;
  try {
    reader->parse(text.data(), text.data() + text.size(), &root, nullptr);
  } catch (const Json::Exception&) {
    return false;  // nested too deeply for this reader
  }
  return !namesFilesElsewhere(root);
}

/// The whole message is fit for a terminal and says where.
void checkError(const std::string& error) {
  require(error.starts_with("job.json:"));
  require(httppool::isUtf8(error) && httppool::escaped(error) == error);
  for (const char c : error) {
    require(static_cast<unsigned char>(c) >= ' ' && c != '\x7F');
  }
}

void checkHeader(const TaskJob& task) {
  const auto header = foundation::dictionaryFromJsonText(httppool::requestHeader(task));
  require(header.has_value());
  for (const httppool::HeaderField& field : task.headers) {
    require(header->text(field.name) == field.value);
  }
  require(header->contains("HttpMethod") || header->contains("HttpMethonGet"));
  require(!task.method || header->text("HttpMethod") == *task.method);
}

void checkTask(const TaskJob& task) {
  require(!task.name.empty() && !task.url.empty() && !httppool::reasonAgainst(task));
  require(!(task.post && task.data) && !(task.hasBody() && !task.download.empty()));
  require(!task.data || *task.data == "bytes" || task.data->find("pools") != std::string::npos);
  checkHeader(task);
}

Json::Value written(const TaskJob& task) {
  Json::Value object;
  object["name"] = task.name;
  object["url"] = task.url;
  if (task.method) {
    object["method"] = *task.method;
  }
  for (const httppool::HeaderField& field : task.headers) {
    object["headers"][field.name] = field.value;
  }
  if (task.post) {
    object["post"] = *task.post;
  }
  if (task.data) {
    object["dataFile"] = kBodyFile;
  }
  if (!task.download.empty()) {
    object["download"] = task.download;
  }
  return object;
}

std::string written(const JobFile& file) {
  Json::Value root;
  for (const PoolJob& pool : file.pools) {
    Json::Value object;
    object["name"] = pool.name;
    for (const TaskJob& task : pool.tasks) {
      object["tasks"].append(written(task));
    }
    root["pools"].append(object);
  }
  return Json::writeString(Json::StreamWriterBuilder(), root);
}

void checkPools(const JobFile& file) {
  std::set<std::string> pools;
  std::set<std::string> downloads;
  for (const PoolJob& pool : file.pools) {
    require(!pool.name.empty() && !pool.tasks.empty() && pools.insert(pool.name).second);
    std::set<std::string> tasks;
    for (const TaskJob& task : pool.tasks) {
      require(tasks.insert(task.name).second);
      require(task.download.empty() || downloads.insert(task.download).second);
      checkTask(task);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Folder folder;
  const std::string_view text = textOf(data, size);
  if (!isHarmless(text)) {
    return 0;
  }
  const JobFile file = folder.read(text);
  require(file.error.empty() != file.pools.empty());
  if (!file.error.empty()) {
    checkError(file.error);
    return 0;
  }
  checkPools(file);
  const std::string again = written(file);
  const JobFile second = folder.read(again);
  require(second.error.empty() && written(second) == again);
  return 0;
}
