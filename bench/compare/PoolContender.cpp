// The pool through its C functions, as a host uses it: the run loop turns on the host's thread, and a task that the
// notify function sees ended is reset and run again from there.

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/compare/Contender.h"
#include "bench/compare/Recorder.h"
#include "foundation/ZEP_Foundation.h"
#include "httpPool/ZEP_HttpPool.h"

namespace {

constexpr const char* kPool = "bench";

class Host {
 public:
  explicit Host(const bench::Assignment& assignment);
  ~Host() { current_ = nullptr; }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  bench::Figures run();

 private:
  static void notified(ZEP_HTTP_POOL_TASK_NOTIFY, const char*, const char* task, const char*) {
    current_->look(task);
  }
  bool isDownload() const { return assignment_.work.kind == bench::Kind::Download; }
  void add(const std::string& task);
  void launch(const char* task, int slot);
  void look(const char* task);
  bool isGood(const char* task, ZEP_HTTP_TASK_STATUS status);

  // The notify function has no context.
  static Host* current_;
  const bench::Assignment& assignment_;
  bench::Recorder recorder_;
  std::vector<char> body_;
};

Host* Host::current_ = nullptr;

Host::Host(const bench::Assignment& assignment)
    : assignment_(assignment), recorder_(assignment.work.inFlight, assignment.seconds), body_(4096) {
  current_ = this;
}

void Host::add(const std::string& task) {
  ZEP_HttpPool_AddTask(kPool, task.c_str());
  ZEP_HttpPool_SetTaskProperty(kPool, task.c_str(), ZEP_HTTP_TASK_PROP_URL, assignment_.url.c_str());
  ZEP_HttpPool_SetTaskProperty(kPool, task.c_str(), ZEP_HTTP_TASK_PROP_HEADER_FIELDS,
                               "{\"HttpMethonGet\":\"1\"}");
  if (isDownload()) {
    ZEP_HttpPool_SetTaskProperty(kPool, task.c_str(), ZEP_HTTP_TASK_PROP_DOWNLOAD_FILE,
                                 assignment_.downloadFile().c_str());
  }
}

void Host::launch(const char* task, int slot) {
  recorder_.begin(slot);
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_UNINITIALIZED;
  ZEP_HttpPool_TaskRun(kPool, task, &status);
  if (status != ZEP_HTTP_TASK_REQUESTING) {
    throw std::runtime_error("a task was not launched");
  }
}

void Host::look(const char* task) {
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_REQUESTING;
  ZEP_HttpPool_GetTaskStatus(kPool, task, &status);
  if (status == ZEP_HTTP_TASK_REQUESTING || status == ZEP_HTTP_TASK_UNINITIALIZED) {
    return;
  }
  const int slot = static_cast<int>(std::strtol(task, nullptr, 10));
  const bool goesOn = recorder_.end(slot, assignment_.bodyBytes, isGood(task, status));
  ZEP_HttpPool_TaskReset(kPool, task);
  if (goesOn) {
    launch(task, slot);
  } else if (recorder_.isDone()) {
    ZEP_RunLoop_Stop();
  }
}

bool Host::isGood(const char* task, ZEP_HTTP_TASK_STATUS status) {
  if (status != ZEP_HTTP_TASK_DONE) {
    return false;
  }
  if (isDownload()) {
    return bench::hasSize(assignment_.downloadFile(), assignment_.bodyBytes);
  }
  auto capacity = static_cast<long>(body_.size());
  return ZEP_HttpPool_GetTaskProperty(kPool, task, ZEP_HTTP_TASK_PROP_RESULT, body_.data(), &capacity) ==
         assignment_.bodyBytes;
}

bench::Figures Host::run() {
  ZEP_HttpPool_Create(kPool);
  ZEP_HttpPool_SetPoolProc(kPool, &Host::notified);
  for (int slot = 0; slot < assignment_.work.inFlight; ++slot) {
    add(std::to_string(slot));
  }
  for (int slot = 0; slot < assignment_.work.inFlight; ++slot) {
    launch(std::to_string(slot).c_str(), slot);
  }
  ZEP_RunLoop_Run(-1);
  ZEP_HttpPool_SetPoolProc(kPool, nullptr);
  return recorder_.figures();
}

bench::Figures runPool(const bench::Assignment& assignment) {
  // As the user does: there is no other way to make the library trust an authority.
  setenv("SSL_CERT_FILE", assignment.authorityFile.c_str(), 1);
  return Host(assignment).run();
}

}  // namespace

int main(int count, char** words) {
  return bench::contenderMain(count, words, runPool);
}
