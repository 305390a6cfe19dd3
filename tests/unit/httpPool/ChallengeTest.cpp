// What the downloader does about a challenge: the order of its steps, seen in its trace, and the one answer that
// counts. The test plays the connection and the host.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Fakes.h"
#include "TraceLog.h"
#include "Turning.h"
#include "foundation/ZEP_Foundation.h"
#include "foundation/security/Trust.h"
#include "foundation/url/CredentialStorage.h"
#include "httpPool/CertificationConfirmingHelper.h"
#include "httpPool/MacDownloader.h"
#include "tests/support/CertificateAuthority.h"

namespace {

using foundation::AuthenticationChallenge;
using foundation::AuthenticationMethod;
using foundation::Credential;
using foundation::CredentialPersistence;
using foundation::CredentialStorage;
using foundation::ProtectionSpace;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr int kInfo = 2;
constexpr const char* kPassword = "the-password";

struct RecordingSender final : foundation::AuthenticationChallengeSender {
  void useCredential(const Credential& credential, const AuthenticationChallenge&) override {
    used.push_back(credential);
  }
  void cancelAuthenticationChallenge(const AuthenticationChallenge&) override { ++cancels; }

  std::vector<Credential> used;
  int cancels = 0;
};

/// Counts as started, with a thread that ends at once.
struct IdleDownloader : MacDownloader {
  using MacDownloader::MacDownloader;
  void ThreadProc() override {}
};

class ChallengeTest : public testing::Test {
 protected:
  ChallengeTest() {
    downloader->SetDownloadEngine(&engine);
    downloader->Start();
    engine.onAsk = [this](std::string& user, std::string& password, bool& isRemember, bool& isSkip) {
      user = hostUser;
      password = hostPassword;
      isRemember = hostRemembers;
      isSkip = isSkip || hostSkips;
    };
    takeTrace();
  }
  ~ChallengeTest() override {
    downloader->Stop();
    turnOnce();
    for (const Credential& credential : stored()) {
      CredentialStorage::sharedCredentialStorage().removeCredential(credential, space);
    }
  }

  void challenge(int previousFailureCount = 0) {
    downloader->handleAuthenticationChallenge(
        std::make_shared<AuthenticationChallenge>(space, previousFailureCount, sender));
  }
  void store(const Credential& credential) {
    CredentialStorage::sharedCredentialStorage().setCredential(credential, space);
  }
  std::vector<Credential> stored() const {
    return CredentialStorage::sharedCredentialStorage().credentialsForProtectionSpace(space);
  }
  /// The texts of the handler's own lines, each with its level.
  static std::vector<std::string> steps() {
    const std::string prefix = "-[MacDownloader handleAuthenticationChallenge:]";
    std::vector<std::string> texts;
    for (const TraceLine& line : takeTrace()) {
      EXPECT_THAT(line.text, testing::Not(HasSubstr(kPassword)));
      if (line.text.starts_with(prefix)) {
        texts.push_back(std::to_string(line.level) + line.text.substr(prefix.size()));
        texts.back().pop_back();
      }
    }
    return texts;
  }
  bool warned() const { return engine.warnings.back(); }

