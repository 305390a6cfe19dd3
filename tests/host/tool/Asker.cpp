#include "Asker.h"

#include "foundation/ZEP_Foundation.h"

namespace tooltest {

std::optional<std::string> Asker::ask(Rejected rejected) {
  const std::string warning = rejected == Rejected::Yes ? "true" : "false";
  const std::string info =
      R"({"authLink":"linkValue","ShowWarningMsg":")" + warning + R"(","AuthRequiringType":0})";
  return askWith(info.c_str());
}

std::optional<std::string> Asker::askWith(const char* userInfo) {
  {
    const std::lock_guard lock(mutex_);
    answer_.reset();
  }
  const long observer = ZEP_Notification_AddObserver("HTTPAuthenticationDatasource", &Asker::answered, this);
  ZEP_Notification_Post("HTTPAuthenticationRequired", this, userInfo);
  ZEP_Notification_RemoveObserver(observer);
  const std::lock_guard lock(mutex_);
  return answer_;
}

// The first answer counts.
void Asker::answered(const char* /*name*/, const void* /*object*/, const char* userInfo, void* context) {
  auto& asker = *static_cast<Asker*>(context);
  const std::lock_guard lock(asker.mutex_);
  if (!asker.answer_) {
    asker.answer_ = userInfo == nullptr ? kSkip : userInfo;
  }
}

std::string answerText(const std::string& user, const std::string& password, bool remember) {
  return R"({"Username":")" + user + R"(","Password":")" + password + R"(","Remember":)" +
         (remember ? "true" : "false") + "}";
}

}  // namespace tooltest
