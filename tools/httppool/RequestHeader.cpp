#include "RequestHeader.h"

#include <json/value.h>
#include <json/writer.h>

namespace httppool {

std::string requestHeader(const TaskJob& task) {
  Json::Value object(Json::objectValue);
  bool hasMethod = false;
  for (const HeaderField& field : task.headers) {
    object[field.name] = field.value;
    hasMethod = hasMethod || field.name == "HttpMethod" || field.name == "HttpMethonGet";
  }
  if (!hasMethod) {
    // Without it the library posts, also without a body.
    object["HttpMethod"] = task.method.value_or(task.hasBody() ? "POST" : "GET");
  }
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = true;
  return Json::writeString(builder, object);
}

}  // namespace httppool
