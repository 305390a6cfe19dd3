#include "Report.h"

#include <unistd.h>

#include <filesystem>
#include <system_error>

#include "TerminalText.h"

namespace httppool {
namespace {

// The library calls a download done whether or not the file could be written.
std::optional<std::uintmax_t> downloadedSize(const TaskOutcome& outcome) {
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(outcome.download, error);
  return error ? std::nullopt : std::optional(size);
}

bool isDownload(const TaskOutcome& outcome) {
  return outcome.status == ZEP_HTTP_TASK_DONE && !outcome.download.empty() &&
         outcome.result == outcome.download;
}

bool isDone(const TaskOutcome& outcome) {
  std::error_code error;
  return outcome.status == ZEP_HTTP_TASK_DONE &&
         (!isDownload(outcome) || std::filesystem::exists(outcome.download, error));
}

std::string resultText(const TaskOutcome& outcome) {
  switch (outcome.ending) {
    case TaskOutcome::Ending::Refused:
      return "refused: not a URL";
    case TaskOutcome::Ending::TimedOut:
      return "reset: still running at the time limit";
    case TaskOutcome::Ending::Stopped:
      return "reset: still running when interrupted";
    case TaskOutcome::Ending::Ended:
      break;
  }
  if (isDownload(outcome)) {
    const auto size = downloadedSize(outcome);
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

std::string summary(const TaskOutcome& outcome) {
  return statusAndTime(outcome) + "  " + resultText(outcome);
}

Report::Report(Shape shape, Naming naming)
    : shape_(shape), naming_(naming), lines_(shape == Shape::SingleBody ? stderr : stdout) {
}

void Report::show(const TaskOutcome& outcome) {
  isEveryTaskDone_ = isEveryTaskDone_ && isDone(outcome);
  const std::string name =
      (naming_ == Naming::PoolAndTask ? escaped(outcome.pool) + "/" : "") + escaped(outcome.task);
  const bool hasBody = shape_ == Shape::SingleBody && outcome.status == ZEP_HTTP_TASK_DONE;
  if (!hasBody) {
    showLine(statusAndTime(outcome) + "  " + name + "  " + resultText(outcome));
    return;
  }
  showLine(statusAndTime(outcome) + "  " + name + "  " + std::to_string(outcome.result.size()) + " bytes");
  showBody(outcome.result);
}

void Report::showLine(const std::string& line) {
  std::fprintf(lines_, "%s\n", line.c_str());
  std::fflush(lines_);
}

void Report::showBody(const std::string& body) {
  // A file or a pipe gets the bytes; a terminal gets nothing that could steer it.
  const std::string text = isatty(STDOUT_FILENO) != 0 ? escaped(body, Lines::Keep) : body;
  std::fwrite(text.data(), 1, text.size(), stdout);
  if (isatty(STDOUT_FILENO) != 0 && !text.empty() && text.back() != '\n') {
    std::fputc('\n', stdout);
  }
  std::fflush(stdout);
}

}  // namespace httppool
