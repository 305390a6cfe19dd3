#pragma once

// A path of the scripted server, and what a task comes to that asks for it once: without header fields, or with those
// that change nothing but the method.

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "httpPool/ZEP_HttpPool.h"

namespace operations {

inline constexpr std::array<char, std::size_t{100} << 10> kBigBody = [] {
  std::array<char, std::size_t{100} << 10> body{};
  body.fill('b');
  return body;
}();

struct Path {
  static constexpr std::string_view kTimedOut = R"({"errorID":4,"errorReason":0})";
  static constexpr std::string_view kNotSignedIn = R"({"errorID":3,"errorReason":0})";

  /// Null when it is none of them.
  static const Path* ofUrl(const std::string& url);

  /// Whether the library has lost its patience with a server that is quick: the machine may have had no time for
  /// either.
  bool isTooLate(std::string_view answer) const { return answer == kTimedOut && result != kTimedOut; }
  /// Ends the process when a task has come to something else. What is done has its result in the file, if there is one.
  void check(ZEP_HTTP_TASK_STATUS ended, std::string_view answer, std::string_view file) const;

  const char* path;
  ZEP_HTTP_TASK_STATUS status;
  std::string_view result;
  /// Of a failure that may be instead, as the host answers.
  std::string_view failure = {};
};

inline constexpr std::array<Path, 14> kPaths = {{
    {"/ok", ZEP_HTTP_TASK_DONE, "ok"},
    {"/chunked", ZEP_HTTP_TASK_DONE, "chunked"},
    {"/404", ZEP_HTTP_TASK_DONE, "none"},
    {"/429", ZEP_HTTP_TASK_FAILED, R"({"errorID":2,"errorReason":0})"},
    {"/500", ZEP_HTTP_TASK_FAILED, R"({"errorID":2,"errorReason":0})"},
    {"/redirect", ZEP_HTTP_TASK_DONE, "ok"},
    {"/loop", ZEP_HTTP_TASK_FAILED, R"({"errorID":6,"errorReason":0})"},
    {"/basic", ZEP_HTTP_TASK_DONE, "signed in", Path::kNotSignedIn},
    {"/never", ZEP_HTTP_TASK_FAILED, Path::kNotSignedIn},
    {"/big", ZEP_HTTP_TASK_DONE, {kBigBody.data(), kBigBody.size()}},
    {"/stall", ZEP_HTTP_TASK_FAILED, Path::kTimedOut},
    {"/early", ZEP_HTTP_TASK_FAILED, R"({"errorID":1,"errorReason":0})"},
    {"/noise", ZEP_HTTP_TASK_FAILED, R"({"errorID":6,"errorReason":0})"},
    {"/silent", ZEP_HTTP_TASK_FAILED, Path::kTimedOut},
}};

}  // namespace operations
