// A bare loop over libcurl: one thread, curl_multi_socket_action over epoll, easy handles used again. What a task
// costs here is what libcurl costs; nothing that is built on libcurl is faster.

#include <curl/curl.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <stdexcept>
#include <vector>

#include "bench/compare/Contender.h"
#include "bench/compare/Recorder.h"

namespace {

struct CloseMulti {
  void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
};
struct CloseEasy {
  void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};
struct CloseFile {
  void operator()(FILE* file) const { std::fclose(file); }
};

struct Slot {
  std::unique_ptr<CURL, CloseEasy> easy;
  int number = 0;
  long bytes = 0;
  FILE* file = nullptr;
};

class Loop {
 public:
  explicit Loop(const bench::Assignment& assignment);
  ~Loop();
  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;

  bench::Figures run();

 private:
  static int onSocket(CURL*, curl_socket_t socket, int what, void* loop, void* known) {
    return static_cast<Loop*>(loop)->watch(socket, what, known != nullptr);
  }
  static int onTimer(CURLM*, long milliseconds, void* loop) {
    return static_cast<Loop*>(loop)->setTimer(milliseconds);
  }
  static size_t onData(char* bytes, size_t, size_t count, void* slot);

  void configure(Slot& slot);
  void begin(Slot& slot);
  int watch(curl_socket_t socket, int what, bool isKnown);
  int setTimer(long milliseconds);
  int waitLimit() const;
  void turn();
  void takeMessages();

  const bench::Assignment& assignment_;
  bench::Recorder recorder_;
  int epoll_;
  // Last in, first out: the slots' handles go before the multi handle, that before what it calls back.
  std::optional<double> due_;
  std::unique_ptr<CURLM, CloseMulti> multi_;
  std::unique_ptr<FILE, CloseFile> file_;
  std::vector<Slot> slots_;
};

Loop::Loop(const bench::Assignment& assignment)
    : assignment_(assignment),
      recorder_(assignment.work.inFlight, assignment.seconds),
      epoll_(epoll_create1(EPOLL_CLOEXEC)),
      multi_(curl_multi_init()),
      slots_(static_cast<std::size_t>(assignment.work.inFlight)) {
  curl_multi_setopt(multi_.get(), CURLMOPT_SOCKETFUNCTION, &Loop::onSocket);
  curl_multi_setopt(multi_.get(), CURLMOPT_SOCKETDATA, this);
  curl_multi_setopt(multi_.get(), CURLMOPT_TIMERFUNCTION, &Loop::onTimer);
  curl_multi_setopt(multi_.get(), CURLMOPT_TIMERDATA, this);
  curl_multi_setopt(multi_.get(), CURLMOPT_MAXCONNECTS, long{assignment.work.inFlight} + 1);
  if (assignment.work.kind == bench::Kind::Download) {
    file_.reset(std::fopen(assignment.downloadFile().c_str(), "w"));
    if (!file_) {
      throw std::runtime_error("cannot write " + assignment.downloadFile());
    }
  }
  for (std::size_t number = 0; number < slots_.size(); ++number) {
    slots_[number].number = static_cast<int>(number);
    configure(slots_[number]);
  }
}

Loop::~Loop() {
  for (Slot& slot : slots_) {
    curl_multi_remove_handle(multi_.get(), slot.easy.get());
  }
  slots_.clear();
  multi_.reset();
  close(epoll_);
}

void Loop::configure(Slot& slot) {
  constexpr long kLargeBuffer = 512L * 1024;
  slot.easy.reset(curl_easy_init());
  slot.file = file_.get();
  CURL* easy = slot.easy.get();
  curl_easy_setopt(easy, CURLOPT_PRIVATE, &slot);
  curl_easy_setopt(easy, CURLOPT_URL, assignment_.url.c_str());
  curl_easy_setopt(easy, CURLOPT_CAINFO, assignment_.authorityFile.c_str());
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &Loop::onData);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, &slot);
  if (assignment_.work.protocol == bench::Protocol::Http2) {
    // Else every request that begins before the first connection stands makes one of its own.
    curl_easy_setopt(easy, CURLOPT_PIPEWAIT, 1L);
  }
  if (slot.file != nullptr) {
    curl_easy_setopt(easy, CURLOPT_BUFFERSIZE, kLargeBuffer);
  }
}

