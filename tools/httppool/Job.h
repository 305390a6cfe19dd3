// What the command line and the job file ask for: pools of tasks, as plain values.
// Used on the main thread; copied freely.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace httppool {

struct HeaderField {
  std::string name;
  std::string value;
};

struct TaskJob {
  std::string name;
  std::string url;
  std::optional<std::string> method;  // none: GET, or POST with a body
  std::vector<HeaderField> headers;
  std::optional<std::string> post;  // a text body
  std::optional<std::string> data;  // a body of any bytes
  std::string download;             // not empty: the body of the answer goes to this file

  bool hasBody() const { return post || data; }
};

struct PoolJob {
  std::string name;
  std::vector<TaskJob> tasks;
};

// Returns why the library could not run the task as it is asked for, or nothing when it can.
std::optional<std::string> reasonAgainst(const TaskJob& task);

// Reads a file as the task's byte body. Returns why it could not, or nothing.
std::optional<std::string> readBody(const std::string& path, TaskJob& task);

// Tries that a download can be written to `path`: the library does not tell when it could not.
std::optional<std::string> reasonAgainstTarget(const std::string& path);

}  // namespace httppool
