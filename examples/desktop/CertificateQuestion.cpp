#include "CertificateQuestion.h"

#include "Json.h"
#include "Words.h"
#include "foundation/ZEP_Foundation.h"

namespace example {

CertificateQuestion CertificateQuestion::from(const char* requestJson) {
  constexpr std::size_t kLongestLine = 300;
  constexpr std::size_t kLongestText = 2000;
  const Json::Value request = jsonFrom(requestJson);
  CertificateQuestion question;
  question.isQuestion = request["panel"] == "trust";
  question.host = shownLine(request["host"].asString(), kLongestLine);
  question.message = question.isQuestion
                         ? shownLine(request["message"].asString(), kLongestLine)
                         : "The certificate of \"" + question.host + "\" is for another server";
  question.informativeText = question.isQuestion
                                 ? shownLine(request["informativeText"].asString(), kLongestText)
                                 : "Somebody may pretend to be this server. Nothing has been sent to it.";
  question.declineTitle =
      question.isQuestion ? shownLine(request["alternateButtonTitle"].asString(), kLongestLine) : "Close";
  question.certificate = request["certificates"][0U].asString();
  return question;
}

CertificateTexts::CertificateTexts()
    : observer_(
          ZEP_Notification_AddObserver("HTTPLocalizationRequired", &CertificateTexts::required, nullptr)) {
}

CertificateTexts::~CertificateTexts() {
  ZEP_Notification_RemoveObserver(observer_);
}

// On the thread of the request, which waits for the answer.
void CertificateTexts::required(const char*, const void*, const char*, void*) {
  Json::Value texts(Json::objectValue);
  texts["CertificationMsg"] = "The identity of this server cannot be verified:";
  texts["CertificationInfo"] =
      "Somebody may pretend to be this server. If you continue, it is trusted until the application ends.";
  texts["CertificationAlternateButtonTitle"] = "Cancel";
  ZEP_Notification_Post("HTTPLocalizationDatasource", nullptr, compactJson(texts).c_str());
}

}  // namespace example
