// Answers the library when a server asks for a user name and a password: with what the command line gives, else
// with what the person at the terminal types, else with a skip. Made and closed on the main thread; each question is
// asked and answered on the asking request's own thread. Outlives the requests.
#pragma once

#include <atomic>
#include <mutex>
#include <optional>
#include <string_view>
#include <unordered_set>

#include "Credentials.h"

namespace httppool {

class CredentialPrompt {
 public:
  // `given`: what every request's first question is answered with, and nobody is asked.
  explicit CredentialPrompt(std::optional<Credentials> given = std::nullopt);
  ~CredentialPrompt();
  CredentialPrompt(const CredentialPrompt&) = delete;
  CredentialPrompt& operator=(const CredentialPrompt&) = delete;

  // Ends the question that is open and every later one as a skip. To be called before a request that may be asking
  // is reset: the reset waits for the request's thread. Any thread.
  void close();
  // Lets later requests ask again. Any thread.
  void open();

  // How many requests wait for an answer. Any thread.
  std::size_t waiting() const;

 private:
  enum class Remember { No, Yes };
  struct Answer {
    Credentials credentials;
    Remember remember;
  };
  using Askers = std::unordered_set<const void*>;

  static void required(const char* name, const void* object, const char* userInfo, void* context);

  void answer(const void* asker, bool wasRejected);
  std::optional<Answer> answerFor(const void* asker, bool wasRejected);
  std::optional<Answer> givenAnswer() const;
  std::optional<Answer> ask(std::string_view reason) const;
  void release();
  void post(const std::optional<Answer>& answer) const;

  const std::optional<Credentials> given_;
  const int stop_;  // readable once closed
  std::atomic<bool> isClosed_ = false;
  std::mutex turn_;  // held by the request whose question is open
  mutable std::mutex mutex_;
  Askers waiting_;       // under mutex_
  Askers answered_;      // under mutex_
  const long observer_;  // last: from here on questions come
};

}  // namespace httppool
