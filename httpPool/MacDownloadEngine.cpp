#include "httpPool/MacDownloadEngine.h"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <utility>

#include "httpPool/TracedUrl.h"
#include "support/logstream.h"

foundation::Dictionary* g_localizationStr = nullptr;

namespace {

constexpr const char* kAsyncDownload =
    "-[MacDownloadEngine AsyncDownloadWithUrl:downloadType:eventSink:postContent:headerFields:]";
constexpr const char* kGenerateRequest = "-[MacDownloadEngine generateURLRequest:postData:headerFields:]";
constexpr const char* kStateChanged = "-[MacDownloadEngine DownloadStateChanged:]";

/// Deliberately 1: the try that has just failed is counted already, so no request is ever repeated.
constexpr int kTryLimit = 1;

constexpr const char* kAuthenticationRequired = "HTTPAuthenticationRequired";
constexpr const char* kAuthenticationDatasource = "HTTPAuthenticationDatasource";
constexpr const char* kLocalizationRequired = "HTTPLocalizationRequired";
constexpr const char* kLocalizationDatasource = "HTTPLocalizationDatasource";

/// The engine's road to the texts: any number of threads at once.
std::atomic_ref<foundation::Dictionary*> LocalizationTexts() {
  return std::atomic_ref<foundation::Dictionary*>(g_localizationStr);
}

void Assign(std::string& target, const foundation::Dictionary& info, std::string_view key) {
  const foundation::Value* value = info.find(key);
  if (value && value->text()) {
    target = *value->text();
  }
}

}  // namespace

MacDownloadEngine::MacDownloadEngine() : m_baseThread(foundation::Thread::current()) {
}

std::shared_ptr<MacDownloader> MacDownloadEngine::AsyncDownloadWithUrl(
    std::optional<std::string_view> url, int downloadType, IDownloadEventSink* eventSink,
    std::shared_ptr<const foundation::Data> postContent, const foundation::Dictionary* headerFields) {
  auto request = generateURLRequest(url, std::move(postContent), headerFields);
  if (!request) {
    logstream(QLX_LEVEL_ERROR, "Unknown").l_value()
        << kAsyncDownload << " "
        << "urlRequest is nil, url:" << TracedUrl{url.value_or("")} << std::endl;
    return nullptr;
  }
  auto downloader = std::make_shared<MacDownloader>(std::move(request));
  downloader->setTag(downloadType);
  downloader->SetEventSink(eventSink);
  downloader->SetDownloadEngine(this);
  downloader->Start();
  return downloader;
}

std::optional<foundation::URLRequest> MacDownloadEngine::generateURLRequest(
    std::optional<std::string_view> url, std::shared_ptr<const foundation::Data> postData,
    const foundation::Dictionary* headerFields) {
  if (!url) {
    logstream(QLX_LEVEL_ERROR, "Unknown").l_value() << kGenerateRequest << " "
                                                    << "url is empty" << std::endl;
    return std::nullopt;
  }
  auto destUrl = foundation::URL::parse(*url);
  if (!destUrl) {
    logstream(QLX_LEVEL_ERROR, "Unknown").l_value()
        << kGenerateRequest << " "
        << "destUrl is empty, url:" << TracedUrl{*url} << std::endl;
    return std::nullopt;
  }
  foundation::URLRequest request(std::move(*destUrl));
  request.setCachePolicy(foundation::CachePolicy::ReloadIgnoringLocalCacheData);
  request.setHTTPMethod("POST");
  if (postData) {
    // The low 32 bits of the length; on the wire the body's own length counts.
    const auto length = static_cast<unsigned int>(postData->length());
    request.setHTTPBody(std::move(postData));
    request.setValueForHTTPHeaderField(std::to_string(length), "Content-Length");
  }
  request.setValueForHTTPHeaderField("application/x-www-form-urlencoded", "Content-Type");
  if (headerFields) {
    for (const auto& [key, value] : headerFields->entries()) {
      ApplyHeaderField(request, key, value.text() ? *value.text() : std::string_view());
    }
  }
  return request;
}

void MacDownloadEngine::ApplyHeaderField(foundation::URLRequest& request, std::string_view key,
                                         std::string_view value) {
  if (key == "Exchange-Autodiscover") {
    m_authRequiringType = AuthRequiringType::ExchAutodiscover;
    return;
  }
  if (key == "Exchange-Listmeeting") {
    m_authRequiringType = AuthRequiringType::ExchListmeeting;
    return;
  }
  if (key == "Adjacency") {
    m_authRequiringType = AuthRequiringType::Adjacency;
    return;
  }
  if (key == "Glint") {
    // Unlike the three above it is sent, too, on purpose.
    m_authRequiringType = AuthRequiringType::Glint;
  }
  if (key == "HttpMethonGet") {  // The spelling is part of the interface.
    request.setHTTPMethod("GET");
  } else if (key == "HttpMethod") {
    request.setHTTPMethod(value);
  } else {
    request.setValueForHTTPHeaderField(value, key);
  }
}

