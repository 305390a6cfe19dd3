#pragma once

// A path of the scripted server, and what a task comes to that asks for it once, with no header fields.

#include <array>
#include <string>

#include "httpPool/ZEP_HttpPool.h"

namespace operations {

struct Path {
  static constexpr const char* kAnything = nullptr;
  static constexpr const char* kTimedOut = R"({"errorID":4,"errorReason":0})";

  /// Null when it is none of them.
  static const Path* ofUrl(const std::string& url);

  /// Ends the process when a task has come to something else.
  void check(ZEP_HTTP_TASK_STATUS ended, const std::string& answer) const;

  const char* path;
  ZEP_HTTP_TASK_STATUS status;
  const char* result;
};

inline constexpr std::array<Path, 14> kPaths = {{
    {"/ok", ZEP_HTTP_TASK_DONE, "ok"},
    {"/chunked", ZEP_HTTP_TASK_DONE, "chunked"},
    {"/404", ZEP_HTTP_TASK_DONE, "none"},
    {"/429", ZEP_HTTP_TASK_FAILED, R"({"errorID":2,"errorReason":0})"},
    {"/500", ZEP_HTTP_TASK_FAILED, R"({"errorID":2,"errorReason":0})"},
    {"/redirect", ZEP_HTTP_TASK_DONE, "ok"},
    {"/loop", ZEP_HTTP_TASK_FAILED, R"({"errorID":6,"errorReason":0})"},
    {"/basic", ZEP_HTTP_TASK_DONE, Path::kAnything},
    {"/never", ZEP_HTTP_TASK_FAILED, Path::kAnything},
    {"/big", ZEP_HTTP_TASK_DONE, Path::kAnything},
    {"/stall", ZEP_HTTP_TASK_FAILED, Path::kTimedOut},
    {"/early", ZEP_HTTP_TASK_FAILED, R"({"errorID":1,"errorReason":0})"},
    {"/noise", ZEP_HTTP_TASK_FAILED, R"({"errorID":6,"errorReason":0})"},
    {"/silent", ZEP_HTTP_TASK_FAILED, Path::kTimedOut},
}};

}  // namespace operations
