// The servers that demand authentication, asked by curl(1): that they let in whom they should and nobody else,
// and that their logs tell the truth. What is tested with them rests on this.

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/ApacheServer.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/EchoedRequest.h"
#include "tests/support/Files.h"
#include "tests/support/NginxServer.h"
#include "tests/support/PlainRequest.h"
#include "tests/support/SquidServer.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/WaitUntil.h"

using test::ApacheServer;
using test::EchoedRequest;
using test::NginxServer;
using test::SquidServer;
using Texts = std::vector<std::string>;

namespace {

/// What a run of curl saw. Several URLs in one run have several statuses; the body is the first one's.
struct Curled {
  std::vector<int> statuses;
  std::vector<int> connectStatuses;
  std::string body;
  std::string trace;

  /// The values of the fields of that name in all answers, or in those from a place in the trace on.
  Texts fields(const std::string& name, std::size_t from = 0) const {
    const std::string label = "\n< " + name + ": ";
    Texts values;
    for (std::size_t at = from; (at = trace.find(label, at)) != std::string::npos;) {
      at += label.size();
      values.push_back(trace.substr(at, trace.find_first_of("\r\n", at) - at));
    }
    return values;
  }
  Texts lastFields(const std::string& name) const { return fields(name, trace.rfind("< HTTP/")); }
};

Curled curl(const Texts& arguments) {
  const test::TemporaryFolder folder;
  Texts all = {"/usr/bin/curl",
               "-q",
               "-sv",
               "--http1.1",
               "-o",
               folder.file("body"),
               "--stderr",
               folder.file("trace"),
               "--max-time",
               "60",
               "-w",
               "\nstatus %{http_code} %{http_connect}\n"};
  all.insert(all.end(), arguments.begin(), arguments.end());
  test::ChildProcess process({.arguments = all,
                              .environment = {{"http_proxy", std::nullopt},
                                              {"all_proxy", std::nullopt},
                                              {"ALL_PROXY", std::nullopt},
                                              {"no_proxy", std::nullopt},
                                              {"NO_PROXY", std::nullopt}},
                              .outputFile = folder.file("output")});
  EXPECT_TRUE(process.wait(std::chrono::seconds(90))) << "curl does not end";
  Curled result;
  if (test::fileExists(folder.file("body"))) {
    result.body = test::readFile(folder.file("body"));
  }
  result.trace = test::readFile(folder.file("trace"));
  const std::string output = test::readFile(folder.file("output"));
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string word;
    int status = 0;
    int connectStatus = 0;
    if (words >> word >> status >> connectStatus && word == "status") {
      result.statuses.push_back(status);
      result.connectStatuses.push_back(connectStatus);
    }
  }
  return result;
}

int statusOf(const Texts& arguments) {
  const Curled result = curl(arguments);
  return result.statuses.size() == 1 ? result.statuses.front() : -1;
}

template <typename User>
std::string credentials(const User& user) {
  return std::string(user.name) + ":" + user.password;
}

std::string withDomain(const std::string& credentials) {
  return std::string(ApacheServer::kDomain) + "\\" + credentials;
}

/// "number status scheme user" of each.
Texts steps(const std::vector<ApacheServer::Access>& accesses) {
  Texts result;
  for (const ApacheServer::Access& one : accesses) {
    result.push_back(std::to_string(one.number) + " " + std::to_string(one.status) + " " + one.scheme + " " +
                     one.user);
  }
  return result;
}

Texts steps(const std::vector<SquidServer::Access>& accesses) {
  Texts result;
  for (const SquidServer::Access& one : accesses) {
    result.push_back(std::to_string(one.number) + " " + std::to_string(one.status) + " " + one.scheme + " " +
                     one.method);
  }
  return result;
}

struct Acceptor {
  std::string path;
  std::string method;  ///< curl's option
  std::string right;
  std::string wrong;
  Texts offers;  ///< how the fields of an answer without credentials begin
};

