#pragma once

// What a task of the soak may be told to do, and what has to become of it. The server's side is the locations of
// NginxServer, and kLocations.

#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "httpPool/ZEP_HttpPool.h"
#include "tests/support/NginxServer.h"

namespace test {

/// One run: what the host sets, and how it ends.
struct Errand {
  /// The properties but the last two, by number; those that are not here are emptied.
  std::vector<std::pair<ZEP_HTTP_TASK_PROPERTY, std::string>> properties = {};
  std::vector<unsigned char> data = {};
  /// Not final within so many beats of the pool: given up by the host. Nothing: it ends by itself.
  int beatsToLive = 0;
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_DONE;
  /// Whether this is the result that it must have.
  std::function<bool(const std::string& result)> isRight = {};
  const char* name = "";
};

/// Makes errands of all kinds, by chance and in fixed shares. One thread.
class Behaviours {
 public:
  /// `folder`: for downloads. The server must outlive it.
  Behaviours(const NginxServer& server, std::string folder);

  /// What the server must have beside its standard set. Connections at rest are closed soon, so that a test can see
  /// all of them go.
  static constexpr const char* kLocations = R"(
    keepalive_timeout 2s;
    location = /lie { content_by_lua_block {
      local socket = ngx.req.socket(true)
      socket:send("this is no HTTP\r\n\r\n")
      ngx.exit(444)
    } }
  )";

  Errand next();

 private:
  using Maker = Errand (Behaviours::*)();
  struct Share {
    unsigned weight;
    const char* name;
    Maker make;
  };

  unsigned upTo(unsigned most) { return std::uniform_int_distribution<unsigned>(0, most)(random_); }
  std::string bytes(std::size_t length);
  std::string url(const std::string& target);

  Errand text();
  Errand utf8();
  Errand latin1();
  Errand compressed();
  Errand large();
  Errand echoedData();
  Errand echoedFields();
  Errand download();
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

  static const std::vector<Share>& shares();

  const NginxServer& server_;
  const std::string folder_;
  std::mt19937 random_{20260801};
  unsigned files_ = 0;
};

}  // namespace test
