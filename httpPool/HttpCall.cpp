#include "httpPool/HttpCall.h"

#include <utility>

#include "httpPool/HttpCallMacImpl.h"

CHttpCall::CHttpCall() : CHttpCall(std::make_unique<CHttpCallMacImpl>()) {
}

CHttpCall::CHttpCall(std::unique_ptr<IHttp_call_Impl> implementation) : m_pImpl(std::move(implementation)) {
}

CHttpCall::~CHttpCall() = default;

bool CHttpCall::SetCallBack(ICallback_Http_call* callback) {
  return m_pImpl->SetCallBack(callback);
}

bool CHttpCall::LaunchCall(const char* url, const char* postText) {
  return m_pImpl->LaunchCall(url, postText);
}

bool CHttpCall::DownloadFile(const char* url, const char* filePath) {
  return m_pImpl->DownloadFile(url, filePath);
}

int CHttpCall::GetSessionId() {
  return m_pImpl->GetSessionId();
}

bool CHttpCall::GetResult(BasicString& out) {
  return m_pImpl->GetResult(out);
}

bool CHttpCall::GetRedirectUrl(BasicString& out) {
  return m_pImpl->GetRedirectUrl(out);
}

bool CHttpCall::SetHeaderFields(const char* headerJson) {
  return m_pImpl->SetHeaderFields(headerJson);
}

bool CHttpCall::LaunchCall(const char* url, const char* postBytes, int length) {
  return m_pImpl->LaunchCall(url, postBytes, length);
}
