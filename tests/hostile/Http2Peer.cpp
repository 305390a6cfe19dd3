#include "tests/hostile/Http2Peer.h"

namespace test {
namespace {

/// With a prefix of 7 bits and no Huffman code (RFC 7541 §5.1, §5.2).
std::string literal(const std::string& text) {
  constexpr std::size_t kPrefix = 127;
  std::string result;
  if (text.size() < kPrefix) {
    result.push_back(static_cast<char>(text.size()));
  } else {
    const std::size_t rest = text.size() - kPrefix;
    result.push_back(static_cast<char>(kPrefix));
    result.push_back(static_cast<char>(0x80U | (rest & 0x7FU)));
    result.push_back(static_cast<char>(rest >> 7));
  }
  return result + text;
}

}  // namespace

std::string frame(FrameType type, int flags, std::uint32_t stream, const std::string& payload) {
  return number(static_cast<std::uint32_t>(payload.size())).substr(1) +
         std::string{static_cast<char>(type), static_cast<char>(flags)} + number(stream) + payload;
}

std::string number(std::uint32_t value) {
  return {static_cast<char>(value >> 24), static_cast<char>(value >> 16), static_cast<char>(value >> 8),
          static_cast<char>(value)};
}

std::string field(const std::string& name, const std::string& value) {
  return std::string(1, '\0') + literal(name) + literal(value);
}

std::string statusOk() {
  return "\x88";
}

std::string answer(std::uint32_t stream, const std::string& body) {
  return frame(FrameType::Headers, kEndHeaders, stream, statusOk()) +
         frame(FrameType::Data, kEndStream, stream, body);
}

bool Http2Peer::takeRequest() {
  constexpr std::size_t kPreface = 24;
  if (!tls_.shakeHands() || !tls_.send(frame(FrameType::Settings, 0, 0, "")) ||
      tls_.read(kPreface).size() != kPreface) {
    return false;
  }
  return takeNextRequest() && tls_.send(frame(FrameType::Settings, kAcknowledges, 0, ""));
}

bool Http2Peer::takeNextRequest() {
  for (int type = 0; type >= 0;) {
    type = readFrame();
    if (type == static_cast<int>(FrameType::Headers)) {
      return true;
    }
  }
  return false;
}

void Http2Peer::readToEnd() {
  while (readFrame() >= 0) {
  }
}

int Http2Peer::readFrame() {
  constexpr std::size_t kHead = 9;
  const std::string head = tls_.read(kHead);
  if (head.size() < kHead) {
    return -1;
  }
  const auto byte = [&](std::size_t at) {
    return static_cast<std::size_t>(static_cast<unsigned char>(head[at]));
  };
  tls_.read(byte(0) << 16 | byte(1) << 8 | byte(2));
  return head[3];
}

}  // namespace test
