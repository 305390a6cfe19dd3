#pragma once

// The call that a task owns: a facade that forwards everything, unchanged and unchecked, to its
// implementation and has no state of its own. Deleting it ends a request that is still running.

#include <memory>

#include "httpPool/IHttpCall.h"

class CHttpCall : public IHttp_call {
 public:
  /// Over a new CHttpCallMacImpl.
  CHttpCall();
  /// Over the given implementation.
  explicit CHttpCall(std::unique_ptr<IHttp_call_Impl> implementation);
  ~CHttpCall() override;

  bool SetCallBack(ICallback_Http_call* callback) override;
  bool LaunchCall(const char* url, const char* postText) override;
  bool DownloadFile(const char* url, const char* filePath) override;
  int GetSessionId() override;
  bool GetResult(BasicString& out) override;
  bool GetRedirectUrl(BasicString& out) override;

  virtual bool SetHeaderFields(const char* headerJson);
  virtual bool LaunchCall(const char* url, const char* postBytes, int length);

 private:
  std::unique_ptr<IHttp_call_Impl> m_pImpl;
};
