#include "tests/soak/Behaviours.h"

#include <unistd.h>

#include <utility>

#include "tests/support/EchoedRequest.h"
#include "tests/support/Files.h"

namespace test {
namespace {

constexpr const char* kGet = R"({"HttpMethonGet":"1"})";

std::function<bool(const std::string&)> is(std::string text) {
  return [text = std::move(text)](const std::string& result) { return result == text; };
}

Errand done(std::string url, std::string result) {
  return {.properties = {{ZEP_HTTP_TASK_PROP_URL, std::move(url)}, {ZEP_HTTP_TASK_PROP_HEADER_FIELDS, kGet}},
          .isRight = is(std::move(result))};
}

Errand failed(std::string url, int errorID, int errorReason = 0) {
  return {.properties = {{ZEP_HTTP_TASK_PROP_URL, std::move(url)}, {ZEP_HTTP_TASK_PROP_HEADER_FIELDS, kGet}},
          .status = ZEP_HTTP_TASK_FAILED,
          .isRight = is("{\"errorID\":" + std::to_string(errorID) +
                        ",\"errorReason\":" + std::to_string(errorReason) + "}")};
}

}  // namespace

Behaviours::Behaviours(const NginxServer& server, std::string folder)
    : server_(server), folder_(std::move(folder)) {
}

const std::vector<Behaviours::Share>& Behaviours::shares() {
  static const std::vector<Share> all = {
      {300, "text", &Behaviours::text},
      {60, "utf8", &Behaviours::utf8},
      {60, "latin1", &Behaviours::latin1},
      {50, "compressed", &Behaviours::compressed},
      {30, "large", &Behaviours::large},
      {100, "echoed data", &Behaviours::echoedData},
      {60, "echoed fields", &Behaviours::echoedFields},
      {30, "download", &Behaviours::download},
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
      {1, "endless redirect", &Behaviours::endlessRedirect},
      {20, "no server", &Behaviours::noServer},
      {10, "no URL", &Behaviours::noUrl},
      {9, "lied", &Behaviours::lied},
      {15, "given up", &Behaviours::givenUp},
      {5, "given up in the body", &Behaviours::givenUpInBody},
  };
  return all;
}

Errand Behaviours::next() {
  unsigned all = 0;
  for (const Share& share : shares()) {
    all += share.weight;
  }
  unsigned drawn = upTo(all - 1);
  auto share = shares().begin();
  while (drawn >= share->weight) {
    drawn -= share->weight;
    ++share;
  }
  Errand errand = (this->*share->make)();
  errand.name = share->name;
  return errand;
}

std::string Behaviours::bytes(std::size_t length) {
  std::string text(length, '\0');
  for (char& byte : text) {
    byte = static_cast<char>(random_());
  }
  return text;
}

/// By TLS one time in ten.
std::string Behaviours::url(const std::string& target) {
  return upTo(9) == 0 ? server_.tlsUrl(target) : server_.url(target);
}

Errand Behaviours::text() {
  return done(url("/text"), "Hello, pool!");
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
  const std::string path = folder_ + "/download " + std::to_string(files_++);
  return {.properties = {{ZEP_HTTP_TASK_PROP_URL, url("/big?bytes=" + std::to_string(length))},
                         {ZEP_HTTP_TASK_PROP_DOWNLOAD_FILE, path}},
          .isRight = [path, length](const std::string& result) {
            const bool isRight = result == path && readFile(path) == NginxServer::bigBody(length);
            return unlink(path.c_str()) == 0 && isRight;
          }};
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

Errand Behaviours::closed() {
  return failed(url("/close"), 1);
}

Errand Behaviours::reset() {
  return failed(server_.url("/reset"), 1);
}

Errand Behaviours::cut() {
  return failed(server_.url("/cut"), 1);
}

Errand Behaviours::brokenEncoding() {
  return failed(url("/encoding/broken"), 6);
}

Errand Behaviours::badRedirect() {
  return failed(url("/redirect/bad/ftp"), 2);
}

Errand Behaviours::endlessRedirect() {
  return failed(server_.url("/redirect/loop"), 6);
}

Errand Behaviours::noServer() {
  return failed("http://127.0.0.1:1/", 2);
}

Errand Behaviours::noUrl() {
  return failed("", 6);
}

Errand Behaviours::lied() {
  return failed(server_.url("/lie"), 6);
}

Errand Behaviours::givenUp() {
  Errand errand = done(server_.url("/silent"), "");
  errand.beatsToLive = 1 + static_cast<int>(upTo(20));
  return errand;
}

Errand Behaviours::givenUpInBody() {
  Errand errand = done(server_.url("/half"), "");
  errand.beatsToLive = 1 + static_cast<int>(upTo(20));
  return errand;
}

}  // namespace test
