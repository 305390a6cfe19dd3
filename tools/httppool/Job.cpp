#include "Job.h"

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

#include "TerminalText.h"

namespace httppool {
namespace {

// RFC 9110 §5.6.2.
bool isToken(const std::string& text) {
  static const char* const kMarks = "!#$%&'*+-.^_`|~";
  for (const char c : text) {
    const bool isAlphanumeric = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
    if (!isAlphanumeric && (c == '\0' || std::strchr(kMarks, c) == nullptr)) {
      return false;
    }
  }
  return !text.empty();
}

// Everything goes to the library as a C text in UTF-8.
bool isPassable(const std::string& text) {
  return isUtf8(text) && text.find('\0') == std::string::npos;
}

bool lessIgnoringCase(const std::string& left, const std::string& right) {
  return strcasecmp(left.c_str(), right.c_str()) < 0;
}

std::optional<std::string> reasonAgainstHeaders(const TaskJob& task) {
  std::set<std::string, decltype(&lessIgnoringCase)> names(&lessIgnoringCase);
  for (const HeaderField& field : task.headers) {
    if (!isToken(field.name)) {
      return "\"" + escaped(field.name) + "\" is not a header field name";
    }
    if (!isPassable(field.value) || field.value.find_first_of("\r\n") != std::string::npos) {
      return "the value of header field \"" + field.name +
             "\" has a line break, a zero character or is not UTF-8";
    }
    if (!names.insert(field.name).second) {
      return "header field \"" + field.name + "\" is given twice";
    }
    if (task.method && (field.name == "HttpMethod" || field.name == "HttpMethonGet")) {
      return "header field \"" + field.name + "\" and a method are both given";
    }
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> reasonAgainst(const TaskJob& task) {
  for (const std::string* text : {&task.name, &task.url, &task.download}) {
    if (!isPassable(*text)) {
      return "\"" + oneLine(*text) + "\" has a zero character or is not UTF-8";
    }
  }
  if (task.method && !isToken(*task.method)) {
    return "\"" + escaped(*task.method) + "\" is not a method";
  }
  if (task.post && !isPassable(*task.post)) {
    return "the text body has a zero character or is not UTF-8; give it as a file of bytes";
  }
  if (task.post && task.data) {
    return "a text body and a file of bytes are both given";
  }
  if (task.hasBody() && !task.download.empty()) {
    return "a body and a download file are both given: a download is asked for without a body";
  }
  return reasonAgainstHeaders(task);
}

std::optional<std::string> readBody(const std::string& path, TaskJob& task) {
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) {
    return "cannot read " + escaped(path) + ": it is a folder";
  }
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    return "cannot read " + escaped(path) + ": " + std::strerror(errno);
  }
  std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  if (file.bad()) {
    return "cannot read " + escaped(path);
  }
  if (bytes.size() > INT_MAX) {
    return escaped(path) + " is too large for a body";
  }
  task.data = std::move(bytes);
  return std::nullopt;
}

std::optional<std::string> reasonAgainstTarget(const std::string& path) {
  struct stat before = {};
  const bool isThere = stat(path.c_str(), &before) == 0;
  if (isThere && !S_ISREG(before.st_mode)) {
    // A device or a pipe is the caller's business; opening one here could block.
    return S_ISDIR(before.st_mode) ? std::optional("cannot write " + escaped(path) + ": it is a folder")
                                   : std::nullopt;
  }
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
  if (file < 0) {
    return "cannot write " + escaped(path) + ": " + std::strerror(errno);
  }
  close(file);
  if (!isThere) {
    unlink(path.c_str());
  }
  return std::nullopt;
}

}  // namespace httppool
