#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Fakes.h"
#include "httpPool/HttpCall.h"

namespace {

using testing::ElementsAre;

TEST(HttpCallTest, ForwardsEverythingUnchanged) {
  CallScript script;
  script.result = "result";
  script.redirectUrl = "http://b/";
  CHttpCall call(std::make_unique<FakeCallImpl>(script));
  RecordingCallback callback;
  BasicString out;

  EXPECT_TRUE(call.SetCallBack(&callback));
  EXPECT_EQ(script.callback, &callback);
  EXPECT_TRUE(call.SetHeaderFields("{}"));
  EXPECT_TRUE(call.LaunchCall("http://a/", "text"));
  EXPECT_TRUE(call.LaunchCall("http://a/", nullptr));
  EXPECT_TRUE(call.LaunchCall("http://a/", "bytes", 3));
  EXPECT_TRUE(call.DownloadFile("http://a/", "/file"));
  EXPECT_EQ(call.GetSessionId(), 7);
  EXPECT_TRUE(call.GetResult(out));
  EXPECT_EQ(out, "result");
  call.GetRedirectUrl(out);
  EXPECT_EQ(out, "http://b/");
  EXPECT_THAT(script.log, ElementsAre("SetCallBack", "SetHeaderFields {}", "LaunchCall http://a/ text",
                                      "LaunchCall http://a/ (null)", "LaunchCall http://a/ bytes byt",
                                      "DownloadFile http://a/ /file", "GetResult", "GetRedirectUrl"));
}

TEST(HttpCallTest, ReturnsWhatTheImplementationReturns) {
  CallScript script;
  script.launchAnswer = false;
  CHttpCall call(std::make_unique<FakeCallImpl>(script));
  BasicString out("before");
  EXPECT_FALSE(call.LaunchCall("u", nullptr));
  EXPECT_FALSE(call.LaunchCall("u", "b", 1));
  EXPECT_FALSE(call.DownloadFile("u", "f"));
  EXPECT_FALSE(call.GetResult(out));
  EXPECT_EQ(out, "before");
}

TEST(HttpCallTest, DeletesItsImplementationOnce) {
  CallScript script;
  {
    const std::unique_ptr<IHttp_call> call =
        std::make_unique<CHttpCall>(std::make_unique<FakeCallImpl>(script));
    EXPECT_EQ(script.alive, 1);
  }
  EXPECT_EQ(script.alive, 0);
}

TEST(HttpCallTest, StatesHaveTheirNumbers) {
  EXPECT_EQ(HTTP_CALL_SUCCEEDED, 0);
  EXPECT_EQ(HTTP_CALL_FAILED, 1);
  EXPECT_EQ(HTTP_CALL_PENDING, 2);
  EXPECT_EQ(HTTP_CALL_ERROR_3, 3);
  EXPECT_EQ(HTTP_CALL_TIMEOUT, 4);
  EXPECT_EQ(HTTP_CALL_ERROR_5, 5);
  EXPECT_EQ(HTTP_CALL_ERROR_6, 6);
  EXPECT_EQ(HTTP_CALL_RECEIVING, 7);
  EXPECT_EQ(HTTP_CALL_REDIRECTED, 8);
  EXPECT_EQ(sizeof(HTTP_CALL_STATUS), 4U);
}

}  // namespace
