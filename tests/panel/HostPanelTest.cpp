// A host's own panel, and the text it is asked with.

#include <glib.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "foundation/ZEP_Foundation.h"
#include "foundation/panel/CertificatePanel.h"
#include "foundation/panel/CertificateTrustPanel.h"
#include "foundation/panel/PanelRequest.h"
#include "foundation/panel/TrustPanelRunner.h"
#include "foundation/runloop/DispatchQueue.h"
#include "foundation/runloop/RunLoop.h"
#include "tests/panel/Warnings.h"

namespace test {
namespace {

using foundation::PanelKind;
using foundation::PanelRequest;
using foundation::RunLoop;
using foundation::RunLoopMode;

/// What the host's panel was asked, and what it answers.
struct Host {
  int answer = 1;
  std::vector<std::string> requests;
  std::vector<std::thread::id> threads;
  std::vector<RunLoopMode> modes;
};

int ask(const char* requestJson, void* context) {
  auto& host = *static_cast<Host*>(context);
  host.requests.emplace_back(requestJson);
  host.threads.push_back(std::this_thread::get_id());
  host.modes.push_back(RunLoop::currentMode());
  return host.answer;
}

class HostPanel : public testing::Test {
 protected:
  ~HostPanel() override { ZEP_TrustPanel_SetRunner(nullptr, nullptr); }

