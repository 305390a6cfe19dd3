// What the examples read out of a request for a certificate panel, and the texts they give.

#include <gtest/gtest.h>

#include <string>

#include "examples/desktop/CertificateQuestion.h"
#include "foundation/ZEP_Foundation.h"

namespace example {
namespace {

std::string request(const std::string& panel) {
  return "{\"panel\":\"" + panel +
         "\",\"host\":\"a\\nb\",\"message\":\"m\\u202E\",\"informativeText\":\"i\","
         "\"alternateButtonTitle\":\"No\",\"certificates\":[\"leaf\",\"issuer\"]}";
}

TEST(ExampleCertificateQuestion, IsAskedWithTheTextsOfTheRequest) {
  const CertificateQuestion question = CertificateQuestion::from(request("trust").c_str());
  EXPECT_TRUE(question.isQuestion);
  EXPECT_EQ(question.host, "a b");
  EXPECT_EQ(question.message, "m\\u{202E}");
  EXPECT_EQ(question.informativeText, "i");
  EXPECT_EQ(question.declineTitle, "No");
  EXPECT_EQ(question.certificate, "leaf");
}

TEST(ExampleCertificateQuestion, OfAnotherHostIsNone) {
  const CertificateQuestion question = CertificateQuestion::from(request("certificate").c_str());
  EXPECT_FALSE(question.isQuestion);
  EXPECT_EQ(question.declineTitle, "Close");
  EXPECT_NE(question.message.find("\"a b\" is for another server"), std::string::npos);
  EXPECT_EQ(question.certificate, "leaf");
}

TEST(ExampleCertificateTexts, AreGivenAsLongAsTheObjectLives) {
  std::string given;
  const auto note = [](const char*, const void*, const char* userInfo, void* context) {
    *static_cast<std::string*>(context) += userInfo;
  };
  const long token = ZEP_Notification_AddObserver("HTTPLocalizationDatasource", note, &given);
  {
    const CertificateTexts texts;
    ZEP_Notification_Post("HTTPLocalizationRequired", nullptr, nullptr);
  }
  for (const char* key : {"\"CertificationMsg\":\"", "\"CertificationInfo\":\"",
                          "\"CertificationAlternateButtonTitle\":\"Cancel\""}) {
    EXPECT_NE(given.find(key), std::string::npos) << given;
  }
  given.clear();
  ZEP_Notification_Post("HTTPLocalizationRequired", nullptr, nullptr);
  EXPECT_EQ(given, "");
  ZEP_Notification_RemoveObserver(token);
}

}  // namespace
}  // namespace example
