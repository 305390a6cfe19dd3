#pragma once

// Stand-ins for the neighbours of a class that is tested alone. Each records what it is told.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "foundation/url/URLConnection.h"
#include "httpPool/IHttpCall.h"
#include "httpPool/MacDownloadEngine.h"
#include "httpPool/MacDownloader.h"

struct RecordingCallback final : ICallback_Http_call {
  bool NotifyHttpCallStatus(int session, HTTP_CALL_STATUS status) override {
    notices.emplace_back(session, status);
    return answer;
  }
  bool ended() const {
    return !notices.empty() &&
           (notices.back().second == HTTP_CALL_SUCCEEDED || notices.back().second == HTTP_CALL_FAILED);
  }

  std::vector<std::pair<int, HTTP_CALL_STATUS>> notices;
  bool answer = true;
};

struct RecordingSink final : IDownloadEventSink {
  bool OnDownloadStateChange(HTTP_CALL_STATUS state, void* sender) override {
    states.push_back(state);
    lastSender = sender;
    return true;
  }

  std::vector<HTTP_CALL_STATUS> states;
  void* lastSender = nullptr;
};

/// What a FakeCallImpl was told and what it answers; outlives the call.
struct CallScript {
  std::vector<std::string> log;
  int sessionId = 7;
  bool launchAnswer = true;
  std::optional<std::string> result;
  std::string redirectUrl;
  ICallback_Http_call* callback = nullptr;
  int alive = 0;
};

class FakeCallImpl : public IHttp_call_Impl {
 public:
  explicit FakeCallImpl(CallScript& script) : m_script(script) { ++m_script.alive; }
  ~FakeCallImpl() override { --m_script.alive; }

  bool SetCallBack(ICallback_Http_call* callback) override {
    m_script.callback = callback;
    m_script.log.emplace_back("SetCallBack");
    return true;
  }
  bool SetHeaderFields(const char* headerJson) override {
    m_script.log.push_back(std::string("SetHeaderFields ") + headerJson);
    return true;
  }
  bool LaunchCall(const char* url, const char* postText) override {
    m_script.log.push_back(std::string("LaunchCall ") + url + " " + (postText ? postText : "(null)"));
    return m_script.launchAnswer;
  }
  bool LaunchCall(const char* url, const char* postBytes, int length) override {
    m_script.log.push_back(std::string("LaunchCall ") + url + " bytes " +
                           std::string(postBytes, static_cast<std::size_t>(length)));
    return m_script.launchAnswer;
  }
  bool DownloadFile(const char* url, const char* filePath) override {
    m_script.log.push_back(std::string("DownloadFile ") + url + " " + filePath);
    return m_script.launchAnswer;
  }
  int GetSessionId() override { return m_script.sessionId; }
  bool GetResult(BasicString& out) override {
    m_script.log.emplace_back("GetResult");
    if (m_script.result) {
      out = *m_script.result;
    }
    return m_script.result.has_value();
  }
  bool GetRedirectUrl(BasicString& out) override {
    m_script.log.emplace_back("GetRedirectUrl");
    if (!m_script.redirectUrl.empty()) {
      out = m_script.redirectUrl;
    }
    return true;
  }

 private:
  CallScript& m_script;
};

struct FakeEngine final : IDownloaderEngine {
  foundation::Thread baseThread() const override { return base; }
  bool isExchAutodiscovering() const override { return exchAutodiscovering; }
  bool isGlintRequest() const override { return glint; }
  bool isAdjacency() const override { return adjacency; }
  void OnAskLocalization() override { ++localizationsAsked; }
  bool OnAskNTLMChallenge(std::string& user, std::string& password, bool& isRemember, bool& isSkip,
                          const MacDownloader& sender) override {
    warnings.push_back(sender.isShowWarningMsg());
    if (onAsk) {
      onAsk(user, password, isRemember, isSkip);
    }
    return true;
  }
  void DownloadStateChanged(MacDownloader& downloader, HTTP_CALL_STATUS state) override {
    states.push_back(state);
    startedFlags.push_back(downloader.IsStarted());
    if (onState) {
      onState(state);
    }
  }

  foundation::Thread base = foundation::Thread::current();
  bool exchAutodiscovering = false;
  bool glint = false;
  bool adjacency = false;
  int localizationsAsked = 0;
  /// One for each time that credentials were asked for: whether the prompt was to warn.
  std::vector<bool> warnings;
  std::function<void(std::string& user, std::string& password, bool& isRemember, bool& isSkip)> onAsk;
  std::vector<HTTP_CALL_STATUS> states;
  std::vector<bool> startedFlags;
  std::function<void(HTTP_CALL_STATUS)> onState;
};

/// A delegate for connections whose events nobody looks at.
struct DeafDelegate : foundation::URLConnectionDelegate {
  std::optional<foundation::URLRequest> connectionWillSendRequest(foundation::URLConnection&,
                                                                  const foundation::URLRequest& request,
                                                                  const foundation::URLResponse*) override {
    return request;
  }
  void connectionDidReceiveResponse(foundation::URLConnection&, const foundation::URLResponse&) override {}
  void connectionDidReceiveData(foundation::URLConnection&, foundation::Data&&) override {}
  void connectionDidFinishLoading(foundation::URLConnection&) override {}
  void connectionDidFailWithError(foundation::URLConnection&, const foundation::Error&) override {}
};