  Warnings warnings;
  Host host;
};

const PanelRequest kRequest = {.kind = PanelKind::Trust,
                               .host = "panel.test",
                               .message = "Trust \"panel.test\"?\n",
                               .informativeText = "\xC3\xA4 \\ \x01",
                               .alternateButtonTitle = "No",
                               .certificates = {"-----BEGIN 1\n", "-----BEGIN 2\n"}};

TEST_F(HostPanel, IsAskedWithTheRequestAndItsAnswerCounts) {
  EXPECT_EQ(ZEP_TrustPanel_SetRunner(ask, &host), 0);
  EXPECT_TRUE(foundation::runPanel(kRequest));
  EXPECT_EQ(host.requests,
            std::vector<std::string>{"{\"panel\":\"trust\",\"host\":\"panel.test\","
                                     "\"message\":\"Trust \\\"panel.test\\\"?\\n\","
                                     "\"informativeText\":\"\xC3\xA4 \\\\ \\u0001\","
                                     "\"alternateButtonTitle\":\"No\","
                                     "\"certificates\":[\"-----BEGIN 1\\n\",\"-----BEGIN 2\\n\"]}"});
  EXPECT_EQ(host.modes, std::vector<RunLoopMode>{RunLoopMode::ModalPanel});
  EXPECT_EQ(RunLoop::currentMode(), RunLoopMode::Default);
  EXPECT_EQ(warnings.text(), "");
}

TEST_F(HostPanel, OnlyOneIsAConfirmation) {
  ZEP_TrustPanel_SetRunner(ask, &host);
  for (const int answer : {0, -1, 2, 256, 257, -2147483647}) {
    host.answer = answer;
    EXPECT_FALSE(foundation::runPanel(kRequest)) << answer;
  }
  EXPECT_EQ(host.requests.size(), 6U);
}

TEST_F(HostPanel, OfACertificateConfirmsNothing) {
  ZEP_TrustPanel_SetRunner(ask, &host);
  PanelRequest request = kRequest;
  request.kind = PanelKind::Certificate;
  EXPECT_FALSE(foundation::runPanel(request));
  ASSERT_EQ(host.requests.size(), 1U);
  EXPECT_EQ(host.requests[0].find("{\"panel\":\"certificate\","), 0U);
}

TEST_F(HostPanel, IsGoneAfterNull) {
  setenv("ZEP_TRUST_PANEL", "/nowhere/zep-trust-panel", 1);
  ZEP_TrustPanel_SetRunner(ask, &host);
  EXPECT_EQ(ZEP_TrustPanel_SetRunner(nullptr, &host), 0);
  EXPECT_FALSE(foundation::runPanel(kRequest));
  EXPECT_EQ(host.requests.size(), 0U);
  EXPECT_EQ(warnings.text(), "certificate panel not shown: there is no program zep-trust-panel\n");
  unsetenv("ZEP_TRUST_PANEL");
}

TEST_F(HostPanel, IsAskedByThePanelsOfTheSystem) {
  ZEP_TrustPanel_SetRunner(ask, &host);
  foundation::CertificateTrustPanel trust;
  trust.setInformativeText("info");
  EXPECT_EQ(trust.runModalForTrust({"leaf", "issuer"}, "h", "m"), 1);
  host.answer = 0;
  trust.setAlternateButtonTitle("No");
  EXPECT_EQ(trust.runModalForTrust({"leaf"}, "h", "m"), 0);
  foundation::CertificatePanel().runModalForTrust({"leaf", "issuer"}, "h", foundation::ShowGroup::Yes);
  foundation::CertificatePanel().runModalForTrust({"leaf", "issuer"}, "h", foundation::ShowGroup::No);
  const std::string trustBegin =
      "{\"panel\":\"trust\",\"host\":\"h\",\"message\":\"m\",\"informativeText\":\"info\",";
  const std::string certificateBegin =
      "{\"panel\":\"certificate\",\"host\":\"h\",\"message\":\"\",\"informativeText\":\"\","
      "\"alternateButtonTitle\":\"\",";
  EXPECT_EQ(host.requests,
            (std::vector<std::string>{
                trustBegin + "\"alternateButtonTitle\":\"Cancel\",\"certificates\":[\"leaf\",\"issuer\"]}",
                trustBegin + "\"alternateButtonTitle\":\"No\",\"certificates\":[\"leaf\"]}",
                certificateBegin + "\"certificates\":[\"leaf\",\"issuer\"]}",
                certificateBegin + "\"certificates\":[\"leaf\"]}"}));
}

TEST_F(HostPanel, IsAskedOnTheMainThreadForAWorker) {
  ZEP_TrustPanel_SetRunner(ask, &host);
  std::atomic<int> answer{-1};
  EXPECT_TRUE(foundation::DispatchQueue::global().async([&] {
    bool isConfirmed = false;
    foundation::DispatchQueue::main().sync([&] { isConfirmed = foundation::runPanel(kRequest); });
    answer = isConfirmed ? 1 : 0;
    g_main_context_wakeup(nullptr);
  }));
  while (answer == -1) {
    g_main_context_iteration(nullptr, TRUE);
  }
  EXPECT_EQ(answer, 1);
  EXPECT_EQ(host.threads, std::vector<std::thread::id>{std::this_thread::get_id()});
}

TEST_F(HostPanel, AwayFromTheMainThreadIsNotAsked) {
  ZEP_TrustPanel_SetRunner(ask, &host);
  ASSERT_TRUE(g_main_context_acquire(nullptr));
  bool isConfirmed = true;
  std::thread([&] { isConfirmed = foundation::runPanel(kRequest); }).join();
  g_main_context_release(nullptr);
  EXPECT_FALSE(isConfirmed);
  EXPECT_EQ(host.requests.size(), 0U);
  EXPECT_EQ(warnings.text(), "certificate panel not shown: this is not the main thread\n");
}

/// A host's panel that turns the run loop, as a dialog does, until it has been told to close.
struct Dialog {
  int open = 0;
  int mostOpen = 0;
  int ended = 0;
};

int showDialog(const char*, void* context) {
  auto& dialog = *static_cast<Dialog*>(context);
  dialog.mostOpen = std::max(dialog.mostOpen, ++dialog.open);
  // A hand-over that comes after everything that has been posted so far.
  RunLoop::main()->perform([] { RunLoop::main()->perform([] { ZEP_RunLoop_Stop(); }); });
  const long result = ZEP_RunLoop_Run(-1);
  --dialog.open;
  ++dialog.ended;
  return result == 1 ? 1 : 0;
}

TEST_F(HostPanel, MayTurnTheRunLoopAndTheNextPanelWaits) {
  Dialog dialog;
  ZEP_TrustPanel_SetRunner(showDialog, &dialog);
  int confirmed = 0;
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(foundation::DispatchQueue::main().async(
        [&] { confirmed += foundation::runPanel(kRequest) ? 1 : 0; }));
  }
  while (dialog.ended < 3) {
    g_main_context_iteration(nullptr, TRUE);
  }
  EXPECT_EQ(confirmed, 3);
  EXPECT_EQ(dialog.mostOpen, 1);
  EXPECT_EQ(warnings.text(), "");
}

TEST_F(HostPanel, MayReplaceItselfWhileOpen) {
  Host next;
  struct Both {
    Host* next;
    bool wasAsked = false;
  } both{&next};
  ZEP_TrustPanel_SetRunner(
      [](const char*, void* context) {
        auto& both = *static_cast<Both*>(context);
        both.wasAsked = true;
        ZEP_TrustPanel_SetRunner(ask, both.next);
        return 1;
      },
      &both);
  EXPECT_TRUE(foundation::runPanel(kRequest));
  EXPECT_TRUE(both.wasAsked);
  EXPECT_EQ(next.requests.size(), 0U);
  EXPECT_TRUE(foundation::runPanel(kRequest));
  EXPECT_EQ(next.requests.size(), 1U);
}

TEST(HostPanelDeathTest, AnExceptionEndsTheProcess) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_DEATH(
      {
        ZEP_TrustPanel_SetRunner([](const char*, void*) -> int { throw std::runtime_error("not allowed"); },
                                 nullptr);
        foundation::runPanel(kRequest);
      },
      "terminate");
}

