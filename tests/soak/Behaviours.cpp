#include "tests/soak/Behaviours.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

#include "tests/soak/SystemFaults.h"
#include "tests/soak/TunnelProxy.h"
#include "tests/support/EchoedRequest.h"
#include "tests/support/Files.h"

namespace test {
namespace {

constexpr const char* kGet = R"({"HttpMethonGet":"1"})";

std::function<bool(const std::string&)> is(std::string text) {
  return [text = std::move(text)](const std::string& result) { return result == text; };
}

/// Gets something from there.
Errand got(std::string url) {
  Errand errand;
  errand.properties.emplace_back(ZEP_HTTP_TASK_PROP_URL, std::move(url));
  errand.properties.emplace_back(ZEP_HTTP_TASK_PROP_HEADER_FIELDS, kGet);
  return errand;
}

Errand done(std::string url, std::string result) {
  Errand errand = got(std::move(url));
  errand.isRight = is(std::move(result));
  return errand;
}

Errand failed(std::string url, int errorID, int errorReason = 0) {
  Errand errand = got(std::move(url));
  errand.status = ZEP_HTTP_TASK_FAILED;
  errand.isRight =
      is("{\"errorID\":" + std::to_string(errorID) + ",\"errorReason\":" + std::to_string(errorReason) + "}");
  return errand;
}

bool isGotOverTls(const Errand& errand) {
  const auto& properties = errand.properties;
  return errand.data.empty() && properties.front().second.rfind("https:", 0) == 0 &&
         properties.back().second.find("HttpMethonGet") != std::string::npos;
}

/// None of its requests gets as far as to a server.
Errand unheard(Errand errand) {
  errand.requests = {.least = 0, .most = 0};
  return errand;
}

}  // namespace

Behaviours::Behaviours(const Servers& servers, std::string folder)
    : server_(servers.trusted), untrusted_(servers.untrusted), folder_(std::move(folder)) {
  writeFile(folder_ + "/file", "from a file");
}

const std::vector<Behaviours::Share>& Behaviours::shares() {
  static const std::vector<Share> all = {
      {192, "text", &Behaviours::text},
      {50, "utf8", &Behaviours::utf8},
      {50, "latin1", &Behaviours::latin1},
      {50, "compressed", &Behaviours::compressed},
      {30, "large", &Behaviours::large},
      {90, "echoed data", &Behaviours::echoedData},
      {50, "echoed fields", &Behaviours::echoedFields},
      {30, "download", &Behaviours::download},
      {5, "unwritable", &Behaviours::unwritable},
      {10, "dripping", &Behaviours::dripping},
      {60, "redirected", &Behaviours::redirected},
      {40, "not found", &Behaviours::notFound},
      {40, "refused", &Behaviours::refused},
      {20, "too many", &Behaviours::tooMany},
      {20, "closed", &Behaviours::closed},
      {20, "reset", &Behaviours::reset},
      {20, "cut", &Behaviours::cut},
      {10, "broken encoding", &Behaviours::brokenEncoding},
      {10, "bad redirect", &Behaviours::badRedirect},
      {2, "endless redirect", &Behaviours::endlessRedirect},
      {20, "no server", &Behaviours::noServer},
      {10, "no URL", &Behaviours::noUrl},
      {10, "lied", &Behaviours::lied},
      {15, "given up", &Behaviours::givenUp},
      {5, "given up in the body", &Behaviours::givenUpInBody},
      {15, "signed in", &Behaviours::signedIn},
      {6, "untrusted, accepted", &Behaviours::untrustedAccepted},
      {5, "untrusted, refused", &Behaviours::untrustedRefused},
      {5, "untrusted, unasked", &Behaviours::untrustedUnasked},
      {10, "proxied", &Behaviours::proxied},
      {60, "tunnelled", &Behaviours::tunnelled},
      {10, "tunnelled, unasked", &Behaviours::tunnelledUnasked},
      {5, "tunnel refused", &Behaviours::tunnelRefused},
      {5, "tunnel locked", &Behaviours::tunnelLocked},
      {5, "unknown host", &Behaviours::unknownHost},
      {5, "no name server", &Behaviours::noNameServer},
      {5, "file", &Behaviours::fromFile},
      {5, "missing file", &Behaviours::missingFile},
  };
  return all;
}

std::size_t Behaviours::inAllShares() {
  std::size_t all = 0;
  for (const Share& share : shares()) {
    all += share.weight;
  }
  return all;
}

std::vector<std::string> Behaviours::names() {
  std::vector<std::string> all = {"plain", "over TLS", "timed out", "without a thread"};
  for (const Share& share : shares()) {
    all.emplace_back(share.name);
  }
  std::sort(all.begin(), all.end());
  return all;
}

Errand Behaviours::made(const Share& share) {
  Errand errand = (this->*share.make)();
  errand.name = share.name;
  errand.number = made_++;
  if (errand.beatsToLive > 0) {
    errand.requests.least = 0;
  }
  if (isGotOverTls(errand) && errand.requests.most > 0) {
    ++errand.requests.most;  // on a connection that the server gives up as it is used again
  }
  return errand;
}

Errand Behaviours::next() {
  if (mixture_.empty()) {
    for (const Share& share : shares()) {
      mixture_.insert(mixture_.end(), share.weight, &share);
    }
    std::shuffle(mixture_.begin(), mixture_.end(), random_);
  }
  const Share& share = *mixture_.back();
  mixture_.pop_back();
  return made(share);
}

Errand Behaviours::plain() {
  return made({.weight = 0, .name = "plain", .make = &Behaviours::plainText});
}

Errand Behaviours::overTls() {
  return made({.weight = 0, .name = "over TLS", .make = &Behaviours::tlsText});
}

Errand Behaviours::withoutThread() {
  Errand errand = made({.weight = 0, .name = "without a thread", .make = &Behaviours::text});
  errand.hasNoThread = true;
  return errand;
}

Errand Behaviours::timedOut() {
  return made({.weight = 0, .name = "timed out", .make = &Behaviours::silent});
}

std::string Behaviours::bytes(std::size_t length) {
  std::string text(length, '\0');
  for (char& byte : text) {
    byte = static_cast<char>(random_());
  }
  return text;
}

std::string Behaviours::numbered(const std::string& target) const {
  return target + (target.find('?') == std::string::npos ? "?" : "&") + "id=" + std::to_string(made_);
}

std::string Behaviours::plainUrl(const std::string& target) const {
  return server_.url(numbered(target));
}

/// By TLS one time in ten.
std::string Behaviours::url(const std::string& target) {
  return upTo(9) == 0 ? server_.tlsUrl(numbered(target)) : plainUrl(target);
}

Errand Behaviours::text() {
  return done(url("/text"), "Hello, pool!");
}

Errand Behaviours::plainText() {
  return done(plainUrl("/text"), "Hello, pool!");
}

Errand Behaviours::tlsText() {
  return done(server_.tlsUrl(numbered("/text")), "Hello, pool!");
}

Errand Behaviours::utf8() {
  return done(url("/utf8"), "Grüße, 世界 🌍");
}

Errand Behaviours::latin1() {
  return done(url("/latin1"), "caf\xE9 ol\xE9");
}

Errand Behaviours::compressed() {
  std::string lines;
  for (int line = 1; line <= 200; ++line) {
    lines += "compressed line " + std::to_string(line) + "\n";
  }
  return done(url("/gzip"), lines);
}

Errand Behaviours::large() {
  const std::size_t length = upTo(300'000);
  return done(url("/big?bytes=" + std::to_string(length)), NginxServer::bigBody(length));
}

Errand Behaviours::echoedData() {
  const std::string sent = bytes(1 + upTo(3000));
  Errand errand{.properties = {{ZEP_HTTP_TASK_PROP_URL, url("/echo")}},
                .data = {sent.begin(), sent.end()},
                .isRight = [sent](const std::string& result) {
                  const auto echoed = EchoedRequest::parse(result);
                  return echoed.method == "POST" && echoed.body == sent;
                }};
  return errand;
}

Errand Behaviours::echoedFields() {
  const std::string value = std::to_string(random_());
  return {
      .properties = {{ZEP_HTTP_TASK_PROP_URL, url("/echo")},
                     {ZEP_HTTP_TASK_PROP_HEADER_FIELDS,
                      R"({"X-Number":")" + value + R"(","Content-Type":"text/soak","X-No":"a\r\nX-Yes: b"})"},
                     {ZEP_HTTP_TASK_PROP_POST_DATA, "text " + value}},
      .isRight = [value](const std::string& result) {
        const auto echoed = EchoedRequest::parse(result);
        return echoed.header("X-Number") == value && echoed.header("Content-Type") == "text/soak" &&
               echoed.body == "text " + value && !echoed.has("X-No") && !echoed.has("X-Yes");
      }};
}

Errand Behaviours::download() {
  const std::size_t length = upTo(200'000);
  const std::string path = folder_ + "/download " + std::to_string(made_);
  return {.properties = {{ZEP_HTTP_TASK_PROP_URL, url("/big?bytes=" + std::to_string(length))},
                         {ZEP_HTTP_TASK_PROP_DOWNLOAD_FILE, path}},
          .isRight =
              [path, length](const std::string& result) {
                return result == path && readFile(path) == NginxServer::bigBody(length);
              },
          .file = path};
}

/// That it cannot be written is not told.
Errand Behaviours::unwritable() {
  const std::string path = folder_ + "/no such folder/file";
  Errand errand = done(url("/text"), path);
  errand.properties.emplace_back(ZEP_HTTP_TASK_PROP_DOWNLOAD_FILE, path);
  return errand;
}

Errand Behaviours::dripping() {
  const unsigned drops = 1 + upTo(9);
  return done(url("/drip?ms=7&n=" + std::to_string(drops)), std::string(drops, 'x'));
}

Errand Behaviours::redirected() {
  return done(url("/redirect/chain/" + std::to_string(upTo(4))), "Hello, pool!");
}

Errand Behaviours::notFound() {
  return done(url("/status/404"), "status 404");
}

Errand Behaviours::refused() {
  return failed(url("/status/500"), 2);
}

Errand Behaviours::tooMany() {
  Errand errand = failed(url("/retry-after?value=7"), 5, 7000);
  errand.properties.back().second = R"({"HttpMethonGet":"1","Glint":"1"})";
  errand.status = ZEP_HTTP_TASK_DONE;
  return errand;
}

/// On a connection that was used before, the same is tried again: six times, and as often when it had to wait for a
/// socket meanwhile.
Errand Behaviours::closed() {
  Errand errand = failed(url("/close"), 1);
  errand.requests.most = 14;
  return errand;
}

Errand Behaviours::reset() {
  Errand errand = failed(plainUrl("/reset"), 1);
  errand.requests.most = 14;
  return errand;
}

Errand Behaviours::cut() {
  return failed(plainUrl("/cut"), 1);
}

Errand Behaviours::brokenEncoding() {
  return failed(url("/encoding/broken"), 6);
}

Errand Behaviours::badRedirect() {
  return failed(url("/redirect/bad/ftp"), 2);
}

Errand Behaviours::endlessRedirect() {
  return failed(plainUrl("/redirect/loop"), 6);
}

Errand Behaviours::noServer() {
  return unheard(failed("http://127.0.0.1:1/", 2));
}

Errand Behaviours::noUrl() {
  return unheard(failed("", 6));
}

Errand Behaviours::lied() {
  return failed(plainUrl("/lie"), 6);
}

/// By the host, or on a slow machine by its idle time.
Errand Behaviours::givenUp() {
  Errand errand = silent();
  errand.beatsToLive = 1 + static_cast<int>(upTo(20));
  return errand;
}

Errand Behaviours::givenUpInBody() {
  Errand errand = failed(plainUrl("/half"), 4);
  errand.beatsToLive = 1 + static_cast<int>(upTo(20));
  return errand;
}

Errand Behaviours::silent() {
  return failed(plainUrl("/silent"), 4);
}

/// Asked, and asked again with what the host answers.
Errand Behaviours::signedIn() {
  Errand errand = done(url("/basic"), "signed in");
  errand.requests = {.least = 2, .most = 2};
  return errand;
}

Errand Behaviours::untrustedAccepted() {
  return done(untrusted_.tlsUrl(numbered("/text"), kAcceptedHost), "Hello, pool!");
}

Errand Behaviours::untrustedRefused() {
  return unheard(failed(untrusted_.tlsUrl(numbered("/text")), 3));
}

Errand Behaviours::untrustedUnasked() {
  Errand errand = done(untrusted_.tlsUrl(numbered("/text")), "Hello, pool!");
  errand.properties.back().second = R"({"HttpMethonGet":"1","Adjacency":"1"})";
  return errand;
}

Errand Behaviours::proxied() {
  return done(std::string("http://") + kProxied + numbered("/text"), "Hello, pool!");
}

Errand Behaviours::tunnelled() {
  return done(server_.tlsUrl(numbered("/text"), kProxied), "Hello, pool!");
}

Errand Behaviours::tunnelledUnasked() {
  Errand errand = done(untrusted_.tlsUrl(numbered("/text"), kProxied), "Hello, pool!");
  errand.properties.back().second = R"({"HttpMethonGet":"1","Adjacency":"1"})";
  return errand;
}

Errand Behaviours::tunnelRefused() {
  return unheard(failed(std::string("https://") + TunnelProxy::kForbidden + "/", 1));
}

Errand Behaviours::tunnelLocked() {
  return unheard(failed(std::string("https://") + TunnelProxy::kLocked + "/", 1));
}

Errand Behaviours::unknownHost() {
  return unheard(failed(std::string("http://") + kNoSuchHost + "/", 2));
}

Errand Behaviours::noNameServer() {
  return unheard(failed(std::string("http://") + kNoNameServer + "/", 1));
}

Errand Behaviours::fromFile() {
  return unheard(done("file://" + folder_ + "/file", "from a file"));
}

Errand Behaviours::missingFile() {
  return unheard(failed("file://" + folder_ + "/missing", 6));
}

}  // namespace test
