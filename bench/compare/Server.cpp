#include "bench/compare/Server.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "tests/support/FreePort.h"
#include "tests/support/PlainRequest.h"
#include "tests/support/Template.h"

namespace bench {
namespace {

constexpr const char* kBody = "Hello, pool!";

constexpr const char* kConfiguration = R"(
    listen 127.0.0.1:@TLSPORT@ ssl backlog=8192;
    location = /small { access_log off; return 200 "@BODY@"; }
    location = /held {
      access_log off;
      content_by_lua_block { ngx.sleep(0.5 + math.random()) ngx.print("@BODY@") }
    }
    location = /files/large { access_log off; sendfile on; tcp_nopush on; alias @FOLDER@/files/large; }
)";

std::string configuration(int tlsPort) {
  return test::filledIn(kConfiguration, {{"TLSPORT", std::to_string(tlsPort)}, {"BODY", kBody}});
}

}  // namespace

Server::Server(long downloadBytes)
    : downloadBytes_(downloadBytes),
      tlsPort_(test::freePort()),
      nginx_({.certificate = authority_.good(), .extraLocations = configuration(tlsPort_)}) {
  const std::string large = nginx_.folder() + "/files/large";
  std::ofstream(large).close();
  std::filesystem::resize_file(large, static_cast<std::uintmax_t>(downloadBytes));
}

std::string Server::urlOf(const Work& work) const {
  if (work.kind == Kind::Download) {
    return nginx_.url("/files/large");
  }
  const std::string target = work.kind == Kind::Held ? "/held" : "/small";
  switch (work.protocol) {
    case Protocol::Http1:
      return nginx_.url(target);
    case Protocol::Tls:
      return "https://127.0.0.1:" + std::to_string(tlsPort_) + target;
    case Protocol::Http2:
      return nginx_.tlsUrl(target, "127.0.0.1");
  }
  throw std::logic_error("protocol");
}

long Server::bodyBytesOf(const Work& work) const {
  return work.kind == Kind::Download ? downloadBytes_ : static_cast<long>(std::string(kBody).size());
}

long Server::requestsSeen() {
  const std::string answer = test::plainGet(nginx_.port(), "/connections");
  const std::string label = "requests";
  std::istringstream text(answer.substr(std::min(answer.size(), answer.find(label) + label.size())));
  long accepted = 0;
  long handled = 0;
  long requests = 0;
  if (!(text >> accepted >> handled >> requests)) {
    throw std::runtime_error("nginx does not tell its count:\n" + answer);
  }
  return requests - ++ownRequests_;
}

}  // namespace bench