TEST(PanelRequest, IsReadFromItsText) {
  const std::optional<PanelRequest> read = foundation::panelRequestFromJsonText(jsonText(kRequest));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->kind, PanelKind::Trust);
  EXPECT_EQ(read->host, kRequest.host);
  EXPECT_EQ(read->message, kRequest.message);
  EXPECT_EQ(read->informativeText, kRequest.informativeText);
  EXPECT_EQ(read->alternateButtonTitle, kRequest.alternateButtonTitle);
  EXPECT_EQ(read->certificates, kRequest.certificates);
}

TEST(PanelRequest, IsOneLineWhateverItsTexts) {
  PanelRequest request = kRequest;
  request.host = "a\nb\xFF\xC3";
  const std::string text = jsonText(request);
  EXPECT_EQ(text.find('\n'), std::string::npos);
  const std::optional<PanelRequest> read = foundation::panelRequestFromJsonText(text);
  ASSERT_TRUE(read);
  EXPECT_EQ(read->host, "a\nb\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(PanelRequest, MalformedTextsAreNone) {
  const std::string rest =
      ",\"host\":\"h\",\"message\":\"m\",\"informativeText\":\"i\",\"alternateButtonTitle\":\"a\"";
  const std::string certificates = ",\"certificates\":[\"c\"]}";
  ASSERT_TRUE(foundation::panelRequestFromJsonText("{\"panel\":\"trust\"" + rest + certificates));
  for (const std::string& text :
       {std::string(), std::string("[]"), std::string("{}"), "{\"panel\":\"other\"" + rest + certificates,
        "{\"panel\":1" + rest + certificates, "{\"panel\":\"trust\"" + rest + "}",
        "{\"panel\":\"trust\"" + rest + ",\"certificates\":\"c\"}",
        "{\"panel\":\"trust\"" + rest + ",\"certificates\":[1]}",
        "{\"panel\":\"trust\",\"host\":1" + rest.substr(11) + certificates,
        "{\"panel\":\"trust\"" + rest.substr(11) + certificates}) {
    EXPECT_FALSE(foundation::panelRequestFromJsonText(text)) << text;
  }
}

}  // namespace
}  // namespace test
