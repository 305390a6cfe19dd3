#include "bench/compare/Contender.h"

#include <json/writer.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <fstream>
#include <stdexcept>

#include "bench/compare/Arguments.h"
#include "bench/compare/Usage.h"

namespace bench {
namespace {

void runAssignment(const Arguments& arguments, RunWork run) {
  const std::optional<Work> work = workNamed(arguments.text("work"));
  if (!work) {
    throw std::runtime_error("no such work: " + arguments.text("work"));
  }
  Figures figures = run({.work = *work,
                         .url = arguments.text("url"),
                         .authorityFile = arguments.text("authority"),
                         .seconds = arguments.number("seconds", 3, 0),
                         .bodyBytes = static_cast<long>(arguments.number("body-bytes", 0, 0)),
                         .folder = arguments.text("folder"),
                         .command = arguments.text("command")});
  if (figures.peakKilobytes == 0) {
    figures.peakKilobytes = statusNumber(getpid(), "VmHWM:");
  }
  std::ofstream file(arguments.text("result", "/dev/stdout"));
  file << figures.toJson() << "\n";
  if (!file.flush()) {
    throw std::runtime_error("cannot write the figures");
  }
}

}  // namespace

int contenderMain(int count, char** words, RunWork run) {
  try {
    runAssignment(
        Arguments(count, words,
                  {"work", "url", "authority", "seconds", "body-bytes", "folder", "result", "command"}, {}),
        run);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", words[0], error.what());
    return 1;
  }
}

bool hasSize(const std::string& file, long bytes) {
  struct stat status {};
  return stat(file.c_str(), &status) == 0 && status.st_size == bytes;
}

}  // namespace bench
