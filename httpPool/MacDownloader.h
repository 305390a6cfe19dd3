#pragma once

// Runs one HTTP request on a thread that is its own meanwhile: makes a connection there, turns what the connection
// delivers into a state, an error code and a body, and hands every change of state over to the engine's base
// thread. With a final state the thread has done its work. Challenges are answered there, too
// (MacDownloader+Challenges.cpp), which may block that thread for as long as the host takes.
//
// Start, Stop, DownloadStateChanged and the destructor belong to the base thread; the connection's events and
// what they call run on the private thread; the getters may be used on both at any time. Shared by its owner
// and by the hand-overs that are queued on the base thread.

#include <sys/types.h>

#include <atomic>
#include <functional>
#include <latch>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/base/Data.h"
#include "foundation/base/Error.h"
#include "foundation/runloop/Thread.h"
#include "foundation/runloop/ThreadRunLoop.h"
#include "foundation/url/URLConnection.h"
#include "foundation/url/URLRequest.h"
#include "foundation/url/URLResponse.h"
#include "httpPool/IHttpCall.h"

class IDownloadEventSink;
class MacDownloader;

/// What a downloader asks of the engine that runs it.
class IDownloaderEngine {
 public:
  /// Where state changes are handed over.
  virtual foundation::Thread baseThread() const = 0;
  virtual bool isExchAutodiscovering() const = 0;
  virtual bool isGlintRequest() const = 0;
  /// Whether an untrusted server is accepted without asking.
  virtual bool isAdjacency() const = 0;
  /// On the downloader's thread, which they block until the host has answered.
  virtual void OnAskLocalization() = 0;
  virtual bool OnAskNTLMChallenge(std::string& user, std::string& password, bool& isRemember, bool& isSkip,
                                  const MacDownloader& sender) = 0;
  /// On the base thread. `state` is the downloader's state as it was found there; it may be another one by
  /// now.
  virtual void DownloadStateChanged(MacDownloader& downloader, HTTP_CALL_STATUS state) = 0;

 protected:
  ~IDownloaderEngine() = default;
};

/// The reason of a failure as the host is told it.
enum DOWNLOAD_ERROR_CODE : int {
  DOWNLOAD_ERROR_NONE = 0,
  DOWNLOAD_ERROR_CONNECTION = 1,
  DOWNLOAD_ERROR_SERVER = 2,
  DOWNLOAD_ERROR_AUTHENTICATION = 3,
  DOWNLOAD_ERROR_TIMEOUT = 4,
  DOWNLOAD_ERROR_TOO_MANY_REQUESTS = 5,
  DOWNLOAD_ERROR_OTHER = 6,
};

