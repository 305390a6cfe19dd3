#include "CredentialPrompt.h"

#include <json/reader.h>
#include <json/value.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <system_error>
#include <utility>

#include "Interrupt.h"
#include "Terminal.h"
#include "TerminalText.h"
#include "foundation/ZEP_Foundation.h"

namespace httppool {
namespace {

constexpr const char* kQuestion = "HTTPAuthenticationRequired";
constexpr const char* kAnswer = "HTTPAuthenticationDatasource";

int newEvent() {
  const int event = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (event < 0) {
    throw std::system_error(errno, std::generic_category(), "eventfd");
  }
  return event;
}

// Whether the library says that what it has tried was not accepted.
bool isRejection(const char* userInfo) {
  Json::Value root;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  return userInfo != nullptr && reader->parse(userInfo, userInfo + std::strlen(userInfo), &root, nullptr) &&
         root.isObject() && root["ShowWarningMsg"] == "true";
}

// The library takes texts in UTF-8 without zero characters.
bool isPassable(std::string_view text) {
  return isUtf8(text) && text.find('\0') == std::string_view::npos;
}

// A text inside a JSON string, RFC 8259 §7.
void appendEscaped(Secret& json, std::string_view text) {
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      json.append("\\");
    }
    if (static_cast<unsigned char>(c) < 0x20) {
      char escape[8];
      std::snprintf(escape, sizeof(escape), "\\u%04x", static_cast<unsigned>(c));
      json.append(escape);
    } else {
      json.append({&c, 1});
    }
  }
}

}  // namespace

CredentialPrompt::CredentialPrompt(std::optional<Credentials> given)
    : given_(std::move(given)),
      stop_(newEvent()),
      observer_(ZEP_Notification_AddObserver(kQuestion, &CredentialPrompt::required, this)) {
}

CredentialPrompt::~CredentialPrompt() {
  ZEP_Notification_RemoveObserver(observer_);
  ::close(stop_);
}

void CredentialPrompt::close() {
  isClosed_ = true;
  const std::uint64_t once = 1;
  [[maybe_unused]] const ssize_t count = write(stop_, &once, sizeof(once));
}

void CredentialPrompt::open() {
  std::uint64_t closes = 0;
  [[maybe_unused]] const ssize_t count = read(stop_, &closes, sizeof(closes));
  isClosed_ = false;
}

std::size_t CredentialPrompt::waiting() const {
  const std::lock_guard lock(mutex_);
  return waiting_.size();
}

void CredentialPrompt::required(const char* /*name*/, const void* object, const char* userInfo,
                                void* context) {
  auto& prompt = *static_cast<CredentialPrompt*>(context);
  try {
    prompt.answer(object, isRejection(userInfo));
  } catch (const std::exception&) {
    // Without an answer the request would wait for ever.
    prompt.release();
    prompt.post(std::nullopt);
  }
}

// An answer reaches every request that waits at that moment, this one's too if another one's came first: whoever
// is not waiting any more when its turn comes has had its answer.
void CredentialPrompt::answer(const void* asker, bool wasRejected) {
  {
    const std::lock_guard lock(mutex_);
    waiting_.insert(asker);
    if (given_ && wasRejected) {
      answered_.insert(asker);  // by what the library kept of the answer to another one
    }
  }
  const std::lock_guard turn(turn_);
  {
    const std::lock_guard lock(mutex_);
    if (!waiting_.contains(asker)) {
      return;
    }
  }
  const std::optional<Answer> answer = answerFor(asker, wasRejected);
  // Before the post: who comes during it may be too late for this answer, and must ask.
  release();
  post(answer);
}

void CredentialPrompt::release() {
  const std::lock_guard lock(mutex_);
  answered_.merge(waiting_);
  waiting_.clear();
}

std::optional<CredentialPrompt::Answer> CredentialPrompt::answerFor(const void* asker, bool wasRejected) {
  if (isClosed_ || caughtInterrupt() != 0) {
    return std::nullopt;
  }
  if (given_) {
    return givenAnswer();
  }
  if (wasRejected) {
    return ask("The user name or the password was not accepted.\n");
  }
  bool asksAgain = false;
  {
    const std::lock_guard lock(mutex_);
    asksAgain = answered_.contains(asker);
  }
  return ask(asksAgain ? "The server asks again.\n" : "A server asks for a user name and a password.\n");
}

// Once for each request. A request that has had it and is asking again gets it a second time only along with one
// that has not, since a skip would reach that one, too. Every time uses up at least one request, so that wrong
// credentials come to an end whatever the number of requests.
std::optional<CredentialPrompt::Answer> CredentialPrompt::givenAnswer() const {
  const std::lock_guard lock(mutex_);
  const bool isFirst = std::any_of(waiting_.begin(), waiting_.end(),
                                   [&](const void* one) { return !answered_.contains(one); });
  return isFirst ? std::optional(Answer{*given_, Remember::Yes}) : std::nullopt;
}

std::optional<CredentialPrompt::Answer> CredentialPrompt::ask(std::string_view reason) const {
  const std::lock_guard turn(Terminal::turn());
  Terminal terminal(stop_);
  if (!terminal.isUsable() || !terminal.show(reason)) {
    return std::nullopt;
  }
  const auto user = terminal.ask("User name (empty to skip): ", Terminal::Echo::On);
  if (!user || user->isEmpty()) {
    return std::nullopt;
  }
  auto password = terminal.ask("Password: ", Terminal::Echo::Off);
  if (!password || password->isEmpty()) {
    return std::nullopt;
  }
  if (!isPassable(user->text()) || !isPassable(password->text())) {
    terminal.show("This is not UTF-8, and skipped.\n");
    return std::nullopt;
  }
  const auto remember = terminal.askYesOrNo("Remember for the other requests of this run? [y/N] ");
  if (!remember) {
    return std::nullopt;
  }
  return Answer{{std::string(user->text()), std::move(*password)}, *remember ? Remember::Yes : Remember::No};
}

void CredentialPrompt::post(const std::optional<Answer>& answer) const {
  if (!answer) {
    ZEP_Notification_Post(kAnswer, this, nullptr);
    return;
  }
  Secret json(R"({"Username":")");
  appendEscaped(json, answer->credentials.user);
  json.append(R"(","Password":")");
  appendEscaped(json, answer->credentials.password.text());
  // "Remember" true tells the library that the host remembers, so that it keeps nothing for later requests. This
  // program remembers nothing by itself: what is to last for the run, the library has to keep.
  json.append(answer->remember == Remember::Yes ? R"(","Remember":false})" : R"(","Remember":true})");
  json.append(std::string_view("\0", 1));
  if (ZEP_Notification_Post(kAnswer, this, json.text().data()) != 0) {
    ZEP_Notification_Post(kAnswer, this, nullptr);
  }
}

}  // namespace httppool
