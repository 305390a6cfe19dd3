// Answers without an end, bodies that grow when they are decoded, and lengths that do not hold.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "tests/host/PromptHost.h"
#include "tests/hostile/Attack.h"
#include "tests/hostile/Encodings.h"

namespace test {
namespace {

constexpr std::size_t kMegabyte = std::size_t{1} << 20;

const Outcome kBad = failed(6);

const std::string kHead = "HTTP/1.1 200 OK\r\n";
const std::string kChunkedHead = kHead + "Transfer-Encoding: chunked\r\n\r\n";

void limitBodies() {
  setenv("ZEP_URL_MAX_BODY_BYTES", std::to_string(kMegabyte).c_str(), 1);
}

/// Sends the beginning, and then the rest again and again for as long as somebody takes it.
Attack endless(const std::string& name, const std::string& beginning, const std::string& rest,
               const Outcome& expected = kBad) {
  std::string block = rest;
  while (block.size() < 16000) {
    block += rest;
  }
  return {.name = name,
          .script =
              [=](RawServer::Connection& connection) {
                connection.readRequest();
                for (bool isTaken = connection.send(beginning); isTaken; isTaken = connection.send(block)) {
                }
              },
          .expected = expected};
}

TEST(HostileStream, WithoutAnEndEnds) {
  limitBodies();
  const std::string filler(1000, 'f');
  expectEnds({
      endless("a status line", "HTTP/1.1 200 ", filler),
      endless("a header line", kHead + "X: ", filler),
      endless("the name of a field", kHead + "X", filler),
      endless("fields", kHead, "X: y\r\n"),
      endless("long fields", kHead, "X: " + filler + "\r\n"),
      endless("folded lines", kHead + "X: y\r\n", " " + filler + "\r\n"),
      endless("cookies", kHead, "Set-Cookie: a=b\r\n"),
      endless("interim answers", "", "HTTP/1.1 100 Continue\r\n\r\n"),
      endless("early hints", "", "HTTP/1.1 103 Early Hints\r\nLink: </a>\r\n\r\n"),
      endless("empty lines", "", "\r\n"),
      endless("what is not HTTP", "", filler),
      endless("a body", kHead + "\r\n", filler),
      endless("chunks", kChunkedHead, "3e8\r\n" + filler + "\r\n"),
      endless("small chunks", kChunkedHead, "1\r\nf\r\n"),
      endless("a chunk's size", kChunkedHead, "0", failed(1)),
  });
}

TEST(HostileStream, WithoutAnEndInTheFramingEnds) {
  setenv("ZEP_URL_TIMEOUT_MS", "3000", 1);
  const std::string filler(1000, 'f');
  expectEnds({
      // No byte of a body: it falls silent.
      endless("an extension", kChunkedHead + "1;", filler, failed(4)),
      endless("an extension of the last chunk", kChunkedHead + "0;", filler, failed(4)),
      endless("a line of the trailer", kChunkedHead + "0\r\nX: ", filler, failed(1)),
      endless("the trailer", kChunkedHead + "0\r\n", "X: y\r\n"),
      endless("long fields of the trailer", kChunkedHead + "0\r\n", "X: " + filler + "\r\n"),
  });
}

TEST(HostileStream, ThatRedirectsForEverEnds) {
  auto count = std::make_shared<std::atomic<int>>(0);
  const auto redirecting = [](const std::function<std::string()>& target) {
    return [target](RawServer::Connection& connection) {
      while (!connection.readRequest().empty()) {
        connection.send("HTTP/1.1 302 Found\r\nContent-Length: 0\r\nLocation: " + target() + "\r\n\r\n");
      }
    };
  };
  expectEnds({
      {"to itself", redirecting([] { return std::string("/"); }), kBad},
      {"to ever new places", redirecting([count] { return "/" + std::to_string(++*count); }), kBad},
      {"to ever longer places",
       redirecting([count] { return "/" + std::string(1000 + 1000 * (++*count % 50), 'l'); }), kBad},
      {"to a host that is empty", redirecting([] { return std::string("http:///"); }), failed(2)},
      {"to another scheme", redirecting([] { return std::string("file:///etc/passwd"); }), failed(2)},
      {"to nowhere", redirecting([] { return std::string("http://[::bad/"); }), failed(2)},
  });
}

TEST(HostileStream, OfChallengesEnds) {
  auto count = std::make_shared<std::atomic<int>>(0);
  PromptHost host([](const Prompt&) { return give("user", "password"); });
  expectEnds({{"ever new realms",
               [count](RawServer::Connection& connection) {
                 while (!connection.readRequest().empty()) {
                   connection.send(
                       "HTTP/1.1 401 No\r\nContent-Length: 0\r\nWWW-Authenticate: Basic realm=\"" +
                       std::to_string(++*count) + "\"\r\n\r\n");
                 }
               },
               failed(3)}});
  EXPECT_LE(*count, 52);
}

std::string encoded(const std::string& encoding, const std::string& body) {
  return kHead + "Content-Encoding: " + encoding + "\r\nContent-Length: " + std::to_string(body.size()) +
         "\r\n\r\n" + body;
}

TEST(HostileEncoding, ThatGrowsIsBounded) {
  limitBodies();
  const std::string zeros(64 * kMegabyte, '\0');
  const std::string once = gzipped(zeros);
  const std::string twice = gzipped(once);
  std::string nested = twice;
  std::string names = "gzip, gzip";
  for (int i = 0; i < 8; ++i) {
    nested = gzipped(nested);
    names += ", gzip";
  }
  expectEnds({
      answering("gzip", encoded("gzip", once), kBad),
      answering("deflate", encoded("deflate", deflated(zeros)), kBad),
      answering("br", encoded("br", brotlied(zeros)), kBad),
      answering("zstd", encoded("zstd", zstandarded(zeros)), kBad),
      answering("gzip in gzip", encoded("gzip, gzip", twice), kBad),
      answering("gzip in gzip, in two fields",
                kHead + "Content-Encoding: gzip\r\n" + encoded("gzip", twice).substr(kHead.size()), kBad),
      answering("gzip ten times", encoded(names, nested), kBad),
      answering("a thousand encodings",
                encoded(
                    "gzip" +
                        [] {
                          std::string more;
                          for (int i = 0; i < 1000; ++i) {
                            more += ",br";
                          }
                          return more;
                        }(),
                    "x"),
                kBad),
  });
}

TEST(HostileEncoding, ThatIsDamagedEnds) {
  const std::string text(20000, 't');
  const std::string whole = gzipped(text);
  std::string wrongSum = whole;
  wrongSum[wrongSum.size() - 6] ^= 1;
  std::string wrongByte = whole;
  wrongByte[wrongByte.size() / 2] ^= 0x55;
  expectEnds({
      answering("whole", encoded("gzip", whole), done(text)),
      answering("not gzip", encoded("gzip", "this is plain text, not gzip"), kBad),
      answering("a wrong sum", encoded("gzip", wrongSum), kBad),
      answering("a wrong byte", encoded("gzip", wrongByte), kBad),
      // The answer is whole and only what is encoded in it is not; curl does not tell.
      answering("cut before the sum", encoded("gzip", whole.substr(0, whole.size() - 8)), done(text)),
      answering("cut in its header", encoded("gzip", whole.substr(0, 5)), done("")),
      answering("cut br", encoded("br", brotlied(text).substr(0, 8)), done("")),
      answering("cut zstd", encoded("zstd", zstandarded(text).substr(0, 12)), done("")),
      answering("cut by the connection", encoded("gzip", whole).substr(0, encoded("gzip", whole).size() - 3),
                failed(1)),
      answering("something behind", encoded("gzip", whole + "behind"), kBad),
      answering("an encoding nobody knows", encoded("rot13", "uv"), kBad),
      answering("nothing at all", encoded("gzip", ""), done("")),
  });
}

}  // namespace
}  // namespace test