void MacDownloadEngine::DownloadStateChanged(MacDownloader& downloader, HTTP_CALL_STATUS state) {
  if (state == HTTP_CALL_FAILED && downloader.errorCode() == DOWNLOAD_ERROR_CONNECTION) {
    if (downloader.GetTryCount() < kTryLimit) {
      logstream(QLX_LEVEL_INFO, "Unknown").l_value()
          << kStateChanged << " "
          << "http call failed, retry! url:" << TracedUrl{downloader.GetTargetUrlString()} << std::endl;
      downloader.Start();
      return;
    }
    // The text says 3 although the limit is 1; it stays as it is.
    logstream(QLX_LEVEL_INFO, "Unknown").l_value()
        << kStateChanged << " "
        << "http call retry count > 3, failed! url:" << TracedUrl{downloader.GetTargetUrlString()}
        << std::endl;
  }
  if (state == HTTP_CALL_SUCCEEDED && std::exchange(m_bAlreadySendDownloadFinished, true)) {
    return;
  }
  if (IDownloadEventSink* eventSink = downloader.GetEventSink()) {
    logstream(QLX_LEVEL_DEBUG, "Unknown").l_value() << kStateChanged << " "
                                                    << "state:" << static_cast<int>(state) << std::endl;
    eventSink->OnDownloadStateChange(state, &downloader);
  }
}

// --- The prompts, on the downloader's thread. ---

bool MacDownloadEngine::OnAskNTLMChallenge(std::string& user, std::string& password, bool& isRemember,
                                           bool& isSkip, const MacDownloader& sender) {
  const foundation::Dictionary userInfo = {
      {"authLink", "linkValue"},
      {"ShowWarningMsg", sender.isShowWarningMsg() ? "true" : "false"},
      {"AuthRequiringType", static_cast<int>(m_authRequiringType)},
  };
  Ask(kAuthenticationRequired, &userInfo, kAuthenticationDatasource, &onAuthenticationReceived);

  const std::lock_guard lock(m_answers->m_mutex);
  if (m_answers->m_bSkip) {
    isSkip = true;
  }
  if (!m_answers->m_userName.empty()) {
    user = m_answers->m_userName;
  }
  if (!m_answers->m_password.empty()) {
    password = m_answers->m_password;
  }
  isRemember = m_answers->m_rememberForEver;
  return true;
}

void MacDownloadEngine::OnAskLocalization() {
  if (LocalizationTexts().load() == nullptr) {
    AskLocalization();
  }
}

void MacDownloadEngine::AskLocalization() {
  Ask(kLocalizationRequired, nullptr, kLocalizationDatasource, &onLocalizationInfoReceived);
}

/// Posts the question, and waits for the answer of whoever gives one, inside the post or later from any thread.
void MacDownloadEngine::Ask(std::string_view question, const foundation::Dictionary* userInfo,
                            std::string_view answer, AnswerHandler handler) {
  auto& center = foundation::NotificationCenter::defaultCenter();
  const void* const observer = m_answers.get();
  int prompt = 0;
  {
    const std::lock_guard lock(m_answers->m_mutex);
    prompt = ++m_answers->m_prompt;
  }
  center.addObserver(
      observer, answer,
      [answers = m_answers, prompt, process = getpid(),
       handler](const foundation::Notification& notification) {
        if (getpid() != process) {
          return;  // the child of a fork has not got the thread that asks, nor what that may have locked
        }
        const std::lock_guard lock(answers->m_mutex);
        if (answers->m_prompt != prompt || !answers->m_bWaiting) {
          return;  // another answer was first
        }
        handler(*answers, notification);
        // Before the wait ends: behind it the observer of the next prompt has the same identity.
        foundation::NotificationCenter::defaultCenter().removeObserver(answers.get(), notification.name);
        answers->m_bWaiting = false;
      });
  center.post(question, this, userInfo);
  while (m_answers->m_bWaiting) {
    SleepBetweenLooks();
  }
  center.removeObserver(observer);
  const std::lock_guard lock(m_answers->m_mutex);
  ++m_answers->m_prompt;
  m_answers->m_bWaiting = true;
}

void MacDownloadEngine::SleepBetweenLooks() {
  std::this_thread::sleep_for(std::chrono::seconds(10));
}

void MacDownloadEngine::onAuthenticationReceived(Answers& answers,
                                                 const foundation::Notification& notification) {
  if (notification.userInfo == nullptr) {
    answers.m_bSkip = true;
    return;
  }
  Assign(answers.m_password, *notification.userInfo, "Password");
  Assign(answers.m_userName, *notification.userInfo, "Username");
  const foundation::Value* remember = notification.userInfo->find("Remember");
  answers.m_rememberForEver = remember != nullptr && remember->boolValue();
}

void MacDownloadEngine::onLocalizationInfoReceived(Answers& /*answers*/,
                                                   const foundation::Notification& notification) {
  if (notification.userInfo == nullptr) {
    return;
  }
  auto texts = std::make_unique<foundation::Dictionary>(*notification.userInfo);
  foundation::Dictionary* none = nullptr;
  if (LocalizationTexts().compare_exchange_strong(none, texts.get())) {
    [[maybe_unused]] const auto* kept = texts.release();  // to the end of the process
  }
}
