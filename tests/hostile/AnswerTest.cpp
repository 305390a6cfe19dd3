// Answers over HTTP/1 that are malformed or can be read in two ways (RFC 9112 §4, §5, §6.3, §7.1).

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/hostile/Attack.h"

namespace test {
namespace {

const Outcome kLost = failed(1);
const Outcome kRefused = failed(2);
const Outcome kBad = failed(6);

std::string ok(const std::string& fields, const std::string& body) {
  return "HTTP/1.1 200 OK\r\n" + fields + "\r\n" + body;
}

std::string chunked(const std::string& body) {
  return ok("Transfer-Encoding: chunked\r\n", body);
}

TEST(HostileAnswer, WithABadStatusLineEnds) {
  const std::string rest = "\r\nContent-Length: 2\r\n\r\nhi";
  expectEnds({
      answering("nothing", "", kLost),
      answering("an empty line", "\r\n", kBad),
      answering("no status line", "Content-Length: 2\r\n\r\nhi", kBad),
      answering("HTTP/0.9", "<html>hi</html>", kBad),
      answering("no version", "HTTP 200 OK" + rest, kBad),
      answering("version 3.0", "HTTP/3.0 200 OK" + rest, kBad),
      answering("version 9.9", "HTTP/9.9 200 OK" + rest, kBad),
      answering("version 1", "HTTP/1 200 OK" + rest, kBad),
      answering("version 11", "HTTP/11 200 OK" + rest, kBad),
      answering("version -1", "HTTP/-1.1 200 OK" + rest, done("hi")),
      answering("lower case", "http/1.1 200 OK" + rest, kRefused),
      answering("no blank", "HTTP/1.1200 OK" + rest, kBad),
      answering("a blank before", " HTTP/1.1 200 OK" + rest, kBad),
      answering("no status", "HTTP/1.1 OK" + rest, kBad),
      answering("status 99", "HTTP/1.1 99 No" + rest, kBad),
      answering("status 099", "HTTP/1.1 099 No" + rest, kBad),
      answering("status 000", "HTTP/1.1 000 No" + rest, kBad),
      answering("status 1000", "HTTP/1.1 1000 No" + rest, kBad),
      answering("status 2000", "HTTP/1.1 2000 OK" + rest, kBad),
      answering("status -200", "HTTP/1.1 -200 No" + rest, kBad),
      answering("status +200", "HTTP/1.1 +200 No" + rest, kBad),
      answering("status 0x0", "HTTP/1.1 0x0 No" + rest, kBad),
      answering("status 999", "HTTP/1.1 999 Who knows" + rest, kRefused),
      answering("status 600", "HTTP/1.1 600 Who knows" + rest, kRefused),
      answering("interim only", "HTTP/1.1 100 Continue\r\n\r\n", kLost),
      answering("a protocol nobody asked for", "HTTP/1.1 101 Go\r\nUpgrade: h2c\r\n\r\n", kRefused),
      answering("no reason", "HTTP/1.1 200" + rest, done("hi")),
      answering("version 1.0", "HTTP/1.0 200 OK" + rest, done("hi")),
      answering("a bare line feed", "HTTP/1.1 200 OK\nContent-Length: 2\n\nhi", done("hi")),
  });
}

TEST(HostileAnswer, WithABadHeaderEnds) {
  const std::string length = "Content-Length: 2\r\n";
  const std::string nul("\0", 1);
  expectEnds({
      answering("NUL in a value", ok(length + "X: a" + nul + "b\r\n", "hi"), kBad),
      answering("NUL in a name", ok(length + "X" + nul + "Y: a\r\n", "hi"), kBad),
      answering("NUL in the status line", "HTTP/1.1 200 O" + nul + "K\r\n" + length + "\r\nhi", kBad),
      answering("no colon", ok(length + "This is no field\r\n", "hi"), kBad),
      answering("a colon alone", ok(length + ":\r\n", "hi"), done("hi")),
      answering("no name", ok(length + ": value\r\n", "hi"), done("hi")),
      answering("a blank before the colon", ok("Content-Length : 2\r\n", "hi"), done("hi")),
      answering("folded", ok(length + "X: a\r\n b\r\n", "hi"), done("hi")),
      answering("folded at the beginning", "HTTP/1.1 200 OK\r\n folded\r\n" + length + "\r\nhi", kBad),
      answering("a carriage return alone", ok(length + "X: a\rb\r\n", "hi"), done("hi")),
      answering("a line feed alone", ok("X: a\n" + length, "hi"), done("hi")),
      answering("bytes above 127", ok(length + "X\xff: \xfe\xff\r\n", "hi"), done("hi")),
      answering("cut in the header", "HTTP/1.1 200 OK\r\nContent-Le", kLost),
      answering("cut before the empty line", "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n", kLost),
      answering("no header", "HTTP/1.1 200 OK\r\n\r\nhi", done("hi")),
  });
}

TEST(HostileAnswer, WithABadLengthEnds) {
  const std::string length = "Content-Length: 2\r\n";
  expectEnds({
      answering("negative", ok("Content-Length: -2\r\n", "hi"), kBad),
      answering("no number", ok("Content-Length: two\r\n", "hi"), kBad),
      answering("empty", ok("Content-Length:\r\n", "hi"), kBad),
      answering("hexadecimal", ok("Content-Length: 0x2\r\n", "hi"), kBad),
      answering("with a sign", ok("Content-Length: +2\r\n", "hi"), kBad),
      answering("with something behind", ok("Content-Length: 2 3\r\n", "hi"), kBad),
      answering("two of one", ok("Content-Length: 2, 2\r\n", "hi"), done("hi")),
      answering("a fraction", ok("Content-Length: 2.0\r\n", "hi"), kBad),
      answering("two of one that differ", ok("Content-Length: 2, 1\r\n", "hi"), kBad),
      answering("twice the same", ok(length + length, "hi"), done("hi")),
      answering("two that differ", ok("Content-Length: 1\r\nContent-Length: 2\r\n", "hi"), kBad),
      answering("two that differ downwards", ok("Content-Length: 2\r\nContent-Length: 1\r\n", "hi"), kBad),
      answering("more than 64 bits", ok("Content-Length: 99999999999999999999999\r\n", "hi"), kBad),
      answering("64 bits", ok("Content-Length: 18446744073709551615\r\n", "hi"), kBad),
      answering("63 bits", ok("Content-Length: 9223372036854775807\r\n", "hi"), kBad),
      answering("too short a body", ok("Content-Length: 3\r\n", "hi"), kLost),
      answering("too long a body", ok("Content-Length: 1\r\n", "hi"), done("h")),
      answering("beside chunks",
                ok("Content-Length: 1\r\nTransfer-Encoding: chunked\r\n", "2\r\nhi\r\n0\r\n\r\n"),
                done("hi")),
      answering("behind chunks",
                ok("Transfer-Encoding: chunked\r\nContent-Length: 1\r\n", "2\r\nhi\r\n0\r\n\r\n"),
                done("hi")),
  });
}

TEST(HostileAnswer, WithBadChunksEnds) {
  expectEnds({
      answering("as it should be", chunked("2\r\nhi\r\n0\r\n\r\n"), done("hi")),
      answering("no size", chunked("\r\nhi\r\n0\r\n\r\n"), kLost),
      answering("negative", chunked("-2\r\nhi\r\n0\r\n\r\n"), kLost),
      answering("with a sign", chunked("+2\r\nhi\r\n0\r\n\r\n"), kLost),
      answering("with a prefix", chunked("0x2\r\nhi\r\n0\r\n\r\n"), kBad),
      answering("no number", chunked("zz\r\nhi\r\n0\r\n\r\n"), kLost),
      answering("65 bits", chunked("10000000000000002\r\nhi\r\n0\r\n\r\n"), kLost),
      answering("64 bits", chunked("ffffffffffffffff\r\nhi\r\n0\r\n\r\n"), kLost),
      answering("63 bits", chunked("7fffffffffffffff\r\nhi\r\n0\r\n\r\n"), kLost),
      answering("a thousand digits", chunked(std::string(1000, '0') + "2\r\nhi\r\n0\r\n\r\n"), kLost),
      answering("a bare line feed behind the data", chunked("3\r\nhi\r\n0\r\n\r\n"), done("hi\r")),
      answering("too long a chunk", chunked("1\r\nhi\r\n0\r\n\r\n"), kLost),
      answering("nothing behind the data", chunked("2\r\nhi0\r\n\r\n"), kLost),
      answering("a long extension", chunked("2;" + std::string(8000, 'e') + "\r\nhi\r\n0\r\n\r\n"),
                done("hi")),
      answering("cut in the size", chunked("2"), kLost),
      answering("cut in the data", chunked("2\r\nh"), kLost),
      answering("cut before the last chunk", chunked("2\r\nhi\r\n"), kLost),
      answering("cut in the trailer", chunked("2\r\nhi\r\n0\r\nX: y\r\n"), kLost),
      answering("a trailer that is none", chunked("2\r\nhi\r\n0\r\nno field\r\n\r\n"), kBad),
      answering("a length in the trailer", chunked("2\r\nhi\r\n0\r\nContent-Length: 7\r\n\r\n"), done("hi")),
      answering("a coding nobody knows", ok("Transfer-Encoding: rot13\r\n", "uv"), kBad),
      answering("chunked twice", ok("Transfer-Encoding: chunked, chunked\r\n", "2\r\nhi\r\n0\r\n\r\n"),
                done("hi")),
  });
}

// What a server sends behind an answer belongs to no later request.
TEST(HostileAnswer, BehindAnotherAnswersNobody) {
  const std::string answer = ok("Content-Length: 2\r\n", "hi");
  RawServer server([&](RawServer::Connection& connection) {
    while (!connection.readRequest().empty()) {
      connection.send(answer + ok("Content-Length: 4\r\n", "evil"));
    }
  });
  HostPool pool;
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(pool.run({.url = server.url("/")}), done("hi"));
  }
}

}  // namespace
}  // namespace test
