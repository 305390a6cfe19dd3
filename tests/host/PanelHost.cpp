#include "tests/host/PanelHost.h"

#include <gtest/gtest.h>

#include <utility>

#include "foundation/ZEP_Foundation.h"

namespace test {

PanelHost::PanelHost(std::function<int(const std::string&)> answer, std::string texts)
    : answer_(std::move(answer)), texts_(std::move(texts)) {
  token_ = ZEP_Notification_AddObserver(
      "HTTPLocalizationRequired",
      [](const char*, const void*, const char* userInfo, void* host) {
        EXPECT_EQ(userInfo, nullptr);
        const std::string& answer = static_cast<PanelHost*>(host)->texts_;
        EXPECT_EQ(ZEP_Notification_Post("HTTPLocalizationDatasource", nullptr,
                                        answer.empty() ? nullptr : answer.c_str()),
                  0);
      },
      this);
  EXPECT_EQ(ZEP_TrustPanel_SetRunner(
                [](const char* request, void* host) {
                  auto& self = *static_cast<PanelHost*>(host);
                  self.panels_.emplace_back(request);
                  return self.answer_(self.panels_.back());
                },
                this),
            0);
}

PanelHost::~PanelHost() {
  ZEP_TrustPanel_SetRunner(nullptr, nullptr);
  ZEP_Notification_RemoveObserver(token_);
}

std::vector<std::string> PanelHost::kinds() const {
  std::vector<std::string> kinds;
  for (const std::string& panel : panels_) {
    kinds.push_back(textMember(panel, "panel"));
  }
  return kinds;
}

std::string textMember(const std::string& json, const std::string& name) {
  const std::string label = "\"" + name + "\":\"";
  const std::size_t at = json.find(label);
  std::string text;
  for (std::size_t i = at == std::string::npos ? json.size() : at + label.size(); i < json.size(); ++i) {
    if (json[i] == '"') {
      return text;
    }
    if (json[i] == '\\' && i + 1 < json.size() && json[i + 1] == '"') {
      ++i;
    }
    text.push_back(json[i]);
  }
  return text;
}

}  // namespace test
