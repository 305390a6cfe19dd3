#pragma once

// The interfaces between a task and the HTTP call that it runs. A task holds the facade (CHttpCall); the
// facade forwards to the implementation of the platform behind IHttp_call_Impl; states come back to the task
// through ICallback_Http_call. All of it happens on the thread that launches the call.

#include "support/BasicString.h"

/// The state of a call, passed on unchanged from the downloader to the task. 32 bits.
enum HTTP_CALL_STATUS : int {
  HTTP_CALL_SUCCEEDED = 0,   ///< loaded completely
  HTTP_CALL_FAILED = 1,      ///< connection error, unexpected status, refused authentication
  HTTP_CALL_PENDING = 2,     ///< nothing has arrived yet; never reported
  HTTP_CALL_ERROR_3 = 3,     ///< a failure; not produced
  HTTP_CALL_TIMEOUT = 4,     ///< not produced by the downloader, whose time-outs are failures
  HTTP_CALL_ERROR_5 = 5,     ///< a failure; not produced
  HTTP_CALL_ERROR_6 = 6,     ///< a failure; not produced
  HTTP_CALL_RECEIVING = 7,   ///< a part of the body has arrived
  HTTP_CALL_REDIRECTED = 8,  ///< a redirect was captured instead of being followed
};

/// Receives a call's states. Never deleted through this interface.
class ICallback_Http_call {
 public:
  /// `session` is the reporting call's GetSessionId(). False when that is not the call the receiver holds.
  virtual bool NotifyHttpCallStatus(int session, HTTP_CALL_STATUS status) = 0;

 protected:
  ~ICallback_Http_call() = default;
};

class IZEP_Root {
 public:
  virtual ~IZEP_Root() = default;

 protected:
  IZEP_Root() = default;
  IZEP_Root(const IZEP_Root&) = delete;
  IZEP_Root& operator=(const IZEP_Root&) = delete;
};

/// What every call offers. Header fields and a body of bytes are deliberately not part of it: CHttpCall adds
/// them.
class IHttp_call : public IZEP_Root {
 public:
  /// Records the receiver, which is not owned. To be set before a launch.
  virtual bool SetCallBack(ICallback_Http_call* callback) = 0;
  /// Starts the request; a null `postText` is no body. True when it was started.
  virtual bool LaunchCall(const char* url, const char* postText) = 0;
  /// Starts a request whose body goes to the file.
  virtual bool DownloadFile(const char* url, const char* filePath) = 0;
  /// The identity that the callback is told.
  virtual int GetSessionId() = 0;
  /// The body, the file's path or the error's JSON text. False, and `out` untouched, when there is none.
  virtual bool GetResult(BasicString& out) = 0;
  /// The target of a captured redirect. Without one `out` is untouched. The returned value says nothing.
  virtual bool GetRedirectUrl(BasicString& out) = 0;
};

/// What an implementation offers to the facade. The order of the operations differs from IHttp_call's on
/// purpose.
class IHttp_call_Impl : public IZEP_Root {
 public:
  virtual bool SetCallBack(ICallback_Http_call* callback) = 0;
  /// Records the header fields, the text of a JSON object; read at the next launch.
  virtual bool SetHeaderFields(const char* headerJson) = 0;
  virtual bool LaunchCall(const char* url, const char* postText) = 0;
  virtual bool LaunchCall(const char* url, const char* postBytes, int length) = 0;
  virtual bool DownloadFile(const char* url, const char* filePath) = 0;
  virtual int GetSessionId() = 0;
  virtual bool GetResult(BasicString& out) = 0;
  virtual bool GetRedirectUrl(BasicString& out) = 0;
};
