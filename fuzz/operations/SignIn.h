#pragma once

// Answers the library's questions for a user name and a password, on the threads of its requests, from when it is made
// to the process's end.

#include <atomic>
#include <cstddef>

namespace operations {

class SignIn {
 public:
  static constexpr std::size_t kAnswers = 4;

  static SignIn& shared();

  SignIn(const SignIn&) = delete;
  SignIn& operator=(const SignIn&) = delete;

  void choose(std::size_t answer) { chosen_ = answer; }

 private:
  SignIn();
  ~SignIn() = default;
  static void asked(const char* name, const void* object, const char* userInfo, void* context);

  std::atomic<std::size_t> chosen_ = 0;
};

}  // namespace operations
