#pragma once

// Builds the request of one launch, starts its downloader, and passes the downloader's state changes on to
// the event sink: the finished state once only. Asks the host, by notifications, for credentials and for the
// texts of dialogs. Made by the platform call for one launch and released by it after the downloader. On its
// base thread, the one that made it; the queries of the request's kind and the two prompts belong to the
// downloader's thread.

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/base/Data.h"
#include "foundation/base/Dictionary.h"
#include "foundation/notification/NotificationCenter.h"
#include "foundation/runloop/Thread.h"
#include "foundation/url/URLRequest.h"
#include "httpPool/IHttpCall.h"
#include "httpPool/MacDownloader.h"

/// The host's texts for dialogs. Exported; null until the host gives them, then never changed and never
/// released. Downloaders' threads set and read it atomically.
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
  bool isAdjacency() const override { return m_authRequiringType == AuthRequiringType::Adjacency; }
  bool isExchListmeeting() const { return m_authRequiringType == AuthRequiringType::ExchListmeeting; }

  void DownloadStateChanged(MacDownloader& downloader, HTTP_CALL_STATUS state) override;

  /// Asks the host for a user name and a password and blocks, without a time limit, until it has answered: with
  /// both, or with neither to skip. What the host leaves empty leaves the caller's text as it is; `isSkip` is
  /// only ever set. True.
  bool OnAskNTLMChallenge(std::string& user, std::string& password, bool& isRemember, bool& isSkip,
                          const MacDownloader& sender) override;
  /// Asks the host for its texts and blocks until it has answered; does nothing once there are some.
  void OnAskLocalization() override;

 protected:
  /// Between two looks at whether the host has answered: 10 seconds.
  virtual void SleepBetweenLooks();

 private:
  /// The kind of the request. The numbers are told to the host.
  enum class AuthRequiringType : int {
    None = 0,
    ExchAutodiscover = 1,
    ExchListmeeting = 2,
    Adjacency = 3,
    Glint = 4
  };

  /// What the host has answered. Shared with the observers, one of which may still be running on the answering
  /// thread when the engine is gone.
  struct Answers {
    /// Looked at between the sleeps.
    std::atomic<bool> m_bWaiting = true;
    std::mutex m_mutex;
    /// Counts the prompts: an answer that was under way to an earlier one is none to this one.
    int m_prompt = 0;
    bool m_rememberForEver = false;
    /// Never cleared again.
    bool m_bSkip = false;
    std::string m_userName;
    std::string m_password;
  };
  using AnswerHandler = void (*)(Answers& answers, const foundation::Notification& notification);

  void ApplyHeaderField(foundation::URLRequest& request, std::string_view key, std::string_view value);
  void Ask(std::string_view question, const foundation::Dictionary* userInfo, std::string_view answer,
           AnswerHandler handler);
  void AskLocalization();
  static void onAuthenticationReceived(Answers& answers, const foundation::Notification& notification);
  static void onLocalizationInfoReceived(Answers& answers, const foundation::Notification& notification);

  const foundation::Thread m_baseThread;
  AuthRequiringType m_authRequiringType = AuthRequiringType::None;
  bool m_bAlreadySendDownloadFinished = false;
  const std::shared_ptr<Answers> m_answers = std::make_shared<Answers>();
};
