#include "foundation/url/loader/WireRequest.h"

#include <sys/socket.h>

#include <cassert>
#include <cerrno>
#include <new>
#include <utility>

#include "foundation/base/Shortage.h"
#include "foundation/url/loader/Limits.h"

namespace foundation {

// A handle for each request of a load: curl_easy_reset(3) leaks the list of cookie files.
WireRequest::WireRequest(CURLM* multi, WireRequestClient& client)
    : multi_(multi), client_(client), easy_(curl_easy_init()) {
}

WireRequest::~WireRequest() {
  assert(!isRunning_);
}

WireRequestClient& WireRequest::clientOf(CURL* easy) {
  void* client = nullptr;
  curl_easy_getinfo(easy, CURLINFO_PRIVATE, &client);
  return *static_cast<WireRequestClient*>(client);
}

bool WireRequest::start(const RequestOptions& options) {
  isRunning_ = mayBeResolving_ = easy_ != nullptr && applyRequestOptions(easy_.get(), options, headers_) &&
                                 installCallbacks() && curl_multi_add_handle(multi_, easy_.get()) == CURLM_OK;
  return isRunning_;
}

void WireRequest::remove() {
  if (std::exchange(isRunning_, false)) {
    dropHeld();
    curl_multi_remove_handle(multi_, easy_.get());
  }
}

/// Else curl (7.88) loses the memory of what it holds when there are other requests on the connection.
void WireRequest::dropHeld() {
  if (isHeld_) {
    silence();
    release();
  }
}

CURLcode WireRequest::release() {
  // Hands over what was held, and with it what the client thinks of it.
  return std::exchange(isHeld_, false) ? curl_easy_pause(easy_.get(), CURLPAUSE_CONT) : CURLE_OK;
}

bool WireRequest::resumeHandshake() {
  return curl_easy_pause(easy_.get(), CURLPAUSE_RECV) != CURLE_OUT_OF_MEMORY &&
         curl_easy_pause(easy_.get(), CURLPAUSE_CONT) != CURLE_OUT_OF_MEMORY;
}

void WireRequest::forbidReuse() {
  curl_easy_setopt(easy_.get(), CURLOPT_FORBID_REUSE, 1L);
}

bool WireRequest::wasOnKeptConnection() const {
  long made = 1;
  curl_easy_getinfo(easy_.get(), CURLINFO_NUM_CONNECTS, &made);
  return made == 0;
}

long WireRequest::osError() const {
  long error = 0;
  curl_easy_getinfo(easy_.get(), CURLINFO_OS_ERRNO, &error);
  return error;
}

// --- What curl reports while it runs. ---

bool WireRequest::installCallbacks() {
  const auto set = [this](CURLoption option, auto value) {
    return curl_easy_setopt(easy_.get(), option, value) == CURLE_OK;
  };
  const curl_write_callback onHeader = [](char* line, std::size_t, std::size_t length, void* request) {
    return static_cast<WireRequest*>(request)->takeHeaderLine({line, length}) ? length : std::size_t{0};
  };
  const curl_write_callback onBody = [](char* bytes, std::size_t, std::size_t length, void* request) {
    return static_cast<WireRequest*>(request)->takeBody(bytes, length);
  };
  const curl_opensocket_callback onSocket = [](void* request, curlsocktype, curl_sockaddr* address) {
    return static_cast<WireRequest*>(request)->openSocket(*address);
  };
  const curl_prereq_callback onConnected = [](void* request, char*, char*, int, int) {
    return static_cast<WireRequest*>(request)->connected();
  };
  const curl_xferinfo_callback onProgress = [](void* request, curl_off_t, curl_off_t down, curl_off_t,
                                               curl_off_t up) {
    return static_cast<WireRequest*>(request)->noteProgress(down + up);
  };
  void* const self = this;
  return set(CURLOPT_PRIVATE, static_cast<void*>(&client_)) && set(CURLOPT_ERRORBUFFER, message_.data()) &&
         set(CURLOPT_HEADERFUNCTION, onHeader) && set(CURLOPT_HEADERDATA, self) &&
         set(CURLOPT_WRITEFUNCTION, onBody) && set(CURLOPT_WRITEDATA, self) &&
         set(CURLOPT_OPENSOCKETFUNCTION, onSocket) && set(CURLOPT_OPENSOCKETDATA, self) &&
         set(CURLOPT_PREREQFUNCTION, onConnected) && set(CURLOPT_PREREQDATA, self) &&
         set(CURLOPT_XFERINFOFUNCTION, onProgress) && set(CURLOPT_XFERINFODATA, self) &&
         set(CURLOPT_NOPROGRESS, 0L);
}

bool WireRequest::takeHeaderLine(std::string_view line) noexcept {
  isAnswered_ = true;
  try {
    return !isSilenced_ && client_.takeHeaderLine(line);
  } catch (const std::bad_alloc&) {
    client_.ranOutOfMemory();
    return false;
  }
}

std::size_t WireRequest::takeBody(const char* bytes, std::size_t length) noexcept {
  std::size_t taken = CURL_WRITEFUNC_ERROR;
  try {
    taken = isSilenced_ ? CURL_WRITEFUNC_ERROR : client_.takeBody(bytes, length);
  } catch (const std::bad_alloc&) {
    client_.ranOutOfMemory();
  }
  isHeld_ = taken == CURL_WRITEFUNC_PAUSE;
  return taken;
}

int WireRequest::openSocket(const curl_sockaddr& address) {
  mayBeResolving_ = false;
  if (isSilenced_) {
    return CURL_SOCKET_BAD;
  }
  const int descriptor = socket(address.family, address.socktype | SOCK_CLOEXEC, address.protocol);
  if (descriptor < 0) {
    isOutOfDescriptors_ = isDescriptorShortage(errno);
    return CURL_SOCKET_BAD;
  }
  return descriptor;
}

int WireRequest::connected() {
  mayBeResolving_ = false;
  isConnected_ = true;
  return isSilenced_ ? CURL_PREREQFUNC_ABORT : CURL_PREREQFUNC_OK;
}

int WireRequest::noteProgress(curl_off_t bytes) {
  if (bytes != progress_) {
    progress_ = bytes;
    client_.bytesMoved();
  }
  // A proxy's answer to CONNECT is read for as long as there is more of it, byte by byte, and each is reported.
  return isConnected_ || ++reportsUnconnected_ <= kTunnelAnswerLimit ? 0 : 1;
}

}  // namespace foundation
