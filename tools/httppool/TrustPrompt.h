// Answers the library when a server's certificate does not hold: as the command line says, else as the person at the
// terminal says, else with a refusal. Main thread, on which the library asks; made before the requests and outlives
// them.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

namespace httppool {

enum class Trust {
  Ask,         // the terminal
  OnFirstUse,  // every certificate for the right host is accepted
  No,          // none is
};

class TrustPrompt {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;
  // Asked when a question opens: when it is to end, as a refusal; none: not by itself.
  using Deadline = std::function<std::optional<TimePoint>()>;

  TrustPrompt(Trust trust, Deadline deadline);
  ~TrustPrompt();
  TrustPrompt(const TrustPrompt&) = delete;
  TrustPrompt& operator=(const TrustPrompt&) = delete;

 private:
  static void textsRequired(const char* name, const void* object, const char* userInfo, void* context);
  static int panelRequired(const char* request, void* context);

  bool isTrusted(const std::string& request) const;
  bool ask(const std::string& host, const std::string& fingerprint, bool isForHost) const;

  const Trust trust_;
  const Deadline deadline_;
  const int timer_;  // readable at the deadline of the question that is open
  const long observer_;
};

// The SHA-256 fingerprint of a certificate in PEM, as pairs of upper-case digits with colons between them; empty
// when there is none.
std::string fingerprint(const std::string& pem);

}  // namespace httppool
