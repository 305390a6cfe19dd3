// What became of a task, and the words for it. Values; any thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "httpPool/ZEP_HttpPool.h"

namespace httppool {

struct TaskOutcome {
  enum class Ending {
    Refused,   // the library did not launch the request
    Ended,     // the request ended by itself
    TimedOut,  // still running at the limit, and reset
    Stopped,   // still running when the user stopped the program, and reset
    NotRun     // not begun when the user stopped the program
  };

  std::size_t index = 0;  // its place among all tasks
  std::string pool;
  std::string task;
  std::string url;
  std::string download;  // the file that was asked for
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_UNINITIALIZED;
  Ending ending = Ending::Ended;
  std::chrono::duration<double> elapsed{};
  std::string result;    // property 7
  std::string redirect;  // property 10
};

// The library's word for a status, as its task list has it; "redirected" where the list has none.
std::string statusWord(ZEP_HTTP_TASK_STATUS status);

// Whether the task did all it was asked for, its file written.
bool isDone(const TaskOutcome& outcome);

// Whether the body of the answer went to a file.
bool isDownload(const TaskOutcome& outcome);

// The bytes of the body; none without one.
std::optional<std::uintmax_t> bodySize(const TaskOutcome& outcome);

// Status word, elapsed time and result on one line, fit for a terminal, without a line break; with a name before
// the result when it is not empty.
std::string summary(const TaskOutcome& outcome, const std::string& name = {});
// The same with the length of the body in place of the result.
std::string summaryWithSize(const TaskOutcome& outcome, const std::string& name);

}  // namespace httppool
