// Answers that end at each of their bytes, by a regular end of the connection and by a reset.

#include <gtest/gtest.h>

#include <future>
#include <string>
#include <vector>

#include "tests/hostile/Attack.h"

namespace test {
namespace {

enum class End { Close, Reset };

RawServer::Script cutAfter(const std::string& text, End end) {
  return [=](RawServer::Connection& connection) {
    connection.readRequest();
    connection.send(text);
    if (end == End::Reset) {
      connection.reset();
    }
  };
}

/// Each beginning of the answer. `spare`: so many of its last bytes are not missed.
std::vector<Attack> cutEverywhere(const std::string& answer, End end, const Outcome& whole,
                                  std::size_t spare = 0) {
  std::vector<Attack> attacks;
  for (std::size_t length = 0; length <= answer.size(); ++length) {
    attacks.push_back({"after " + std::to_string(length) + " bytes", cutAfter(answer.substr(0, length), end),
                       length + spare >= answer.size() ? whole : failed(1)});
  }
  return attacks;
}

const std::string kWithLength = "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello";
const std::string kInChunks = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n0\r\n\r\n";
const std::string kToTheEnd = "HTTP/1.1 200 OK\r\n\r\n";

TEST(CutAnswer, WithALengthIsLostBeforeItsLastByte) {
  expectEnds(cutEverywhere(kWithLength, End::Close, done("hello")));
}

TEST(CutAnswer, InChunksIsLostBeforeItsLastByte) {
  // The last carriage return is taken for the end of the line.
  expectEnds(cutEverywhere(kInChunks, End::Close, done("hello"), 1));
}

TEST(CutAnswer, WithoutALengthIsLostInItsHead) {
  expectEnds(cutEverywhere(kToTheEnd, End::Close, done("")));
}

TEST(CutAnswer, ThatIsResetIsLostBeforeItsLastByte) {
  std::vector<Attack> attacks = cutEverywhere(kWithLength, End::Reset, done("hello"));
  for (Attack& attack : cutEverywhere(kInChunks, End::Reset, done("hello"), 1)) {
    attack.name = "in chunks " + attack.name;
    attacks.push_back(std::move(attack));
  }
  for (Attack& attack : attacks) {
    if (attack.expected == done("hello")) {
      // The reset may overtake the reading of what has come.
      attack.orElse = failed(1);
    }
  }
  expectEnds(attacks);
}

TEST(CutAnswer, ThatIsResetBehindItsEndIsWhole) {
  for (const std::string& answer : {kWithLength, kInChunks}) {
    std::promise<void> isDone;
    const std::shared_future<void> end = isDone.get_future().share();
    RawServer server([&](RawServer::Connection& connection) {
      connection.readRequest();
      connection.send(answer);
      end.wait();
      connection.reset();
    });
    HostPool pool;
    EXPECT_EQ(pool.run({.url = server.url("/")}), done("hello"));
    isDone.set_value();
    // The connection that was kept is of no use.
    EXPECT_EQ(pool.run({.url = server.url("/")}), done("hello"));
    EXPECT_EQ(server.connections(), 2);
  }
}

}  // namespace
}  // namespace test
