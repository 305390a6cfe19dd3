// The evaluation of certificate chains, by a store that trusts one authority and knows its revocation list.

#include <gtest/gtest.h>
#include <openssl/err.h>

#include <atomic>
#include <cstdio>
#include <map>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "foundation/security/Trust.h"
#include "tests/support/Files.h"
#include "tests/support/NoDescriptors.h"
#include "tests/unit/foundation/TrustSurroundings.h"

namespace foundation {

void PrintTo(TrustResult result, std::ostream* out) {
  *out << static_cast<int>(result);
}

void PrintTo(TrustStatus status, std::ostream* out) {
  *out << std::hex << static_cast<std::uint32_t>(status) << std::dec;
}

namespace {

using enum TrustStatus;
using Authority = test::CertificateAuthority;
using Chain = std::vector<std::string>;
using StatusChain = std::vector<std::vector<TrustStatus>>;

constexpr std::int64_t kYear2019 = 1560000000;
constexpr std::int64_t kYear2020 = 1590000000;
constexpr std::int64_t kYear2051 = 2560000000;

class TrustTest : public testing::Test {
 protected:
  TrustTest() { surroundings_.removeSettings(); }

  Chain chainOf(const Authority::Leaf& leaf) { return Authority::derChain(leaf.chainFile); }

  static TrustResult evaluate(Trust& trust) {
    TrustResult result = TrustResult::Invalid;
    EXPECT_EQ(trust.evaluate(result), 0);
    return result;
  }
  static TrustResult evaluate(const Chain& chain, const std::string& host) {
    Trust trust(chain, TrustPolicy::ssl(host));
    return evaluate(trust);
  }