class MacDownloader : public foundation::URLConnectionDelegate,
                      public std::enable_shared_from_this<MacDownloader> {
 public:
  /// The downloader is its own connection's delegate. Without a request nothing is ever loaded.
  explicit MacDownloader(std::optional<foundation::URLRequest> request);
  MacDownloader(const MacDownloader&) = delete;
  MacDownloader& operator=(const MacDownloader&) = delete;
  /// Stops.
  ~MacDownloader() override;

  void setTag(int tag) { m_tag = tag; }
  int tag() const { return m_tag; }
  /// Kept for the engine; not owned.
  void SetEventSink(IDownloadEventSink* eventSink) { m_pEventSink = eventSink; }
  IDownloadEventSink* GetEventSink() const { return m_pEventSink; }
  /// Not owned. To be set before Start and to stay until Stop.
  void SetDownloadEngine(IDownloaderEngine* engine) { m_pDownloadEngine = engine; }
  void SetExtraData(int extraData) { m_extraData = extraData; }
  int GetExtraData() const { return m_extraData; }
  void setErrorCode(int errorCode);
  int errorCode() const { return m_errorCode; }
  /// A stored credential was refused, so the prompt that follows may warn.
  void setShowWarningMsg(bool show) { m_bShowWarningMsg = show; }
  bool isShowWarningMsg() const { return m_bShowWarningMsg; }

  /// What has arrived so far. Never null, and never changed any more: what arrives later goes into another
  /// one.
  std::shared_ptr<const foundation::Data> GetData() const;
  const std::string& GetTargetUrlString() const { return m_targetUrlString; }
  std::string GetRedirectUrl() const;
  int GetTryCount() const { return m_tryCount; }
  bool IsStarted() const { return m_threadHandle != nullptr; }
  int GetStatusCode() const { return m_statusCode; }
  HTTP_CALL_STATUS GetDownloadState() const { return m_urlDownloadState; }
  /// The length of the latest part of the body, not of all.
  int GetNewReceivedDataLength() const { return m_newReceivedDataLength; }
  void SetNewReceivedDataLength(int length) { m_newReceivedDataLength = length; }

  /// Sets the state and hands the change over to the base thread. After SUCCEEDED or FAILED nothing changes
  /// the state until the next Start, so a final state is never overwritten before the base thread has seen
  /// it.
  void SetDownloadState(HTTP_CALL_STATUS state);
  /// Keeps a part of the body. False when there is no memory for it.
  [[nodiscard]] bool appendData(foundation::Data&& data);

  /// Does nothing while started. 0.
  int Start();
  /// Ends the thread's work and waits for that, unless it is over already. 0.
  int Stop();
  /// On the private thread: decides what to do about a challenge, and asks the host if need be.
  void handleAuthenticationChallenge(const std::shared_ptr<foundation::AuthenticationChallenge>& challenge);
  /// Has the engine ask for a user name and a password and keeps them, empty ones when there is no engine.
  void OnAskNTLMUserAndPassword();
  void SetNTLMAskedInfo(std::string user, std::string password);
  /// Has the engine get the host's texts for dialogs.
  void getLocalization();
  /// A state change has reached the base thread. The argument is not looked at: the state that counts is the
  /// one of this moment.
  virtual void DownloadStateChanged(int argument);

  std::optional<foundation::URLRequest> connectionWillSendRequest(
      foundation::URLConnection& connection, const foundation::URLRequest& request,
      const foundation::URLResponse* redirectResponse) override;
  bool connectionShouldUseCredentialStorage(foundation::URLConnection& connection) override;
  bool connectionCanAuthenticateAgainstProtectionSpace(foundation::URLConnection& connection,
                                                       const foundation::ProtectionSpace& space) override;
  void connectionDidReceiveAuthenticationChallenge(
      foundation::URLConnection& connection,
      const std::shared_ptr<foundation::AuthenticationChallenge>& challenge) override;
  void connectionDidReceiveResponse(foundation::URLConnection& connection,
                                    const foundation::URLResponse& response) override;
  void connectionDidReceiveData(foundation::URLConnection& connection, foundation::Data&& data) override;
  void connectionDidFinishLoading(foundation::URLConnection& connection) override;
  void connectionDidFailWithError(foundation::URLConnection& connection,
                                  const foundation::Error& error) override;

 protected:
  /// What the private thread does. A class that replaces it stops before it is destroyed.
  virtual void ThreadProc();
  /// While started: whether the private thread has nothing to do with this any more.
  bool IsThreadDone() const { return m_threadHandle->try_wait(); }

 private:
  /// A change of state on its way to the base thread.
  struct HandOver {
    foundation::Thread baseThread;
    std::shared_ptr<MacDownloader> downloader;
    int argument = 0;
  };

  void FailWithoutThread(int error);
  int CreateThread();
  void RunThread(std::latch& over);
  static std::function<void()> BlockOf(const HandOver& handOver);
  static void Post(const HandOver& handOver);
  static void PostForCertain(HandOver&& handOver);
  void TraceIdentity(const char* operation) const;
  void RunConnection();
  void Wake();
  void KeepForEver();
  void Fail(int errorCode);
  void OnDownloadStateChanged();
  void HandleResponseStatus(const foundation::URLResponse& response);
  void saveRedirectUrl(const foundation::URLResponse& response);
  void HandleResponse429(const foundation::URLResponse& response);

  void JudgeServer(const std::shared_ptr<foundation::AuthenticationChallenge>& challenge);
  void ConfirmServer(const std::shared_ptr<foundation::AuthenticationChallenge>& challenge);
  void RefuseProxy(foundation::AuthenticationChallenge& challenge);
  void AnswerPasswordChallenge(foundation::AuthenticationChallenge& challenge);
  bool AnswerFromStorage(foundation::AuthenticationChallenge& challenge);
  void AnswerFromHost(foundation::AuthenticationChallenge& challenge);
  void OnAskLocalization();

  const std::optional<foundation::URLRequest> m_urlRequest;
  const std::string m_targetUrlString;
  IDownloaderEngine* m_pDownloadEngine = nullptr;
  IDownloadEventSink* m_pEventSink = nullptr;
  int m_tag = 0;

  /// Base thread only. There exactly while the downloader counts as started, also when no thread could be had.
  /// Counted down when the private thread will not touch the downloader any more; shared with that thread, which
  /// may still be leaving the latch when the downloader is gone.
  std::shared_ptr<std::latch> m_threadHandle;
  /// Which process the thread is of.
  pid_t m_process = 0;
  bool m_bAlreadySendDownloadFinished = false;

  std::atomic<bool> m_bNeedExitThread = false;
  std::atomic<bool> m_bFinalStateSet = false;
  std::atomic<bool> m_bShowWarningMsg = false;
  std::atomic<bool> m_bSkip = false;
  std::atomic<int> m_errorCode = DOWNLOAD_ERROR_NONE;
  std::atomic<int> m_extraData = 0;
  std::atomic<int> m_statusCode = 0;
  std::atomic<int> m_tryCount = 0;
  std::atomic<int> m_newReceivedDataLength = 0;
  std::atomic<HTTP_CALL_STATUS> m_urlDownloadState = HTTP_CALL_PENDING;

  /// The private thread's; the base thread's while there is none. While the private thread turns its loop, changes of
  /// state wait here for the end of the turn; a final one for the end of the thread's work.
  bool m_bTurning = false;
  std::vector<HandOver> m_handOvers;
  /// What the host has answered last.
  bool m_bRemember = false;
  std::string m_ntlmUserName;
  std::string m_ntlmUserPassword;

  mutable std::mutex m_mutex;
  std::shared_ptr<foundation::ThreadRunLoop> m_loop;
  std::shared_ptr<foundation::Data> m_data;
  /// Somebody may be reading m_data, so it must not change any more.
  mutable bool m_bDataLent = false;
  std::string m_redirectUrl;
};
