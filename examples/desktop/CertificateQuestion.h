// What the library asks when a server's certificates do not hold, and the texts that it asks for before.
#pragma once

#include <string>

namespace example {

struct CertificateQuestion {
  // False: the certificate is only shown, because it is for another host; no answer counts.
  bool isQuestion = false;
  std::string host;
  std::string message;
  std::string informativeText;
  std::string declineTitle;
  std::string certificate;  // PEM, the server's own

  // Of the text that a ZEP_TrustPanelRunner is given.
  static CertificateQuestion from(const char* requestJson);
};

// While it lives, the library gets the example's own texts for its questions.
class CertificateTexts {
 public:
  CertificateTexts();
  ~CertificateTexts();
  CertificateTexts(const CertificateTexts&) = delete;
  CertificateTexts& operator=(const CertificateTexts&) = delete;

 private:
  static void required(const char* name, const void* object, const char* userInfo, void* context);

  const long observer_;
};

}  // namespace example
