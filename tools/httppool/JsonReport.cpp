#include "JsonReport.h"

#include <glib.h>
#include <json/reader.h>
#include <json/value.h>
#include <json/writer.h>

#include <cstdio>
#include <memory>

#include "TerminalText.h"

namespace httppool {
namespace {

const char* endingWord(TaskOutcome::Ending ending) {
  switch (ending) {
    case TaskOutcome::Ending::Refused:
      return "refused";
    case TaskOutcome::Ending::Ended:
      return "ended";
    case TaskOutcome::Ending::TimedOut:
      return "timed out";
    case TaskOutcome::Ending::Stopped:
      return "interrupted";
    case TaskOutcome::Ending::NotRun:
      return "not run";
  }
  return "";
}

Json::Value parsed(const std::string& text) {
  Json::Value root;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  return reader->parse(text.data(), text.data() + text.size(), &root, nullptr) ? root : Json::Value();
}

std::string base64(const std::string& bytes) {
  const std::unique_ptr<gchar, void (*)(void*)> text(
      g_base64_encode(reinterpret_cast<const guchar*>(bytes.data()), bytes.size()), &g_free);
  return text.get();
}

// Bytes that are no UTF-8 have a member of another name, so that nobody takes the one for the other.
void setBytes(Json::Value& object, const std::string& name, const std::string& bytes) {
  if (isUtf8(bytes)) {
    object[name] = bytes;
  } else {
    object[name + "Base64"] = base64(bytes);
  }
}

void setResult(Json::Value& object, const TaskOutcome& outcome) {
  if (const auto size = bodySize(outcome)) {
    object["bytes"] = Json::UInt64(*size);
  }
  if (isDownload(outcome)) {
    object["file"] = outcome.download;
    object["written"] = isDone(outcome);
  } else if (outcome.status == ZEP_HTTP_TASK_FAILED) {
    const Json::Value error = parsed(outcome.result);
    for (const char* member : {"errorID", "errorReason"}) {
      if (error.isObject() && error.isMember(member)) {
        object[member] = error[member];
      }
    }
  } else if (outcome.status == ZEP_HTTP_TASK_DONE) {
    setBytes(object, "result", outcome.result);
  }
  if (!outcome.redirect.empty()) {
    setBytes(object, "redirect", outcome.redirect);
  }
}

void writeLine(const Json::Value& object) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = false;
  builder["precision"] = 3;
  builder["precisionType"] = "decimal";
  const std::string line = Json::writeString(builder, object) + "\n";
  std::fwrite(line.data(), 1, line.size(), stdout);
  std::fflush(stdout);
}

}  // namespace

void JsonReport::taskEnded(const TaskOutcome& outcome) {
  Json::Value object(Json::objectValue);
  object["pool"] = outcome.pool;
  object["name"] = outcome.task;
  object["url"] = outcome.url;
  object["status"] = statusWord(outcome.status);
  object["statusNumber"] = static_cast<int>(outcome.status);
  object["ending"] = endingWord(outcome.ending);
  object["elapsed"] = outcome.elapsed.count();
  setResult(object, outcome);
  writeLine(object);
}

void JsonReport::showSnapshot(const std::string& text) {
  Json::Value object(Json::objectValue);
  object["snapshot"] = parsed(text);
  writeLine(object);
}

}  // namespace httppool
