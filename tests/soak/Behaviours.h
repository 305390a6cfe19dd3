#pragma once

// What a task of the soak may be told to do, and what has to become of it. The servers' side is the locations of
// NginxServer, and kLocations; the tunnel; and the host, which SoakTest.cpp is.

#include <cstddef>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "httpPool/ZEP_HttpPool.h"
#include "tests/support/NginxServer.h"

namespace test {

/// How often a server receives a request that bears the number of an errand.
struct Requests {
  int least = 1;
  int most = 1;
};

/// One run: what the host sets, and how it ends.
struct Errand {
  /// The properties but the last two, by number; those that are not here are emptied.
  std::vector<std::pair<ZEP_HTTP_TASK_PROPERTY, std::string>> properties = {};
  std::vector<unsigned char> data = {};
  /// Not final within so many beats of the pool: given up by the host. Nothing: the host waits until it ends by itself.
  int beatsToLive = 0;
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_DONE;
  /// Whether this is the result that it must have.
  std::function<bool(const std::string& result)> isRight = {};
  Requests requests = {};
  /// Written by a download; the host's to remove.
  std::string file = {};
  /// The system has no thread for it, if it needs a new one: then it fails, and no server hears of it.
  bool hasNoThread = false;
  const char* name = "";
  /// From 0.
  std::size_t number = 0;
};

/// Makes errands of all kinds in fixed shares, in an order by chance. One thread.
class Behaviours {
 public:
  /// One whose certificate everybody trusts, and one whose certificate nobody does. The host lets in the latter by its
  /// address, and by its name it does not.
  struct Servers {
    const NginxServer& trusted;
    const NginxServer& untrusted;
  };

  /// `folder`: for files. The servers must outlive it.
  Behaviours(const Servers& servers, std::string folder);

  /// Leads through a proxy: the trusted server itself, or for https the tunnel to either.
  static constexpr const char* kProxied = "proxied.test";
  static constexpr const char* kServersNames = "DNS:localhost,IP:127.0.0.1,DNS:proxied.test";
  static constexpr const char* kUser = "somebody";
  static constexpr const char* kPassword = "soaked";
  static constexpr const char* kAcceptedHost = "127.0.0.1";

  /// What the servers must have beside their standard set. Connections at rest are closed soon, so that a test can see
  /// all of them go.
  static constexpr const char* kLocations = "keepalive_timeout " SOAK_KEPT R"(;
    location = /basic { content_by_lua_block {
      ngx.req.read_body()
      if ngx.var.http_authorization == "Basic " .. ngx.encode_base64("somebody:soaked") then
        ngx.print("signed in")
      else
        ngx.status = 401
        ngx.header["WWW-Authenticate"] = 'Basic realm="soak"'
        ngx.print("who is it?")
      end
    } }
    location = /lie { content_by_lua_block {
      local socket = ngx.req.socket(true)
      socket:send("this is no HTTP\r\n\r\n")
      ngx.exit(444)
    } }
  )";

  /// The next one of the mixture.
  Errand next();
  /// Those that a run begins with: they need more time than others, or a process that has nothing to do.
  Errand timedOut();
  Errand withoutThread();
  /// The plainest ones.
  Errand plain();
  Errand overTls();

  /// How many errands one of each kind's share makes; a multiple of it holds all kinds alike.
  static std::size_t inAllShares();
  /// The names of all kinds, those that a run begins with included.
  static std::vector<std::string> names();

 private:
  using Maker = Errand (Behaviours::*)();
  struct Share {
    unsigned weight;
    const char* name;
    Maker make;
  };

  unsigned upTo(unsigned most) { return std::uniform_int_distribution<unsigned>(0, most)(random_); }
  std::string bytes(std::size_t length);
  std::string numbered(const std::string& target) const;
  std::string plainUrl(const std::string& target) const;
  std::string url(const std::string& target);
  Errand made(const Share& share);

  Errand text();
  Errand plainText();
  Errand tlsText();
  Errand utf8();
  Errand latin1();
  Errand compressed();
  Errand large();
  Errand echoedData();
  Errand echoedFields();
  Errand download();
  Errand unwritable();
  Errand dripping();
  Errand redirected();
  Errand notFound();
  Errand refused();
  Errand tooMany();
  Errand closed();
  Errand reset();
  Errand cut();
  Errand brokenEncoding();
  Errand badRedirect();
  Errand endlessRedirect();
  Errand noServer();
  Errand noUrl();
  Errand lied();
  Errand givenUp();
  Errand givenUpInBody();
  Errand signedIn();
  Errand untrustedAccepted();
  Errand untrustedRefused();
  Errand untrustedUnasked();
  Errand proxied();
  Errand tunnelled();
  Errand tunnelledUnasked();
  Errand tunnelRefused();
  Errand tunnelLocked();
  Errand unknownHost();
  Errand noNameServer();
  Errand fromFile();
  Errand missingFile();
  Errand silent();

  static const std::vector<Share>& shares();

  const NginxServer& server_;
  const NginxServer& untrusted_;
  const std::string folder_;
  std::mt19937 random_{20260801};
  /// What is left of a mixture, the next one last.
  std::vector<const Share*> mixture_;
  std::size_t made_ = 0;
};

}  // namespace test
