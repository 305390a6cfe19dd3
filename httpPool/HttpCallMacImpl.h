#pragma once

// The call on this platform: turns what a task asks for into a download, passes the download's states on to
// the task with its session id, and makes the result text. Owned by its facade; everything happens on the
// thread that launches.

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "foundation/base/Data.h"
#include "foundation/base/Dictionary.h"
#include "httpPool/IHttpCall.h"
#include "httpPool/MacDownloadEngine.h"
#include "httpPool/MacDownloader.h"
#include "support/BasicString.h"

class CHttpCallMacImpl : public IHttp_call_Impl {
 public:
  CHttpCallMacImpl();
  /// Stops all downloads of this call, so that nothing reaches it any more.
  ~CHttpCallMacImpl() override;

  bool SetCallBack(ICallback_Http_call* callback) override;
  bool SetHeaderFields(const char* headerJson) override;
  bool LaunchCall(const char* url, const char* postText) override;
  bool LaunchCall(const char* url, const char* postBytes, int length) override;
  bool DownloadFile(const char* url, const char* filePath) override;
  /// The low 32 bits of the session id.
  int GetSessionId() override;
  bool GetResult(BasicString& out) override;
  bool GetRedirectUrl(BasicString& out) override;

  /// A state of any of this call's downloads. The callback must have been set.
  bool OnDownloadStateChange(HTTP_CALL_STATUS state, void* sender);

  /// The header fields as a dictionary; empty when the text is not a JSON object.
  foundation::Dictionary ParseHeaders() const;

 private:
  class EventSink final : public IDownloadEventSink {
   public:
    explicit EventSink(CHttpCallMacImpl& call) : m_call(call) {}
    bool OnDownloadStateChange(HTTP_CALL_STATUS state, void* sender) override {
      return m_call.OnDownloadStateChange(state, sender);
    }

   private:
    CHttpCallMacImpl& m_call;
  };

  /// The downloader goes before its engine.
  struct Launch {
    std::unique_ptr<MacDownloadEngine> engine;
    std::shared_ptr<MacDownloader> downloader;
  };

  bool URLRequest(const char* url, const char* postText);
  bool URLRequest(const char* url, const char* postBytes, int length);
  bool StartDownload(const char* url, std::shared_ptr<const foundation::Data> body);
  void KeepCurrentIfRunning();
  bool GetErrorResult(int errorCode, BasicString& out) const;
  bool GetSuccessResult(BasicString& out) const;

  /// Deliberately no counter but the object's own address: calls that are alive together always differ.
  const std::int64_t m_sessionId;
  ICallback_Http_call* m_pCallback = nullptr;
  EventSink m_eventSink;
  /// Launches that a later one has replaced while they were running. They go on until the call ends.
  std::vector<Launch> m_earlier;
  Launch m_current;
  BasicString m_downloadPath;
  BasicString m_headerFields;
};
