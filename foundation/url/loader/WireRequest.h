#pragma once

#include <curl/curl.h>

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "foundation/url/loader/CurlHandles.h"
#include "foundation/url/loader/RequestOptions.h"

namespace foundation {

/// Whom a request on the wire reports to. All but completed() is called while curl runs: only to take note, since the
/// request cannot be removed in there.
class WireRequestClient {
 public:
  /// One line of an answer's head, with its end. False: no more of it.
  virtual bool takeHeaderLine(std::string_view line) = 0;
  /// Some of the body. `length`: go on; CURL_WRITEFUNC_PAUSE: hold it, until WireRequest::release();
  /// CURL_WRITEFUNC_ERROR: no more of it.
  virtual std::size_t takeBody(const char* bytes, std::size_t length) = 0;
  /// Bytes have gone in either direction.
  virtual void bytesMoved() = 0;
  /// One of the calls before this one has thrown std::bad_alloc, which ends here: the request gets no further.
  virtual void ranOutOfMemory() noexcept = 0;
  /// curl is done with the request.
  virtual void completed(CURLcode result) = 0;

 protected:
  ~WireRequestClient() = default;
};

/// One request of a load on its way, and its answer, as curl has them: a handle of its own. Owned by its transfer,
/// lives on the loader thread, and stays after its end to tell what it came to.
class WireRequest {
 public:
  WireRequest(CURLM* multi, WireRequestClient& client);
  ~WireRequest();
  WireRequest(const WireRequest&) = delete;
  WireRequest& operator=(const WireRequest&) = delete;

  /// Whose request a handle of curl's multi is.
  static WireRequestClient& clientOf(CURL* easy);

  /// Once. What the options refer to must outlive the request. False when there is no memory.
  bool start(const RequestOptions& options);
  /// Takes it from curl; does nothing when it has been taken already.
  void remove();
  /// Nobody listens any more: it fails by itself as soon as it can.
  void silence() { isSilenced_ = true; }
  /// Goes on with the body that was held, and answers curl's verdict on it: the request is done if that is an error.
  CURLcode release();
  /// curl watches nothing while it waits for a handshake's job; this makes it look again. False when there is no memory.
  bool resumeHandshake();
  /// The connection ends with the request.
  void forbidReuse();

  CURL* easy() const { return easy_.get(); }
  /// curl has it.
  bool isRunning() const { return isRunning_; }
  /// curl's resolver may be running; remove() would wait for it.
  bool mayBeResolving() const { return mayBeResolving_; }
  /// It failed because the process had no descriptor left.
  bool isOutOfDescriptors() const { return isOutOfDescriptors_; }
  /// Something of an answer has come.
  bool isAnswered() const { return isAnswered_; }
  /// It needed no new connection.
  bool wasOnKeptConnection() const;
  /// errno of the connect, or 0.
  long osError() const;
  /// curl's own words; empty when it has none.
  const char* message() const { return message_.data(); }

 private:
  bool installCallbacks();
  void dropHeld();
  bool takeHeaderLine(std::string_view line) noexcept;
  int openSocket(const curl_sockaddr& address);
  int connected();
  int noteProgress(curl_off_t bytes);
  std::size_t takeBody(const char* bytes, std::size_t length) noexcept;

  CURLM* const multi_;
  WireRequestClient& client_;
  // The handle goes first: it refers to these two.
  HeaderList headers_;
  std::array<char, CURL_ERROR_SIZE> message_{};
  EasyHandle easy_;
  bool isRunning_ = false;
  bool mayBeResolving_ = false;
  bool isOutOfDescriptors_ = false;
  bool isSilenced_ = false;
  bool isHeld_ = false;
  bool isAnswered_ = false;
  bool isConnected_ = false;
  std::size_t reportsUnconnected_ = 0;
  curl_off_t progress_ = 0;
};

}  // namespace foundation