  ProtectionSpace space{.host = "asker", .port = 80, .protocol = "http", .realm = "r"};
  std::string hostUser = "user";
  std::string hostPassword = kPassword;
  bool hostRemembers = false;
  bool hostSkips = false;
  FakeEngine engine;
  std::shared_ptr<RecordingSender> sender = std::make_shared<RecordingSender>();
  std::shared_ptr<IdleDownloader> downloader =
      std::make_shared<IdleDownloader>(foundation::URLRequest(*foundation::URL::parse("http://first/path")));
};

TEST_F(ChallengeTest, AProxyIsRefusedWhateverItsMethod) {
  for (const auto method : {AuthenticationMethod::HTTPBasic, AuthenticationMethod::NTLM,
                            AuthenticationMethod::HTTPDigest, AuthenticationMethod::Negotiate}) {
    downloader->Stop();
    downloader->Start();
    takeTrace();
    sender->cancels = 0;
    space.isProxy = true;
    space.authenticationMethod = method;
    downloader->setErrorCode(0);
    challenge();
    EXPECT_EQ(downloader->errorCode(), 1);
    EXPECT_EQ(downloader->GetDownloadState(), HTTP_CALL_FAILED);
    EXPECT_EQ(sender->cancels, 1);
    EXPECT_THAT(steps(), ElementsAre("2, remotehost:asker", "4, NSURLProtectionSpace isProxy begin",
                                     "4, NSURLProtectionSpace isProxy end"));
  }
  EXPECT_THAT(engine.warnings, IsEmpty());
  EXPECT_THAT(sender->used, IsEmpty());
}

TEST_F(ChallengeTest, AProxysErrorCodeAndStateAreSetBeforeTheCancel) {
  space.isProxy = true;
  challenge();
  std::vector<std::string> order;
  for (const TraceLine& line : takeTrace()) {
    order.push_back(line.text);
  }
  EXPECT_THAT(order, ElementsAre(HasSubstr("remotehost"), HasSubstr("isProxy begin"),
                                 "-[MacDownloader setErrorCode:], errorcode:1\n",
                                 "-[MacDownloader SetDownloadState:], state:1\n", HasSubstr("isProxy end")));
}

TEST_F(ChallengeTest, NegotiateAndDigestStayUnanswered) {
  store(Credential("stored", kPassword, CredentialPersistence::ForSession));
  for (const auto method : {AuthenticationMethod::Negotiate, AuthenticationMethod::HTTPDigest}) {
    space.authenticationMethod = method;
    challenge();
    EXPECT_THAT(steps(), ElementsAre("2, remotehost:asker"));
  }
  EXPECT_THAT(sender->used, IsEmpty());
  EXPECT_EQ(sender->cancels, 0);
  EXPECT_THAT(engine.warnings, IsEmpty());
  EXPECT_EQ(downloader->GetDownloadState(), HTTP_CALL_PENDING);
  space.authenticationMethod = AuthenticationMethod::HTTPBasic;
}

TEST_F(ChallengeTest, TheHostIsAskedAndItsAnswerUsed) {
  for (const auto method : {AuthenticationMethod::NTLM, AuthenticationMethod::HTTPBasic}) {
    sender->used.clear();
    space.authenticationMethod = method;
    challenge();
    EXPECT_THAT(sender->used, ElementsAre(Credential("user", kPassword, CredentialPersistence::ForSession)));
    EXPECT_THAT(steps(), ElementsAre("2, remotehost:asker", "2, NSURLAuthenticationMethodNTLM",
                                     "2, no creden and need let user input user name and password",
                                     "2, got user input",
                                     "2, credential m_ntlmUserName:user, m_bRemember:0, for ulr:first"));
  }
  EXPECT_FALSE(warned());
}

TEST_F(ChallengeTest, TheAnswersUserNameIsTraced) {
  challenge();
  EXPECT_THAT(takeTraceWith("SetNTLMAskedInfo"),
              ElementsAre(TraceLine{kInfo, "-[MacDownloader SetNTLMAskedInfo:password:], proxyName:user\n"}));
}

TEST_F(ChallengeTest, WhatIsToBeRememberedIsNotKeptHere) {
  hostRemembers = true;
  challenge();
  EXPECT_THAT(sender->used, ElementsAre(Credential("user", kPassword, CredentialPersistence::None)));
  EXPECT_THAT(steps().back(), HasSubstr("m_bRemember:1"));
}

TEST_F(ChallengeTest, AnEmptyUserNameOrPasswordCancels) {
  const std::pair<const char*, const char*> answers[] = {{"user", ""}, {"", kPassword}, {"", ""}};
  for (const auto& [user, password] : answers) {
    sender->cancels = 0;
    hostUser = user;
    hostPassword = password;
    challenge();
    EXPECT_EQ(sender->cancels, 1);
    EXPECT_EQ(steps().back(), "2, cancel");
  }
  EXPECT_THAT(sender->used, IsEmpty());
  EXPECT_EQ(downloader->errorCode(), 0) << "the load's own failure tells";
  EXPECT_EQ(downloader->GetDownloadState(), HTTP_CALL_PENDING);
}

TEST_F(ChallengeTest, SkipCancelsThenAndLater) {
  hostSkips = true;
  hostUser = hostPassword = "";
  challenge();
  EXPECT_EQ(sender->cancels, 1);
  EXPECT_THAT(
      steps(),
      ElementsAre("2, remotehost:asker", "2, NSURLAuthenticationMethodNTLM",
                  "2, no creden and need let user input user name and password", "2, got user input",
                  "2, skip", "2, credential m_ntlmUserName:, m_bRemember:0, for ulr:first", "2, cancel"));

  // Even with a credential stored meanwhile.
  store(Credential("stored", kPassword, CredentialPersistence::ForSession));
  challenge();
  EXPECT_EQ(sender->cancels, 2);
  EXPECT_THAT(steps(), ElementsAre("2, remotehost:asker", "2, NSURLAuthenticationMethodNTLM", "2, skip"));
  EXPECT_EQ(engine.warnings.size(), 1U);
  EXPECT_THAT(sender->used, IsEmpty());
}

TEST_F(ChallengeTest, SkipWithBothFieldsFilledStillOffersThemToTheCancelledChallenge) {
  hostSkips = true;
  challenge();
  EXPECT_EQ(sender->cancels, 1);
  EXPECT_THAT(sender->used, IsEmpty()) << "the challenge takes one answer";
  EXPECT_THAT(stored(), IsEmpty());
  EXPECT_THAT(steps(),
              ElementsAre("2, remotehost:asker", "2, NSURLAuthenticationMethodNTLM",
                          "2, no creden and need let user input user name and password", "2, got user input",
                          "2, skip", "2, credential m_ntlmUserName:user, m_bRemember:0, for ulr:first"));
}

TEST_F(ChallengeTest, ANewStartForgetsTheSkip) {
  hostSkips = true;
  challenge();
  downloader->Stop();
  downloader->Start();
  hostSkips = false;
  challenge();
  EXPECT_EQ(engine.warnings.size(), 2U);
  EXPECT_EQ(sender->used.size(), 1U);
}

TEST_F(ChallengeTest, AStoredCredentialIsUsedWithoutAsking) {
  const Credential credential("stored", kPassword, CredentialPersistence::ForSession);
  store(credential);
  store(Credential("to be later", "x", CredentialPersistence::ForSession));
  challenge();
  EXPECT_THAT(sender->used, ElementsAre(credential));
  EXPECT_THAT(engine.warnings, IsEmpty());
  EXPECT_THAT(steps(), ElementsAre("2, remotehost:asker", "2, NSURLAuthenticationMethodNTLM",
                                   "2, already has validate creden"));
  EXPECT_EQ(stored().size(), 2U);
}

TEST_F(ChallengeTest, StoredUsersWithoutAPasswordAreRemoved) {
  store(Credential("a nobody", CredentialPersistence::ForSession));
  store(Credential("somebody", kPassword, CredentialPersistence::ForSession));
  challenge();
  EXPECT_THAT(stored(), IsEmpty()) << "all of the space";
  EXPECT_THAT(sender->used, ElementsAre(Credential("user", kPassword, CredentialPersistence::ForSession)));
  EXPECT_FALSE(warned());
  EXPECT_EQ(steps().at(2), "2, has invalidate creden, remove it");
}

TEST_F(ChallengeTest, AStoredCredentialThatWasRefusedIsRemovedAndTheHostWarned) {
  const Credential second("second", kPassword, CredentialPersistence::ForSession);
  store(Credential("first", kPassword, CredentialPersistence::ForSession));
  store(second);
  challenge(1);
  EXPECT_THAT(stored(), ElementsAre(second)) << "that one only";
  EXPECT_TRUE(warned());
  EXPECT_EQ(steps().at(2), "2, has invalidate creden and failureCount > 0, remove it ");
  EXPECT_THAT(sender->used, ElementsAre(Credential("user", kPassword, CredentialPersistence::ForSession)));
}

TEST_F(ChallengeTest, WithNothingStoredAFailureDoesNotWarn) {
  challenge(3);
  EXPECT_FALSE(warned());
  EXPECT_EQ(sender->used.size(), 1U);
}

TEST_F(ChallengeTest, TheWarningIsForOneChallenge) {
  store(Credential("first", kPassword, CredentialPersistence::ForSession));
  challenge(1);
  challenge(0);
  EXPECT_THAT(engine.warnings, ElementsAre(true, false));
}

// --- Server trust. ---

class ServerTrustTest : public ChallengeTest {
 protected:
  ServerTrustTest() { space.authenticationMethod = AuthenticationMethod::ServerTrust; }
  void show(const std::vector<std::string>& derChain) {
    space.serverTrust = std::make_shared<foundation::Trust>(derChain, foundation::TrustPolicy::ssl("asker"));
  }
  /// All lines from the refusal on.
  static std::vector<std::string> order() {
    std::vector<std::string> texts;
    for (const TraceLine& line : takeTrace()) {
      texts.push_back(std::to_string(line.level) + line.text);
    }
    return texts;
  }
  void expectRefusalWith(const std::string& line) {
    EXPECT_EQ(sender->cancels, 1);
    EXPECT_EQ(downloader->errorCode(), 1);
    EXPECT_EQ(downloader->GetDownloadState(), HTTP_CALL_FAILED);
    EXPECT_THAT(order(), ElementsAre(HasSubstr("remotehost:asker"), line, HasSubstr("errorcode:1"),
                                     HasSubstr("state:1")));
  }
};

TEST_F(ServerTrustTest, AnEvaluationThatFailsRefusesTheServer) {
  show({});
  challenge();
  expectRefusalWith("4-[MacDownloader handleAuthenticationChallenge:], requesting untrusted connection.\n");
}

TEST_F(ServerTrustTest, AFatalFailureRefusesTheServer) {
  show({"no certificate at all"});
  engine.adjacency = true;
  challenge();
  expectRefusalWith("2-[MacDownloader handleAuthenticationChallenge:], requesting untrusted connection.\n");
  EXPECT_EQ(engine.localizationsAsked, 0);
}

TEST_F(ServerTrustTest, ARecoverableFailureOfAnAdjacencyRequestIsAcceptedWithoutAsking) {
  test::CertificateAuthority authority;
  show(test::CertificateAuthority::derChain(authority.selfSigned().chainFile));
  engine.adjacency = true;
  challenge();
  ASSERT_EQ(sender->used.size(), 1U);
  EXPECT_EQ(sender->used.front().trust(), space.serverTrust);
  EXPECT_EQ(engine.localizationsAsked, 0);
}

TEST_F(ServerTrustTest, AWrongHostIsARecoverableFailureThatTheTextsAreAskedFor) {
  test::CertificateAuthority authority;
  show(test::CertificateAuthority::derChain(authority.selfSigned().chainFile));
  std::vector<std::string> panels;
  ZEP_TrustPanel_SetRunner(
      [](const char* request, void* context) {
        static_cast<std::vector<std::string>*>(context)->emplace_back(request);
        return 1;
      },
      &panels);
  EXPECT_FALSE(
      CertificationConfirmingHelper::checkHostNameMismatch(AuthenticationChallenge(space, 0, sender)));
  for (int i = 1; i <= 2; ++i) {
    challenge();
    EXPECT_TRUE(turnUntil([&] { return sender->cancels == i; }));
  }
  EXPECT_EQ(engine.localizationsAsked, 2);
  ASSERT_EQ(panels.size(), 1U) << "shown once for each host";
  EXPECT_THAT(panels.front(), HasSubstr(R"("panel":"certificate")"));
  EXPECT_THAT(sender->used, IsEmpty());
  EXPECT_EQ(downloader->errorCode(), 0) << "the load's own failure tells";
  ZEP_TrustPanel_SetRunner(nullptr, nullptr);
}

TEST_F(ChallengeTest, WithoutAnEngineNobodyIsAsked) {
  downloader->SetDownloadEngine(nullptr);
  challenge();
  EXPECT_EQ(sender->cancels, 1);
  EXPECT_EQ(steps().back(), "2, cancel");
}

TEST_F(ChallengeTest, NothingIsAnsweredAfterAFinalState) {
  DeafDelegate deaf;
  foundation::URLConnection connection{foundation::URLRequest(), deaf};
  downloader->SetDownloadState(HTTP_CALL_FAILED);
  takeTrace();
  downloader->connectionDidReceiveAuthenticationChallenge(
      connection, std::make_shared<AuthenticationChallenge>(space, 0, sender));
  EXPECT_THAT(takeTrace(), IsEmpty());
  EXPECT_THAT(engine.warnings, IsEmpty());
}

TEST_F(ChallengeTest, EveryChallengeIsForTheDownloaderAndTheStorageIsUsed) {
  DeafDelegate deaf;
  foundation::URLConnection connection{foundation::URLRequest(), deaf};
  EXPECT_TRUE(downloader->connectionCanAuthenticateAgainstProtectionSpace(connection, space));
  EXPECT_TRUE(downloader->connectionShouldUseCredentialStorage(connection));
}

TEST_F(ChallengeTest, TheTextsAreAskedOfTheEngine) {
  downloader->getLocalization();
  EXPECT_EQ(engine.localizationsAsked, 1);
  downloader->SetDownloadEngine(nullptr);
  downloader->getLocalization();
  EXPECT_EQ(engine.localizationsAsked, 1);
}

}  // namespace