std::vector<Acceptor> acceptors() {
  const std::string alice = withDomain(credentials(ApacheServer::kNtlmAlice));
  const std::string bob = withDomain(credentials(ApacheServer::kNtlmBob));
  const std::string basic = credentials(ApacheServer::kBasic);
  const Texts both = {"NTLM", "Basic realm=\"NTLM and Basic\""};
  return {
      {"/basic/echo", "--basic", basic, "alice:wonder land", {"Basic realm=\"Basic realm\""}},
      {"/basic-utf8/echo",
       "--basic",
       credentials(ApacheServer::kUtf8),
       "jürgen:passwörd €",
       {"Basic realm=\"UTF-8 realm\""}},
      {"/basic-second/echo",
       "--basic",
       credentials(ApacheServer::kSecond),
       basic,
       {"Basic realm=\"Second realm\""}},
      {"/digest/echo",
       "--digest",
       credentials(ApacheServer::kDigest),
       "alice:wonderland",
       {"Digest realm=\"Digest realm\", nonce="}},
      {"/ntlm/echo", "--ntlm", alice, withDomain("alice:builder"), {"NTLM"}},
      {"/ntlm/echo", "--ntlm", bob, "OTHER\\bob:builder", {"NTLM"}},
      {"/negotiate-ntlm/echo", "--ntlm", alice, withDomain("carol:wonderland"), {"Negotiate", "NTLM"}},
      {"/ntlm-basic/echo", "--ntlm", alice, withDomain(credentials(ApacheServer::kNtlmBasic)), both},
      {"/ntlm-basic/echo", "--basic", credentials(ApacheServer::kNtlmBasic), "alice:wonderland", both},
      {"/several/echo",
       "--basic",
       basic,
       "alice:wonder land",
       {R"(Digest realm="a, b", nonce="n", Basic realm="one, \"two\"")"}},
  };
}

TEST(ApacheServer, LetsInWhomItShouldAndNobodyElse) {
  ApacheServer server;
  for (const Acceptor& one : acceptors()) {
    SCOPED_TRACE(one.path + " " + one.method + " " + one.right);
    const Curled asked = curl({server.url(one.path)});
    EXPECT_EQ(asked.statuses, std::vector<int>{401});
    const Texts offers = asked.lastFields("WWW-Authenticate");
    ASSERT_EQ(offers.size(), one.offers.size());
    for (std::size_t index = 0; index < offers.size(); ++index) {
      EXPECT_TRUE(offers[index].starts_with(one.offers[index])) << offers[index];
    }
    EXPECT_EQ(statusOf({one.method, "-u", one.wrong, server.url(one.path)}), 401);
    const Curled got = curl({one.method, "-u", one.right, "-d", "a body", server.url(one.path + "?q=1")});
    ASSERT_EQ(got.statuses, std::vector<int>{200}) << got.trace;
    const EchoedRequest request = EchoedRequest::parse(got.body);
    EXPECT_EQ(request.method + " " + request.target, "POST " + one.path + "?q=1");
    EXPECT_EQ(request.body, "a body");
    EXPECT_NE(got.trace.find("\n> Authorization: " + request.header("Authorization") + "\r"),
              std::string::npos)
        << "not as received: " << request.header("Authorization");
  }
}

TEST(ApacheServer, OffersSchemesThatLetNobodyIn) {
  ApacheServer server;
  const std::string user = credentials(ApacheServer::kBasic);
  const Curled bearer = curl({"-u", user, server.url("/bearer/echo")});
  EXPECT_EQ(bearer.statuses, std::vector<int>{401});
  EXPECT_EQ(bearer.lastFields("WWW-Authenticate"), Texts{"Bearer realm=\"x\""});
  const Curled negotiate = curl({"-u", user, server.url("/negotiate/echo")});
  EXPECT_EQ(negotiate.statuses, std::vector<int>{401});
  EXPECT_EQ(negotiate.lastFields("WWW-Authenticate"), Texts{"Negotiate"});
  const Curled open = curl({server.url("/open/echo")});
  EXPECT_EQ(open.statuses, std::vector<int>{200});
  EXPECT_FALSE(EchoedRequest::parse(open.body).has("Authorization"));
  const Curled early = curl({"--ntlm", "-u", user, server.url("/open/echo")});
  const std::string sent = EchoedRequest::parse(early.body).header("Authorization");
  EXPECT_TRUE(sent.starts_with("NTLM ")) << sent;
  EXPECT_NE(early.trace.find("\n> Authorization: " + sent + "\r"), std::string::npos) << "not as sent";
  EXPECT_EQ(statusOf({"-H", "Transfer-Encoding: chunked", "-d", "chunks", server.url("/open/echo")}), 411);
}

TEST(ApacheServer, NtlmTakesThreeStepsAndHoldsForTheConnection) {
  ApacheServer server;
  const std::string url = server.url("/ntlm/echo");
  const Curled got = curl({"--anyauth", "-u", withDomain(credentials(ApacheServer::kNtlmAlice)), url, url});
  EXPECT_EQ(got.statuses, (std::vector<int>{200, 200}));
  const Texts offers = got.fields("WWW-Authenticate");
  ASSERT_EQ(offers.size(), 2u) << got.trace;
  EXPECT_EQ(offers[0], "NTLM");
  EXPECT_TRUE(offers[1].starts_with("NTLM TlRMTVNTUAAC")) << "no second message: " << offers[1];
  const auto accesses = server.accesses("/ntlm/echo");
  EXPECT_EQ(steps(accesses),
            (Texts{"1 401  ", "2 401 NTLM ", "3 200 NTLM TESTDOM\\alice", "4 200  TESTDOM\\alice"}));
  EXPECT_EQ(ApacheServer::connectionsOf(accesses), 1u);
  EXPECT_EQ(statusOf({url}), 401) << "on a connection of its own nobody is let in";
  EXPECT_EQ(ApacheServer::connectionsOf(server.accesses("/ntlm/echo")), 2u);
}

TEST(ApacheServer, NtlmTakesAMegabyteWhole) {
  ApacheServer server;
  const test::TemporaryFolder folder;
  const std::string body = NginxServer::bigBody(1 << 20);
  test::writeFile(folder.file("sent"), body);
  const Curled got = curl({"--ntlm", "-u", withDomain(credentials(ApacheServer::kNtlmBob)), "--data-binary",
                           "@" + folder.file("sent"), server.url("/ntlm/echo")});
  ASSERT_EQ(got.statuses, std::vector<int>{200}) << got.trace;
  EXPECT_TRUE(EchoedRequest::parse(got.body).body == body) << "not the bytes that were sent";
  const auto accesses = server.accesses();
  ASSERT_EQ(steps(accesses), (Texts{"1 401 NTLM ", "2 200 NTLM TESTDOM\\bob"}));
  EXPECT_EQ(accesses[0].contentLength, 0);
  EXPECT_LT(accesses[0].receivedBytes, 1 << 20);
  EXPECT_EQ(accesses[1].contentLength, 1 << 20);
  EXPECT_GT(accesses[1].receivedBytes, 1 << 20);
}

TEST(ApacheServer, RedirectsBehindAuthentication) {
  ApacheServer server;
  NginxServer other;
  const std::string target = "/basic/redirect?to=http%3A%2F%2F127.0.0.1%3A" + std::to_string(other.port()) +
                             "%2Fecho%3Fa%3D1%26b%3D2";
  EXPECT_EQ(statusOf({server.url(target)}), 401);
  const Texts user = {"-u", credentials(ApacheServer::kBasic)};
  const Curled there = curl({user[0], user[1], server.url(target)});
  EXPECT_EQ(there.statuses, std::vector<int>{302});
  EXPECT_EQ(there.lastFields("Location"), Texts{other.url("/echo?a=1&b=2")});
  EXPECT_EQ(statusOf({server.url("/basic/redirect-here")}), 401);
  const Curled here = curl({user[0], user[1], "-L", server.url("/basic/redirect-here")});
  ASSERT_EQ(here.statuses, std::vector<int>{200}) << here.trace;
  EXPECT_EQ(EchoedRequest::parse(here.body).target, "/basic/echo");
}

TEST(ApacheServer, LogsWhateverWasAnsweredWithoutTheCredentials) {
  ApacheServer server;
  const std::string user = credentials(ApacheServer::kUtf8);
  for (std::size_t round = 1; round <= 10; ++round) {
    curl({"--parallel", "-u", user, server.url("/basic-utf8/echo?[1-8]")});
    ASSERT_EQ(server.accesses("/basic-utf8/echo").size(), 8 * round);
  }
  const auto accesses = server.accesses();
  EXPECT_EQ(accesses.back().user, ApacheServer::kUtf8.name);
  EXPECT_EQ(accesses.back().scheme, "Basic");
  const std::string sent =
      EchoedRequest::parse(curl({"-u", user, server.url("/basic-utf8/echo")}).body).header("Authorization");
  EXPECT_EQ(accesses.back().authorizationLength, sent.size());
  const std::string log = test::readFile(server.folder() + "/access.log");
  EXPECT_EQ(log.find(sent.substr(sent.find(' ') + 1)), std::string::npos) << "credentials in the log";
}

/// A server whose maker's thread has ended without ending it: it is gone all the same.
template <typename Server, typename... Options>
void expectEndsWithItsThread(const Options&... options) {
  std::unique_ptr<Server> server;
  std::string answer;
  std::thread([&] {
    server = std::make_unique<Server>(options...);
    answer = test::plainGet(server->port(), "/");
  }).join();
  EXPECT_TRUE(answer.starts_with("HTTP/1.")) << answer;
  EXPECT_TRUE(test::waitUntil([&] { return test::plainGet(server->port(), "/").empty(); }));
}

TEST(ApacheServer, EndsWithTheThreadThatMadeIt) {
  expectEndsWithItsThread<ApacheServer>();
}

TEST(SquidServer, EndsWithTheThreadThatMadeIt) {
  expectEndsWithItsThread<SquidServer>(SquidServer::Options{.mode = SquidServer::Mode::ForwardBasic});
}

TEST(SquidServer, InFrontOfAnOriginTakesNtlmAndBasic) {
  NginxServer origin;
  SquidServer server({.mode = SquidServer::Mode::ReverseNtlm, .originPort = origin.port()});
  const std::string url = server.url("/echo");
  const test::TemporaryFolder folder;
  const std::string body = NginxServer::bigBody(1 << 20);
  test::writeFile(folder.file("sent"), body);
  const std::string ntlm = withDomain(credentials(SquidServer::kNtlm));

  const Curled got = curl({"--anyauth", "-u", ntlm, "--data-binary", "@" + folder.file("sent"), url, url});
  EXPECT_EQ(got.statuses, (std::vector<int>{200, 200})) << got.trace;
  const EchoedRequest request = EchoedRequest::parse(got.body);
  EXPECT_TRUE(request.body == body) << "not the bytes that were sent";
  EXPECT_FALSE(request.has("Authorization"));
  const auto accesses = server.accesses();
  EXPECT_EQ(steps(accesses), (Texts{"1 401  POST", "1 401 NTLM POST", "2 200 NTLM POST", "3 200  POST"}));
  EXPECT_EQ(SquidServer::connectionsOf(accesses), 2u);
  EXPECT_EQ(origin.accesses("/echo").size(), 2u);

  EXPECT_EQ(curl({url}).lastFields("WWW-Authenticate"), (Texts{"NTLM", "Basic realm=\"Reverse realm\""}));
  EXPECT_EQ(statusOf({"--ntlm", "-u", withDomain("alice:builder"), url}), 401);
  EXPECT_EQ(statusOf({"--basic", "-u", credentials(SquidServer::kReverseBasic), url}), 200);
  EXPECT_EQ(statusOf({"--basic", "-u", "alice:builder", url}), 401);
  EXPECT_EQ(origin.accesses("/echo").size(), 3u) << "the origin was asked by somebody who was not let in";
}

TEST(SquidServer, AsAProxyTakesBasic) {
  NginxServer origin;
  SquidServer server({.mode = SquidServer::Mode::ForwardBasic});
  const Texts through = {"-x", server.url(), origin.url("/echo")};
  const Texts user = {"--proxy-basic", "-U", credentials(SquidServer::kForwardBasic)};
  const Curled asked = curl(through);
  EXPECT_EQ(asked.statuses, std::vector<int>{407});
  EXPECT_EQ(asked.lastFields("Proxy-Authenticate"), Texts{"Basic realm=\"Proxy realm\""});
  EXPECT_EQ(statusOf({user[0], user[1], "proxyuser:wrong", through[0], through[1], through[2]}), 407);
  const Curled got = curl({user[0], user[1], user[2], through[0], through[1], through[2]});
  ASSERT_EQ(got.statuses, std::vector<int>{200}) << got.trace;
  EXPECT_FALSE(EchoedRequest::parse(got.body).has("Proxy-Authorization"));

  const Curled refused = curl({"-p", through[0], through[1], through[2]});
  EXPECT_EQ(refused.statuses, std::vector<int>{0});
  EXPECT_EQ(refused.connectStatuses, std::vector<int>{407});
  const Curled tunnelled = curl({"-p", user[0], user[1], user[2], through[0], through[1], through[2]});
  EXPECT_EQ(tunnelled.statuses, std::vector<int>{200}) << tunnelled.trace;
  EXPECT_EQ(tunnelled.connectStatuses, std::vector<int>{200});
  ASSERT_TRUE(server.waitForAccesses("CONNECT", 2));
  const auto accesses = server.accesses();
  EXPECT_EQ(steps(accesses), (Texts{"1 407  GET", "1 407 Basic GET", "1 200 Basic GET", "1 407  CONNECT",
                                    "1 200 Basic CONNECT"}));
  EXPECT_EQ(accesses.back().user, SquidServer::kForwardBasic.name);
  EXPECT_EQ(accesses.back().target, "127.0.0.1:" + std::to_string(origin.port()));
  EXPECT_EQ(origin.accesses("/echo").size(), 2u);
}

TEST(SquidServer, AsAProxyTakesNtlmOrLetsEverybodyThrough) {
  NginxServer origin;
  SquidServer server({.mode = SquidServer::Mode::ForwardNtlm});
  const std::string ntlm = withDomain(credentials(SquidServer::kNtlm));
  const Curled asked = curl({"-x", server.url(), origin.url("/echo")});
  EXPECT_EQ(asked.statuses, std::vector<int>{407});
  EXPECT_EQ(asked.lastFields("Proxy-Authenticate"), Texts{"NTLM"});
  const Texts options = {"--proxy-ntlm", "-x", server.url(), origin.url("/echo")};
  EXPECT_EQ(statusOf({"-U", withDomain("alice:wrong"), options[0], options[1], options[2], options[3]}), 407);
  EXPECT_EQ(statusOf({"-U", ntlm, options[0], options[1], options[2], options[3]}), 200);
  EXPECT_EQ(statusOf({"-U", ntlm, "-p", options[0], options[1], options[2], options[3]}), 200);
  ASSERT_TRUE(server.waitForAccesses("CONNECT", 2));
  EXPECT_EQ(steps(server.accesses()),
            (Texts{"1 407  GET", "1 407 NTLM GET", "2 407 NTLM GET", "1 407 NTLM GET", "2 200 NTLM GET",
                   "1 407 NTLM CONNECT", "2 200 NTLM CONNECT"}));

  SquidServer open({.mode = SquidServer::Mode::ForwardOpen});
  EXPECT_EQ(statusOf({"-x", open.url(), origin.url("/echo")}), 200);
  EXPECT_EQ(origin.accesses("/echo").size(), 3u);
}

}  // namespace
