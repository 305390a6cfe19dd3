#pragma once

// A host's answers to credential prompts, through ZEP_Foundation.h. Prompts come on the library's threads, any
// number at once, and are answered there.

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace test {

/// What a prompt says.
struct Prompt {
  const void* asker = nullptr;
  bool warns = false;
  int requestType = 0;
};

struct Reply {
  enum class Kind { Give, Skip, Silence };
  Kind kind = Kind::Give;
  std::string user = {};
  std::string password = {};
  bool remember = false;
};

inline Reply give(std::string user, std::string password, bool remember = false) {
  return {.kind = Reply::Kind::Give,
          .user = std::move(user),
          .password = std::move(password),
          .remember = remember};
}
inline Reply skip() {
  return {.kind = Reply::Kind::Skip};
}
inline Reply silence() {
  return {.kind = Reply::Kind::Silence};
}

/// Posts the answer to whoever waits.
void postReply(const Reply& reply);

class PromptHost {
 public:
  /// Called for each prompt, one at a time.
  explicit PromptHost(std::function<Reply(const Prompt&)> answer);
  /// One after another; skips when there is none left.
  explicit PromptHost(std::vector<Reply> replies);
  ~PromptHost();
  PromptHost(const PromptHost&) = delete;
  PromptHost& operator=(const PromptHost&) = delete;

  std::vector<Prompt> prompts() const;
  /// Of each prompt, whether it warned.
  std::vector<bool> warnings() const;

 private:
  void asked(const void* asker, const char* userInfo);

  const std::function<Reply(const Prompt&)> answer_;
  mutable std::mutex mutex_;
  std::vector<Prompt> prompts_;
  long token_ = 0;
};

}  // namespace test
