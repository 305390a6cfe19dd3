#include "TaskOutcome.h"

#include <cstdio>
#include <filesystem>
#include <system_error>

#include "TerminalText.h"

namespace httppool {
namespace {

std::string resultText(const TaskOutcome& outcome) {
  switch (outcome.ending) {
    case TaskOutcome::Ending::Refused:
      return "refused: not a URL";
    case TaskOutcome::Ending::TimedOut:
      return "reset: still running at the time limit";
    case TaskOutcome::Ending::Stopped:
      return "reset: still running when interrupted";
    case TaskOutcome::Ending::NotRun:
      return "not run: interrupted before its turn";
    case TaskOutcome::Ending::Ended:
      break;
  }
  if (isDownload(outcome)) {
    const auto size = bodySize(outcome);
    return escaped(outcome.result) + (size              ? " (" + std::to_string(*size) + " bytes)"
                                      : isDone(outcome) ? ""
                                                        : ": was not written");
  }
  std::string text = oneLine(outcome.result);
  if (!outcome.redirect.empty()) {
    text += (text.empty() ? "to " : ", redirected to ") + oneLine(outcome.redirect);
  }
  return text;
}

std::string statusAndTime(const TaskOutcome& outcome) {
  char text[64];
  std::snprintf(text, sizeof(text), "%-17s %7.3f s", statusWord(outcome.status).c_str(),
                outcome.elapsed.count());
  return text;
}

std::string lineOf(const TaskOutcome& outcome, const std::string& name, const std::string& rest) {
  return statusAndTime(outcome) + "  " + (name.empty() ? "" : name + "  ") + rest;
}

}  // namespace

std::string statusWord(ZEP_HTTP_TASK_STATUS status) {
  switch (status) {
    case ZEP_HTTP_TASK_UNINITIALIZED:
      return "uninitialized";
    case ZEP_HTTP_TASK_REQUESTING:
      return "requesting";
    case ZEP_HTTP_TASK_DONE:
      return "successfully done";
    case ZEP_HTTP_TASK_NOT_EXIST:
      return "not exist";
    case ZEP_HTTP_TASK_FAILED:
      return "task failed";
    case ZEP_HTTP_TASK_TIMEOUT:
      return "time out";
    case ZEP_HTTP_TASK_API_ERROR:
      return "api returned error";
    case ZEP_HTTP_TASK_REDIRECTED:
      return "redirected";
    case ZEP_HTTP_TASK_STATUS_1:
    case ZEP_HTTP_TASK_STATUS_8:
      break;
  }
  return {};
}

bool isDownload(const TaskOutcome& outcome) {
  return outcome.status == ZEP_HTTP_TASK_DONE && !outcome.download.empty() &&
         outcome.result == outcome.download;
}

// The library calls a download done whether or not the file could be written.
bool isDone(const TaskOutcome& outcome) {
  std::error_code error;
  return outcome.status == ZEP_HTTP_TASK_DONE &&
         (!isDownload(outcome) || std::filesystem::exists(outcome.download, error));
}

std::optional<std::uintmax_t> bodySize(const TaskOutcome& outcome) {
  if (outcome.status != ZEP_HTTP_TASK_DONE) {
    return std::nullopt;
  }
  if (!isDownload(outcome)) {
    return outcome.result.size();
  }
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(outcome.download, error);
  return error ? std::nullopt : std::optional(size);
}

std::string summary(const TaskOutcome& outcome, const std::string& name) {
  return lineOf(outcome, name, resultText(outcome));
}

std::string summaryWithSize(const TaskOutcome& outcome, const std::string& name) {
  return lineOf(outcome, name, std::to_string(outcome.result.size()) + " bytes");
}

}  // namespace httppool
