#include "PasswordFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "TerminalText.h"

namespace httppool {
namespace {

constexpr std::size_t kLongest = 4096;

class File {
 public:
  explicit File(const std::string& path)
      : descriptor_(path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY)) {}
  ~File() {
    if (descriptor_ > STDIN_FILENO) {
      close(descriptor_);
    }
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  int descriptor() const { return descriptor_; }
  bool isFolder() const {
    struct stat found = {};
    return fstat(descriptor_, &found) == 0 && S_ISDIR(found.st_mode);
  }

 private:
  int descriptor_;
};

// Up to the end of the first line or of the file, or a byte too many. One byte at a time: what follows belongs
// to whoever reads stdin next. False when the file cannot be read.
bool readFirstLine(int file, Secret& line) {
  constexpr std::size_t kCarriageReturn = 1;
  for (char byte = 0; line.text().size() <= kLongest + kCarriageReturn;) {
    const ssize_t count = read(file, &byte, 1);
    if (count < 0 && errno != EINTR) {
      return false;
    }
    if (count == 0 || (count > 0 && byte == '\n')) {
      break;
    }
    if (count > 0) {
      line.append({&byte, 1});
    }
  }
  if (line.text().ends_with('\r')) {
    line.removeLast();
  }
  return true;
}

}  // namespace

std::optional<std::string> readPassword(const std::string& path, Secret& password) {
  const std::string name = path == "-" ? "stdin" : escaped(path);
  const File file(path);
  if (file.descriptor() < 0) {
    return "cannot read " + name + ": " + std::strerror(errno);
  }
  if (file.isFolder()) {
    return "cannot read " + name + ": it is a folder";
  }
  if (isatty(file.descriptor()) != 0) {
    return name + " is a terminal, which would show the password; without --user it is asked for";
  }
  Secret line;
  if (!readFirstLine(file.descriptor(), line)) {
    return "cannot read " + name + ": " + std::strerror(errno);
  }
  if (line.isEmpty()) {
    return "the first line of " + name + " is empty: no password";
  }
  if (line.text().size() > kLongest) {
    return "the first line of " + name + " is longer than 4096 bytes: no password";
  }
  if (!isUtf8(line.text()) || line.text().find('\0') != std::string_view::npos) {
    return "the first line of " + name + " has a zero character or is not UTF-8";
  }
  password = std::move(line);
  return std::nullopt;
}

}  // namespace httppool
