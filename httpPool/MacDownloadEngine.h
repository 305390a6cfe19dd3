#pragma once

// Builds the request of one launch, starts its downloader, and passes the downloader's state changes on to
// the event sink: the finished state once only. Made by the platform call for one launch and released by it
// after the downloader. On its base thread, the one that made it; the queries of the request's kind may be
// used on the downloader's thread.

#include <memory>
#include <optional>
#include <string_view>

#include "foundation/base/Data.h"
#include "foundation/base/Dictionary.h"
#include "foundation/runloop/Thread.h"
#include "foundation/url/URLRequest.h"
#include "httpPool/IHttpCall.h"
#include "httpPool/MacDownloader.h"

/// The host's texts for dialogs. Exported; null until the host gives them.
extern __attribute__((visibility("default"))) foundation::Dictionary* g_localizationStr;

/// Receives the states of a download, on the engine's base thread.
class IDownloadEventSink {
 public:
  /// `sender` is the downloader. What is returned is not looked at.
  virtual bool OnDownloadStateChange(HTTP_CALL_STATUS state, void* sender) = 0;

 protected:
  ~IDownloadEventSink() = default;
};

class MacDownloadEngine : public IDownloaderEngine {
 public:
  MacDownloadEngine();
  MacDownloadEngine(const MacDownloadEngine&) = delete;
  MacDownloadEngine& operator=(const MacDownloadEngine&) = delete;
  virtual ~MacDownloadEngine() = default;

  /// A downloader that was started, or null when the URL is none. `postContent` and `headerFields` may be
  /// null. The caller stops the downloader before it releases the engine or the sink.
  std::shared_ptr<MacDownloader> AsyncDownloadWithUrl(std::optional<std::string_view> url, int downloadType,
                                                      IDownloadEventSink* eventSink,
                                                      std::shared_ptr<const foundation::Data> postContent,
                                                      const foundation::Dictionary* headerFields);

  /// The request for `url`; nothing when that is missing or no URL. Also sets the request's kind.
  std::optional<foundation::URLRequest> generateURLRequest(std::optional<std::string_view> url,
                                                           std::shared_ptr<const foundation::Data> postData,
                                                           const foundation::Dictionary* headerFields);

  foundation::Thread baseThread() const override { return m_baseThread; }
  bool isExchAutodiscovering() const override {
    return m_authRequiringType == AuthRequiringType::ExchAutodiscover;
  }
  bool isGlintRequest() const override { return m_authRequiringType == AuthRequiringType::Glint; }
  bool isAdjacency() const { return m_authRequiringType == AuthRequiringType::Adjacency; }
  bool isExchListmeeting() const { return m_authRequiringType == AuthRequiringType::ExchListmeeting; }

  void DownloadStateChanged(MacDownloader& downloader, HTTP_CALL_STATUS state) override;

 private:
  /// The kind of the request. The numbers are told to the host.
  enum class AuthRequiringType : int {
    None = 0,
    ExchAutodiscover = 1,
    ExchListmeeting = 2,
    Adjacency = 3,
    Glint = 4
  };

  void ApplyHeaderField(foundation::URLRequest& request, std::string_view key, std::string_view value);

  const foundation::Thread m_baseThread;
  AuthRequiringType m_authRequiringType = AuthRequiringType::None;
  bool m_bAlreadySendDownloadFinished = false;
};