  TrustSurroundings& surroundings_ = TrustSurroundings::shared();
  Authority& authority_ = surroundings_.authority();
  Authority fresh_;
};

/// One evaluation as a table's line.
struct Case {
  const char* name;
  Chain chain;
  std::string host;
  TrustResult result;
  StatusChain statuses;
};

void expectOutcome(const Case& one) {
  SCOPED_TRACE(one.name);
  Trust trust(one.chain, TrustPolicy::ssl(one.host));
  TrustResult result = TrustResult::Invalid;
  EXPECT_EQ(trust.evaluate(result), 0);
  EXPECT_EQ(result, one.result);
  EXPECT_EQ(trust.statusChain(), one.statuses);
}

/// The last byte belongs to the signature.
std::string withForgedSignature(std::string der) {
  der.back() = static_cast<char>(der.back() ^ 1);
  return der;
}

/// The point of the key is of no form that there is.
std::string withoutKey(std::string der) {
  const std::string point("\x03\x42\x00\x04", 4);
  der.at(der.find(point) + 3) = '\x05';
  return der;
}

TEST_F(TrustTest, JudgesEveryKindOfCertificate) {
  using enum TrustResult;
  Authority& ca = authority_;
  const Chain good = chainOf(ca.good());
  const std::vector<Case> cases = {
      {"good", good, "localhost", Unspecified, {{}}},
      {"with intermediate",
       chainOf(ca.issueByIntermediate({.name = "third"})),
       "localhost",
       Unspecified,
       {{}, {}}},
      {"expired", chainOf(ca.expired()), "localhost", RecoverableTrustFailure, {{Expired}}},
      {"not yet valid", chainOf(ca.notYetValid()), "localhost", RecoverableTrustFailure, {{NotYetValid}}},
      {"wrong host", chainOf(ca.wrongHost()), "localhost", RecoverableTrustFailure, {{HostNameMismatch}}},
      {"wrong address",
       chainOf(ca.wrongAddress()),
       "127.0.0.1",
       RecoverableTrustFailure,
       {{HostNameMismatch}}},
      {"wrong host and expired",
       chainOf(ca.wrongHostAndExpired()),
       "localhost",
       RecoverableTrustFailure,
       {{HostNameMismatch, Expired}}},
      {"common name only",
       chainOf(ca.commonNameOnly()),
       "localhost",
       RecoverableTrustFailure,
       {{HostNameMismatch}}},
      {"self-signed", chainOf(ca.selfSigned()), "localhost", RecoverableTrustFailure, {{SelfSigned}}},
      {"unknown root",
       chainOf(ca.unknownRoot()),
       "localhost",
       RecoverableTrustFailure,
       {{}, {UntrustedRoot}}},
      {"no intermediate",
       chainOf(ca.missingIntermediate()),
       "localhost",
       RecoverableTrustFailure,
       {{UnknownIssuer}}},
      {"issued by a leaf",
       chainOf(ca.issuedByLeaf()),
       "localhost",
       RecoverableTrustFailure,
       {{}, {ConstraintViolated, WrongPurpose}}},
      {"client only", chainOf(ca.clientOnly()), "localhost", RecoverableTrustFailure, {{WrongPurpose}}},
      {"weak key", chainOf(ca.weakKey()), "localhost", RecoverableTrustFailure, {{WeakKey}}},
      {"weak digest", chainOf(ca.weakDigest()), "localhost", RecoverableTrustFailure, {{WeakDigest}}},
      {"revoked", chainOf(surroundings_.revoked()), "localhost", FatalTrustFailure, {{Revoked}}},
      {"revoked, wrong host",
       chainOf(surroundings_.revoked()),
       "elsewhere.test",
       FatalTrustFailure,
       {{HostNameMismatch, Revoked}}},
      {"forged", {withForgedSignature(good[0])}, "localhost", FatalTrustFailure, {{BadSignature}}},
      {"no key", {withoutKey(good[0])}, "localhost", FatalTrustFailure, {{WeakKey, Unparseable}}},
      {"garbage", {"garbage"}, "localhost", FatalTrustFailure, {{Unparseable}}},
      {"empty leaf", {""}, "localhost", FatalTrustFailure, {{Unparseable}}},
      {"garbage sent along", {good[0], "garbage"}, "localhost", FatalTrustFailure, {{}, {Unparseable}}},
  };
  for (const Case& one : cases) {
    expectOutcome(one);
  }
}

TEST_F(TrustTest, FailsWithoutCertificates) {
  Trust trust({}, TrustPolicy::ssl("localhost"));
  TrustResult result = TrustResult::Proceed;
  EXPECT_NE(trust.evaluate(result), 0);
  EXPECT_EQ(result, TrustResult::Proceed);
  EXPECT_EQ(trust.certificateCount(), 0U);
  EXPECT_EQ(trust.certificateAtIndex(0), nullptr);
  EXPECT_TRUE(trust.statusChain().empty());
}

TEST_F(TrustTest, ListsItsCertificates) {
  const Chain good = chainOf(authority_.good());
  const Trust trust({good[0], "garbage"}, TrustPolicy::ssl("localhost"));
  EXPECT_EQ(trust.certificateCount(), 2U);
  ASSERT_NE(trust.certificateAtIndex(0), nullptr);
  EXPECT_EQ(trust.certificateAtIndex(0)->der(), good[0]);
  EXPECT_EQ(trust.certificateAtIndex(1), nullptr);
  EXPECT_EQ(trust.certificateAtIndex(2), nullptr);
  EXPECT_EQ(trust.policyHost(), "localhost");
  EXPECT_TRUE(trust.statusChain().empty());
}

TEST_F(TrustTest, RefusesImmenseChains) {
  const std::string leaf = chainOf(authority_.good())[0];
  EXPECT_EQ(evaluate(Chain(Trust::kMostCertificates, leaf), "localhost"), TrustResult::Unspecified);
  EXPECT_EQ(evaluate(Chain(Trust::kMostCertificates + 1, leaf), "localhost"), TrustResult::FatalTrustFailure);
  Trust trust({leaf, std::string(Trust::kMostBytes, 'x')}, TrustPolicy::ssl("localhost"));
  EXPECT_EQ(evaluate(trust), TrustResult::FatalTrustFailure);
  EXPECT_EQ(trust.statusChain(), (StatusChain{{ChainTooLong}, {}}));
  EXPECT_EQ(trust.certificateCount(), 2U);
}

TEST_F(TrustTest, TakesTheOthersInAnyOrder) {
  const Chain good = chainOf(authority_.issueByIntermediate({.name = "ordered"}));
  const std::string root = Authority::derChain(authority_.rootFile())[0];
  EXPECT_EQ(evaluate({good[0], root, good[1]}, "localhost"), TrustResult::Unspecified);
  EXPECT_EQ(evaluate({good[0], good[0], good[1], good[1]}, "localhost"), TrustResult::Unspecified);
}

TEST_F(TrustTest, TakesNothingSentForAnAnchor) {
  const Chain foreign = chainOf(fresh_.issueByIntermediate({.name = "foreign"}));
  const std::string root = Authority::derChain(fresh_.rootFile())[0];
  const Chain chain = {foreign[0], root, foreign[1]};
  expectOutcome(
      {"root sent", chain, "localhost", TrustResult::RecoverableTrustFailure, {{}, {UntrustedRoot}, {}}});
  expectOutcome(
      {"root not sent", foreign, "localhost", TrustResult::RecoverableTrustFailure, {{}, {UnknownIssuer}}});
}

TEST_F(TrustTest, TakesALeafOfTheStoreForAnAnchor) {
  const Chain chain = chainOf(surroundings_.storedLeaf());
  EXPECT_EQ(evaluate(chain, "localhost"), TrustResult::Unspecified);
  EXPECT_EQ(evaluate(chain, "elsewhere.test"), TrustResult::RecoverableTrustFailure);
}

TEST_F(TrustTest, FindsAForgedIntermediate) {
  Chain chain = chainOf(authority_.issueByIntermediate({.name = "underforged"}));
  chain[1] = withForgedSignature(chain[1]);
  expectOutcome({"forged", chain, "localhost", TrustResult::FatalTrustFailure, {{}, {BadSignature}}});
}

TEST_F(TrustTest, FindsARevokedIntermediateSentOrNot) {
  const Chain chain = chainOf(surroundings_.revokedIssuersLeaf());
  expectOutcome({"sent", chain, "localhost", TrustResult::FatalTrustFailure, {{}, {Revoked}}});
  expectOutcome({"not sent", {chain[0]}, "localhost", TrustResult::FatalTrustFailure, {{Revoked}}});
}

TEST_F(TrustTest, FailsWhileARevocationListCannotBeRead) {
  Trust trust(chainOf(authority_.good()), TrustPolicy::ssl("localhost"));
  EXPECT_EQ(evaluate(trust), TrustResult::Unspecified);
  const std::string list = surroundings_.storeFolder() + "/" + authority_.revocationsPrefix() + "0";
  // Looked at and known to be none, it would change nothing.
  test::writeFile(list, "no list");
  const TrustResult result = [&] {
    const test::NoDescriptors none;
    return evaluate(trust);
  }();
  EXPECT_EQ(result, TrustResult::OtherError);
  EXPECT_EQ(trust.statusChain(), (StatusChain{{InternalError}}));
  EXPECT_EQ(evaluate(trust), TrustResult::Unspecified);
  std::remove(list.c_str());
}

/// OpenSSL looks for lists in DER in no folder that is one of many.
TEST_F(TrustTest, FindsWhatANewListRevokesOnEveryThread) {
  constexpr int kThreads = 4;
  constexpr int kAuthorities = 10;
  for (int i = 0; i < kAuthorities; ++i) {
    Authority authority("Late" + std::to_string(i));
    const Chain revoked = chainOf(authority.revoked());
    const std::string prefix = surroundings_.storeFolder() + "/" + authority.revocationsPrefix();
    test::writeFile(prefix.substr(0, prefix.size() - 1) + "0", test::readFile(authority.rootFile()));
    test::writeFile(prefix + "0", test::readFile(authority.revocationsInDerFile()));
    std::atomic<int> ready = 0;
    std::atomic<int> refusals = 0;
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int thread = 0; thread < kThreads; ++thread) {
      threads.emplace_back([&] {
        ++ready;
        while (ready < kThreads) {
          std::this_thread::yield();
        }
        refusals += evaluate(revoked, "localhost") == TrustResult::FatalTrustFailure ? 1 : 0;
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    EXPECT_EQ(refusals, kThreads) << i;
  }
}

TEST_F(TrustTest, EvaluatesAtTheGivenDate) {
  Trust trust(chainOf(authority_.issueByIntermediate({.name = "dated", .notAfter = "20210101000000Z"})),
              TrustPolicy::ssl("localhost"));
  EXPECT_EQ(evaluate(trust), TrustResult::RecoverableTrustFailure);
  EXPECT_EQ(trust.statusChain(), (StatusChain{{Expired}, {}}));
  trust.setVerifyDate(kYear2020);
  EXPECT_EQ(evaluate(trust), TrustResult::Unspecified);
  EXPECT_EQ(trust.statusChain(), (StatusChain{{}, {}}));
  // The root's dates are wrong too; it was not sent.
  trust.setVerifyDate(kYear2019);
  EXPECT_EQ(evaluate(trust), TrustResult::RecoverableTrustFailure);
  EXPECT_EQ(trust.statusChain(), (StatusChain{{NotYetValid}, {NotYetValid, UnknownIssuer}}));
  trust.setVerifyDate(kYear2051);
  EXPECT_EQ(evaluate(trust), TrustResult::RecoverableTrustFailure);
  EXPECT_EQ(trust.statusChain(), (StatusChain{{Expired}, {Expired, UnknownIssuer}}));
}

TEST_F(TrustTest, EvaluatesAgainByAnotherPolicy) {
  Trust trust(chainOf(authority_.clientOnly()), TrustPolicy::basicX509());
  EXPECT_EQ(evaluate(trust), TrustResult::Unspecified);
  EXPECT_EQ(trust.policyHost(), "");
  trust.setPolicy(TrustPolicy::ssl("elsewhere.test"));
  EXPECT_EQ(trust.policyHost(), "elsewhere.test");
  EXPECT_EQ(evaluate(trust), TrustResult::RecoverableTrustFailure);
  EXPECT_EQ(trust.statusChain(), (StatusChain{{HostNameMismatch, WrongPurpose}}));
  trust.setPolicy(TrustPolicy::ssl("localhost"));
  EXPECT_EQ(evaluate(trust), TrustResult::RecoverableTrustFailure);
  EXPECT_EQ(trust.statusChain(), (StatusChain{{WrongPurpose}}));
}

TEST_F(TrustTest, EvaluatesAServerWhateverItsHost) {
  Trust wrongHost(chainOf(authority_.wrongHost()), TrustPolicy::sslAnyHost());
  EXPECT_EQ(evaluate(wrongHost), TrustResult::Unspecified);
  Trust client(chainOf(authority_.issue({.name = "anyclient", .extendedKeyUsage = "clientAuth"})),
               TrustPolicy::sslAnyHost());
  EXPECT_EQ(evaluate(client), TrustResult::RecoverableTrustFailure);
  EXPECT_EQ(client.statusChain(), (StatusChain{{WrongPurpose}}));
}

TEST_F(TrustTest, KnowsItsLastResultForThatPolicyAndThePresentOnly) {
  const TrustPolicy policy = TrustPolicy::ssl("localhost");
  const TrustPolicy other = TrustPolicy::ssl("elsewhere.test");
  Trust trust(chainOf(authority_.good()), policy);
  EXPECT_EQ(trust.lastResult(policy), std::nullopt);
  EXPECT_EQ(evaluate(trust), TrustResult::Unspecified);
  EXPECT_EQ(trust.lastResult(policy), TrustResult::Unspecified);
  EXPECT_EQ(Trust(trust).lastResult(policy), TrustResult::Unspecified);
  EXPECT_EQ(trust.lastResult(other), std::nullopt);
  EXPECT_EQ(trust.lastResult(TrustPolicy::basicX509()), std::nullopt);

  trust.setPolicy(other);
  EXPECT_EQ(evaluate(trust), TrustResult::RecoverableTrustFailure);
  EXPECT_EQ(trust.lastResult(policy), std::nullopt);
  EXPECT_EQ(trust.lastResult(other), TrustResult::RecoverableTrustFailure);

  trust.setPolicy(policy);
  trust.setVerifyDate(kYear2020);
  EXPECT_EQ(evaluate(trust), TrustResult::Unspecified);
  EXPECT_EQ(trust.lastResult(policy), std::nullopt);
}

TEST_F(TrustTest, ComparesHosts) {
  const Chain chain = chainOf(authority_.issue(
      {.name = "hosts",
       .alternativeNames =
           "DNS:localhost,DNS:*.wild.test,DNS:xn--bcher-kva.test,DNS:*.xn--bcher-kva.test,"
           "DNS:f*.part.test,DNS:*.topleveltest,DNS:10.0.0.1,IP:127.0.0.1,IP:::1,IP:fe80::1"}));
  const std::map<std::string, bool> hosts = {
      {"localhost", true},
      {"LocalHost", true},
      {"localhost.", true},
      {"localhost..", false},
      {".localhost", false},
      {"local", false},
      {"localhost.test", false},
      {std::string("localhost\0.test", 15), false},
      {std::string("localhost\0", 10), false},
      {"", false},
      {".", false},
      {"a.wild.test", true},
      {"A.Wild.Test.", true},
      {"a.b.wild.test", false},
      {"wild.test", false},
      {".wild.test", false},
      {"foo.part.test", false},
      {"any.topleveltest", false},
      {"xn--bcher-kva.test", true},
      {"XN--BCHER-KVA.test", true},
      {"www.xn--bcher-kva.test", true},
      {"xn--other.wild.test", true},
      {"bcher.test", false},
      {"127.0.0.1", true},
      {"127.0.0.1.", true},
      {"127.0.0.2", false},
      {"10.0.0.1", false},
      {"[::1]", true},
      {"::1", true},
      {"[0:0:0:0:0:0:0:1]", true},
      {"[::2]", false},
      {"[::ffff:127.0.0.1]", false},
      {"[FE80::1%25eth0]", true},
      {"[localhost]", false},
      {"[]", false},
      {"[", false},
  };
  for (const auto& [host, isRight] : hosts) {
    EXPECT_EQ(evaluate(chain, host),
              isRight ? TrustResult::Unspecified : TrustResult::RecoverableTrustFailure)
        << host;
  }
}

TEST_F(TrustTest, LeavesNoErrorsToTheThread) {
  ERR_clear_error();
  evaluate({"garbage"}, "localhost");
  evaluate({withoutKey(chainOf(authority_.good())[0])}, "localhost");
  evaluate(chainOf(authority_.weakKey()), "[::1]");
  EXPECT_EQ(ERR_peek_error(), 0U);
}

TEST_F(TrustTest, EvaluatesOnManyThreadsAtOnce) {
  const std::vector<std::pair<Trust, TrustResult>> trusts = {
      {Trust(chainOf(authority_.issueByIntermediate({.name = "parallel"})), TrustPolicy::ssl("localhost")),
       TrustResult::Unspecified},
      {Trust(chainOf(authority_.wrongHostAndExpired()), TrustPolicy::ssl("localhost")),
       TrustResult::RecoverableTrustFailure},
      {Trust(chainOf(surroundings_.revoked()), TrustPolicy::ssl("localhost")),
       TrustResult::FatalTrustFailure},
  };
  constexpr int kThreads = 8;
  constexpr int kTurns = 20;
  std::atomic<int> right = 0;
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int turn = 0; turn < kTurns; ++turn) {
        for (const auto& [trust, expected] : trusts) {
          Trust copy = trust;
          TrustResult result = TrustResult::Invalid;
          right += copy.evaluate(result) == 0 && result == expected ? 1 : 0;
        }
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(right, kThreads * kTurns * static_cast<int>(trusts.size()));
}

}  // namespace
}  // namespace foundation
