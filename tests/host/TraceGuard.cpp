#include "tests/host/TraceGuard.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <utility>

#include "tests/support/ApacheServer.h"
#include "tests/support/SquidServer.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TraceRecord.h"

namespace test {
namespace {

struct Guard {
  TemporaryFolder folder;
  std::vector<std::string> secrets;
};

Guard* guard = nullptr;

void addCredential(const std::string& user, const std::string& password) {
  guard->secrets.push_back(password);
  guard->secrets.push_back(base64(user + ":" + password));
}

class Watch : public testing::EmptyTestEventListener {
  void OnTestEnd(const testing::TestInfo& /*info*/) override {
    for (const std::string& text : tracedTexts()) {
      for (const std::string& secret : guard->secrets) {
        EXPECT_EQ(text.find(secret), std::string::npos) << "a secret was traced: " << text;
      }
    }
  }
  void OnTestProgramEnd(const testing::UnitTest& /*unit*/) override {
    delete guard;
    guard = nullptr;
  }
};

}  // namespace

void guardTraces(int level) {
  guard = new Guard;
  setenv("TRACE_RECORD_FILE", guard->folder.file("traces").c_str(), 1);
  setenv("TRACE_RECORD_LEVEL", std::to_string(level).c_str(), 1);
  for (const auto& [name, password] :
       {ApacheServer::kBasic, ApacheServer::kUtf8, ApacheServer::kSecond, ApacheServer::kNtlmAlice,
        ApacheServer::kNtlmBob, ApacheServer::kNtlmBasic}) {
    addCredential(name, password);
  }
  addCredential(SquidServer::kForwardBasic.name, SquidServer::kForwardBasic.password);
  testing::UnitTest::GetInstance()->listeners().Append(new Watch);
}

void addSecret(const std::string& secret) {
  guard->secrets.push_back(secret);
}

std::vector<std::string> tracedTexts() {
  std::vector<std::string> texts;
  for (TracePiece& piece : readTraceRecord(guard->folder.file("traces"))) {
    if (!piece.text.starts_with("GetSuccessResult")) {
      texts.push_back(std::move(piece.text));
    }
  }
  return texts;
}

std::string base64(const std::string& text) {
  constexpr const char* kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string encoded;
  for (std::size_t i = 0; i < text.size(); i += 3) {
    unsigned group = 0;
    for (std::size_t k = 0; k < 3; ++k) {
      group = group << 8 | (i + k < text.size() ? static_cast<unsigned char>(text[i + k]) : 0U);
    }
    for (std::size_t k = 0; k < 4; ++k) {
      encoded.push_back(i + k <= text.size() ? kDigits[group >> (18 - 6 * k) & 63U] : '=');
    }
  }
  return encoded;
}

}  // namespace test
