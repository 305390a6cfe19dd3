// Answers the library when a server's certificate does not hold: as the command line says, else as the person at the
// terminal says, else with a refusal. Main thread, on which the library asks; made before the requests and outlives
// them.
#pragma once

#include <chrono>
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
  // A question that is open at the limit, counted from now, ends as a refusal.
  TrustPrompt(Trust trust, std::optional<std::chrono::milliseconds> limit);
  ~TrustPrompt();
  TrustPrompt(const TrustPrompt&) = delete;
  TrustPrompt& operator=(const TrustPrompt&) = delete;

 private:
  static void textsRequired(const char* name, const void* object, const char* userInfo, void* context);
  static int panelRequired(const char* request, void* context);

  bool isTrusted(const std::string& request) const;
  bool ask(const std::string& host, const std::string& fingerprint, bool isForHost) const;

  const Trust trust_;
  const int limit_;  // readable at the limit
  const long observer_;
};

// The SHA-256 fingerprint of a certificate in PEM, as pairs of upper-case digits with colons between them; empty
// when there is none.
std::string fingerprint(const std::string& pem);

}  // namespace httppool