size_t Loop::onData(char* bytes, size_t, size_t count, void* data) {
  auto* slot = static_cast<Slot*>(data);
  slot->bytes += static_cast<long>(count);
  return slot->file == nullptr ? count : std::fwrite(bytes, 1, count, slot->file);
}

void Loop::begin(Slot& slot) {
  slot.bytes = 0;
  recorder_.begin(slot.number);
  curl_multi_add_handle(multi_.get(), slot.easy.get());
}

int Loop::watch(curl_socket_t socket, int what, bool isKnown) {
  if (what == CURL_POLL_REMOVE) {
    return epoll_ctl(epoll_, EPOLL_CTL_DEL, socket, nullptr);
  }
  epoll_event event{};
  event.events = ((what & CURL_POLL_IN) != 0 ? EPOLLIN : 0U) | ((what & CURL_POLL_OUT) != 0 ? EPOLLOUT : 0U);
  event.data.fd = socket;
  curl_multi_assign(multi_.get(), socket, this);
  return epoll_ctl(epoll_, isKnown ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, socket, &event);
}

int Loop::setTimer(long milliseconds) {
  due_ = milliseconds < 0 ? std::nullopt
                          : std::optional(bench::now() + static_cast<double>(milliseconds) / 1000);
  return 0;
}

int Loop::waitLimit() const {
  return due_ ? static_cast<int>(std::ceil(std::max(0.0, *due_ - bench::now()) * 1000)) : -1;
}

void Loop::turn() {
  epoll_event events[256];
  int running = 0;
  const int count = epoll_wait(epoll_, events, std::size(events), waitLimit());
  for (int at = 0; at < count; ++at) {
    const uint32_t seen = events[at].events;
    const int action = ((seen & EPOLLIN) != 0 ? CURL_CSELECT_IN : 0) |
                       ((seen & EPOLLOUT) != 0 ? CURL_CSELECT_OUT : 0) |
                       ((seen & (EPOLLERR | EPOLLHUP)) != 0 ? CURL_CSELECT_ERR : 0);
    curl_multi_socket_action(multi_.get(), events[at].data.fd, action, &running);
  }
  if (due_ && bench::now() >= *due_) {
    due_.reset();
    curl_multi_socket_action(multi_.get(), CURL_SOCKET_TIMEOUT, 0, &running);
  }
  takeMessages();
}

void Loop::takeMessages() {
  int left = 0;
  while (const CURLMsg* message = curl_multi_info_read(multi_.get(), &left)) {
    CURL* easy = message->easy_handle;
    const CURLcode code = message->data.result;
    Slot* slot = nullptr;
    long status = 0;
    curl_easy_getinfo(easy, CURLINFO_PRIVATE, &slot);
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
    const bool isWritten = slot->file == nullptr || std::fflush(slot->file) == 0;
    curl_multi_remove_handle(multi_.get(), easy);
    const bool isGood =
        code == CURLE_OK && status == 200 && isWritten && slot->bytes == assignment_.bodyBytes;
    if (recorder_.end(slot->number, slot->bytes, isGood)) {
      begin(*slot);
    }
  }
}

bench::Figures Loop::run() {
  for (Slot& slot : slots_) {
    begin(slot);
  }
  while (!recorder_.isDone()) {
    turn();
  }
  return recorder_.figures();
}

bench::Figures runCurl(const bench::Assignment& assignment) {
  curl_global_init(CURL_GLOBAL_ALL);
  return Loop(assignment).run();
}

}  // namespace

int main(int count, char** words) {
  return bench::contenderMain(count, words, runCurl);
}
