#include "httpPool/HttpCallMacImpl.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>

#include "foundation/files/WholeWrite.h"
#include "httpPool/Utf8Text.h"
#include "support/JsonDocumentT.h"
#include "support/JsonValueT.h"
#include "support/logstream.h"

namespace {

constexpr std::size_t kParseStackBytes = 1024;
constexpr int kDownloadType = 0;
constexpr mode_t kFileMode = 0666;

/// Writes the whole file at once. Whether that succeeds is deliberately not reported.
void WriteFile(const char* path, const foundation::Data& content) {
  // Not blocking while it opens: a pipe that nobody reads would hold the host's thread for ever.
  const int file = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, kFileMode);
  if (file >= 0) {
    fcntl(file, F_SETFL, 0);
    content.forEachPiece([file](std::string_view piece) { return foundation::writeWhole(file, piece); });
    close(file);
  }
}

}  // namespace

CHttpCallMacImpl::CHttpCallMacImpl()
    : m_sessionId(static_cast<std::int64_t>(reinterpret_cast<std::intptr_t>(this))), m_eventSink(*this) {
}

CHttpCallMacImpl::~CHttpCallMacImpl() {
  for (const Launch& launch : m_earlier) {
    launch.downloader->Stop();
  }
  if (m_current.downloader) {
    m_current.downloader->Stop();
  }
}

bool CHttpCallMacImpl::SetCallBack(ICallback_Http_call* callback) {
  m_pCallback = callback;
  return true;
}

bool CHttpCallMacImpl::SetHeaderFields(const char* headerJson) {
  m_headerFields = headerJson ? headerJson : "";
  return true;
}

bool CHttpCallMacImpl::LaunchCall(const char* url, const char* postText) {
  return url && URLRequest(url, postText);
}

bool CHttpCallMacImpl::LaunchCall(const char* url, const char* postBytes, int length) {
  return url && URLRequest(url, postBytes, length);
}

bool CHttpCallMacImpl::DownloadFile(const char* url, const char* filePath) {
  if (!url || !filePath) {
    return false;
  }
  m_downloadPath = filePath;
  return URLRequest(url, nullptr);
}

int CHttpCallMacImpl::GetSessionId() {
  return static_cast<int>(static_cast<std::uint32_t>(m_sessionId));
}

bool CHttpCallMacImpl::URLRequest(const char* url, const char* postText) {
  return StartDownload(
      url, postText ? std::make_shared<const foundation::Data>(postText, std::strlen(postText)) : nullptr);
}

bool CHttpCallMacImpl::URLRequest(const char* url, const char* postBytes, int length) {
  const auto size = static_cast<std::size_t>(std::max(length, 0));
  return StartDownload(url, postBytes ? std::make_shared<const foundation::Data>(postBytes, size) : nullptr);
}

bool CHttpCallMacImpl::StartDownload(const char* url, std::shared_ptr<const foundation::Data> body) {
  const foundation::Dictionary headerFields = ParseHeaders();
  KeepCurrentIfRunning();
  m_current.engine = std::make_unique<MacDownloadEngine>();
  m_current.downloader = m_current.engine->AsyncDownloadWithUrl(url, kDownloadType, &m_eventSink,
                                                                std::move(body), &headerFields);
  if (!m_current.downloader) {
    return false;
  }
  logstream(QLX_LEVEL_DEBUG, "Unknown").l_value()
      << "CHttpCallMacImpl::StartDownload"
      << ", SessionID: " << m_sessionId
      << ", downloader: " << static_cast<const void*>(m_current.downloader.get()) << std::endl;
  return true;
}

void CHttpCallMacImpl::KeepCurrentIfRunning() {
  std::erase_if(m_earlier, [](const Launch& launch) { return !launch.downloader->IsStarted(); });
  if (m_current.downloader && m_current.downloader->IsStarted()) {
    m_earlier.push_back(std::move(m_current));
  }
  m_current.downloader.reset();
  m_current.engine.reset();
}

foundation::Dictionary CHttpCallMacImpl::ParseHeaders() const {
  foundation::Dictionary fields;
  if (m_headerFields.empty()) {
    return fields;
  }
  JsonDocumentT document(kParseStackBytes);
  document.parse(m_headerFields);
  if (!document.isObject()) {
    return fields;
  }
  for (const JsonValueT::Member& member : static_cast<const JsonValueT&>(document)) {
    const std::string name = member.name.asString();
    std::string value = member.value.asString();
    if (IsUtf8(name) && IsUtf8(value)) {
      fields.set(name, std::move(value));
    }
  }
  return fields;
}

bool CHttpCallMacImpl::GetResult(BasicString& out) {
  const int errorCode = m_current.downloader ? m_current.downloader->errorCode() : DOWNLOAD_ERROR_NONE;
  return errorCode != DOWNLOAD_ERROR_NONE ? GetErrorResult(errorCode, out) : GetSuccessResult(out);
}

bool CHttpCallMacImpl::GetErrorResult(int errorCode, BasicString& out) const {
  JsonValueT result(JsonValueT::ValueType::Object);
  result.addMember("errorID", errorCode);
  result.addMember("errorReason", m_current.downloader->GetExtraData());
  out = result.valueToString();
  return true;
}

bool CHttpCallMacImpl::GetSuccessResult(BasicString& out) const {
  const auto data = m_current.downloader ? m_current.downloader->GetData() : nullptr;
  if (!data) {
    return false;
  }
  if (!m_downloadPath.empty()) {
    WriteFile(m_downloadPath.c_str(), *data);
    out = m_downloadPath;
    return true;
  }
  AssignText(out, *data);
  logstream(QLX_LEVEL_DEBUG, "Unknown").l_value()
      << "GetSuccessResult"
      << ", SessionID: " << m_sessionId << ", Response: " << out << std::endl;
  return true;
}

bool CHttpCallMacImpl::GetRedirectUrl(BasicString& out) {
  const std::string redirectUrl =
      m_current.downloader ? m_current.downloader->GetRedirectUrl() : std::string();
  if (!redirectUrl.empty()) {
    out = redirectUrl;
  }
  return !redirectUrl.empty();
}

bool CHttpCallMacImpl::OnDownloadStateChange(HTTP_CALL_STATUS state, void* /*sender*/) {
  logstream(QLX_LEVEL_DEBUG, "Unknown").l_value()
      << "CHttpCallMacImpl::OnDownloadStateChange,  SessionID: " << m_sessionId
      << ", state:" << static_cast<int>(state) << std::endl;
  return m_pCallback->NotifyHttpCallStatus(GetSessionId(), state);
}
