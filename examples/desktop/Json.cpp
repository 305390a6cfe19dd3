#include "Json.h"

#include <json/reader.h>
#include <json/writer.h>

#include <cstring>
#include <memory>

namespace example {
namespace {

std::string written(const Json::Value& value, const char* indentation) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = indentation;
  builder["emitUTF8"] = true;
  builder["enableYAMLCompatibility"] = true;  // no blank before a colon
  return Json::writeString(builder, value);
}

}  // namespace

Json::Value jsonFrom(const char* text) {
  Json::Value value;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  if (text == nullptr || !reader->parse(text, text + std::strlen(text), &value, nullptr)) {
    return {};
  }
  return value;
}

std::string compactJson(const Json::Value& value) {
  return written(value, "");
}

std::string indentedJson(const std::string& text) {
  return written(jsonFrom(text.c_str()), "  ");
}

}  // namespace example
