#include "TraceCommand.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>
#include <utility>

#include "TerminalText.h"
#include "TraceLog.h"
#include "TraceOrder.h"
#include "TraceRoad.h"
#include "TraceSvg.h"
#include "TraceText.h"

namespace httppool {
namespace {

constexpr int kDone = 0;
constexpr int kNoRequest = 1;
constexpr int kUnusable = 2;

constexpr std::size_t kMostRows = 2000;

struct CloseFile {
  void operator()(std::FILE* file) const {
    if (file != stdin && file != stdout) {
      std::fclose(file);
    }
  }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

int complain(const std::string& what, int status) {
  std::fflush(stdout);
  std::fprintf(stderr, "httppool: %s\n", what.c_str());
  return status;
}

int complainAbout(const std::string& file, int error) {
  return complain(escaped(file) + ": " + std::generic_category().message(error), kUnusable);
}

// One run of the command.
class Run {
 public:
  explicit Run(const TraceArguments& arguments)
      : arguments_(arguments),
        text_(stdout),
        order_([this](TraceRequest&& request) { show(std::move(request)); }),
        road_([this](TraceRequest&& request) { order_.add(std::move(request)); }),
        log_([this](const TraceRecord& record) { road_.take(record); }) {}

  int run() {
    if (const int status = read(); status != kDone) {
      return status;
    }
    log_.finish();
    road_.finish();
    order_.finish();
    if (!arguments_.picture.empty()) {
      return writePicture();
    }
    if (!arguments_.request) {
      text_.showRest(log_, road_);
    }
    return shown_ > 0 ? kDone : complainThatNoneIsThere();
  }

 private:
  int read() {
    for (const std::string& name : arguments_.files) {
      if (isThePicture(name)) {
        return complain(escaped(name) + " is a log; the picture needs another file", kUnusable);
      }
      const File file(name == "-" ? stdin : std::fopen(name.c_str(), "re"));
      if (!file || !log_.read(file.get())) {
        return complainAbout(name, errno);
      }
    }
    return kDone;
  }

  bool isThePicture(const std::string& log) const {
    std::error_code error;
    return log != "-" && arguments_.picture != "-" && !arguments_.picture.empty() &&
           std::filesystem::equivalent(log, arguments_.picture, error);
  }

  void show(TraceRequest&& request) {
    if (arguments_.request && *arguments_.request != request.number) {
      return;
    }
    ++shown_;
    if (arguments_.picture.empty()) {
      text_.showRequest(request);
    } else if (rows_.size() < kMostRows) {
      request.steps = {};
      rows_.push_back(std::move(request));
    }
  }

  int writePicture() {
    if (rows_.empty()) {
      return complainThatNoneIsThere();
    }
    const std::string& name = arguments_.picture;
    const File file(name == "-" ? stdout : std::fopen(name.c_str(), "we"));
    if (!file) {
      return complainAbout(name, errno);
    }
    const std::string picture = TraceSvg(rows_, shown_ - rows_.size()).draw();
    const bool isWritten = std::fwrite(picture.data(), 1, picture.size(), file.get()) == picture.size() &&
                           std::fflush(file.get()) == 0;
    return isWritten ? kDone : complainAbout(name, errno);
  }

  int complainThatNoneIsThere() const {
    return complain(arguments_.request && road_.requests() > 0
                        ? "no request " + std::to_string(*arguments_.request) + ": there are " +
                              std::to_string(road_.requests())
                        : "no request in this log",
                    kNoRequest);
  }

  const TraceArguments& arguments_;
  std::vector<TraceRequest> rows_;
  std::uint64_t shown_ = 0;
  TraceText text_;
  TraceOrder order_;
  TraceRoad road_;
  TraceLog log_;
};

}  // namespace

int showTrace(const TraceArguments& arguments) {
  return Run(arguments).run();
}

}  // namespace httppool
