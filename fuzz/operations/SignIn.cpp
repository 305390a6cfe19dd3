#include "fuzz/operations/SignIn.h"

#include <array>

#include "foundation/ZEP_Foundation.h"
#include "fuzz/Require.h"

namespace operations {

SignIn& SignIn::shared() {
  static SignIn& signIn = *new SignIn;
  return signIn;
}

SignIn::SignIn() {
  require(ZEP_Notification_AddObserver("HTTPAuthenticationRequired", &SignIn::asked, this) > 0);
}

void SignIn::asked(const char* /*name*/, const void* /*object*/, const char* userInfo, void* context) {
  require(userInfo != nullptr);
  constexpr std::array<const char*, kAnswers> kTexts = {R"({"Username":"u","Password":"p","Remember":true})",
                                                        R"({"Username":"u","Password":"x","Remember":true})",
                                                        R"({"Username":"u"})", nullptr};
  ZEP_Notification_Post("HTTPAuthenticationDatasource", nullptr,
                        kTexts.at(static_cast<SignIn*>(context)->chosen_));
}

}  // namespace operations
