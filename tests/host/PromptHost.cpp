#include "tests/host/PromptHost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <utility>

#include "foundation/ZEP_Foundation.h"
#include "tests/host/HostPool.h"

namespace test {
namespace {

std::function<Reply(const Prompt&)> inTurn(std::vector<Reply> replies) {
  return [left = std::make_shared<std::vector<Reply>>(std::move(replies))](const Prompt&) {
    if (left->empty()) {
      return skip();
    }
    Reply next = left->front();
    left->erase(left->begin());
    return next;
  };
}

Prompt parsed(const void* asker, const std::string& info) {
  Prompt prompt{.asker = asker};
  EXPECT_NE(info.find(R"("authLink":"linkValue")"), std::string::npos) << info;
  prompt.warns = info.find(R"("ShowWarningMsg":"true")") != std::string::npos;
  EXPECT_TRUE(prompt.warns || info.find(R"("ShowWarningMsg":"false")") != std::string::npos) << info;
  const std::string label = R"("AuthRequiringType":)";
  const std::size_t at = info.find(label);
  EXPECT_NE(at, std::string::npos) << info;
  prompt.requestType = at == std::string::npos ? -1 : std::stoi(info.substr(at + label.size()));
  return prompt;
}

}  // namespace

void postReply(const Reply& reply) {
  if (reply.kind == Reply::Kind::Silence) {
    return;
  }
  std::string info = headerJson({{"Username", reply.user}, {"Password", reply.password}});
  info.insert(info.rfind('}'), std::string(R"(,"Remember":)") + (reply.remember ? "true" : "false"));
  EXPECT_EQ(ZEP_Notification_Post("HTTPAuthenticationDatasource", nullptr,
                                  reply.kind == Reply::Kind::Skip ? nullptr : info.c_str()),
            0);
}

PromptHost::PromptHost(std::function<Reply(const Prompt&)> answer) : answer_(std::move(answer)) {
  token_ = ZEP_Notification_AddObserver(
      "HTTPAuthenticationRequired",
      [](const char*, const void* object, const char* userInfo, void* host) {
        static_cast<PromptHost*>(host)->asked(object, userInfo);
      },
      this);
}

PromptHost::PromptHost(std::vector<Reply> replies) : PromptHost(inTurn(std::move(replies))) {
}

PromptHost::~PromptHost() {
  ZEP_Notification_RemoveObserver(token_);
}

void PromptHost::asked(const void* asker, const char* userInfo) {
  Reply reply;
  {
    const std::lock_guard lock(mutex_);
    prompts_.push_back(parsed(asker, userInfo != nullptr ? userInfo : ""));
    reply = answer_(prompts_.back());
  }
  postReply(reply);
}

std::vector<Prompt> PromptHost::prompts() const {
  const std::lock_guard lock(mutex_);
  return prompts_;
}

std::vector<bool> PromptHost::warnings() const {
  std::vector<bool> warnings;
  const auto all = prompts();
  std::transform(all.begin(), all.end(), std::back_inserter(warnings),
                 [](const Prompt& one) { return one.warns; });
  return warnings;
}

}  // namespace test
