// A process with a CredentialPrompt that is asked as the library asks, without the library.
//
//   asking_host [--close] ROUND...
//
// A round is a text with a letter for each request that asks: "a" for the first time, "A" after a rejection. The
// requests of a round ask at once; the next round follows when all have their answers. When all of a
// round wait for an answer, it is told on stderr. The answers go to stdout, each with its letter. --close closes the
// prompt when a round waits.
// Ends with 128 and the signal when it was interrupted.

#include <atomic>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Asker.h"
#include "tests/support/WaitUntil.h"
#include "tools/httppool/CredentialPrompt.h"
#include "tools/httppool/Interrupt.h"

namespace {

using tooltest::Asker;

enum class AtWaiting { GoOn, Close };

class Host {
 public:
  explicit Host(AtWaiting atWaiting) : atWaiting_(atWaiting) {}

  void runRound(const std::string& letters) {
    std::map<char, std::optional<std::string>> answers;
    std::vector<std::thread> threads;
    std::atomic<std::size_t> ended = 0;
    for (const char letter : letters) {
      Asker& asker = askers_[lower(letter)];
      std::optional<std::string>& answer = answers[letter];
      const auto rejected = letter == lower(letter) ? Asker::Rejected::No : Asker::Rejected::Yes;
      threads.emplace_back([&asker, &answer, &ended, rejected] {
        answer = asker.ask(rejected);
        ++ended;
      });
    }
    const auto doAllWait = [&] { return prompt_.waiting() == letters.size(); };
    if (test::waitUntil([&] { return doAllWait() || ended == letters.size(); }) && doAllWait()) {
      std::fprintf(stderr, "waiting %s\n", letters.c_str());
    }
    if (atWaiting_ == AtWaiting::Close) {
      prompt_.close();
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    for (const auto& [letter, answer] : answers) {
      print(letter + (": " + answer.value_or("not answered")));
    }
  }

 private:
  static char lower(char letter) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
  }

  static void print(const std::string& line) {
    std::puts(line.c_str());
    std::fflush(stdout);
  }

  AtWaiting atWaiting_;
  httppool::CredentialPrompt prompt_;
  std::map<char, Asker> askers_;
};

}  // namespace

int main(int count, char** values) {
  httppool::catchInterrupts();
  const bool closes = count > 1 && std::strcmp(values[1], "--close") == 0;
  Host host(closes ? AtWaiting::Close : AtWaiting::GoOn);
  for (int round = closes ? 2 : 1; round < count; ++round) {
    host.runRound(values[round]);
  }
  const int signal = httppool::caughtInterrupt();
  return signal == 0 ? 0 : 128 + signal;
}
