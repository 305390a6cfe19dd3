// The program's terminal, for questions to the person in front of it; stdout and stderr are left alone.
// Belongs to the thread that makes it. Every question ends at once when the program is interrupted.
#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string_view>

#include "Secret.h"

namespace httppool {

class Terminal {
 public:
  enum class Echo { On, Off };

  // Held by whoever asks, so that questions of several threads do not mix.
  static std::mutex& turn();

  // What else stands on the terminal gives way to a question: called by the asking thread, with the turn held,
  // before the first text. Set with the turn held.
  static void setGivingWay(std::function<void()> giveWay);

  // `stop` is a descriptor that becomes readable when no answer is wanted any more. It stays the caller's.
  explicit Terminal(int stop);
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  // Whether there is one and the program is in its foreground, where it may read what is typed.
  bool isUsable() const;

  // Shows a text as it is, to be called with this program's own words only. False when it could not.
  bool show(std::string_view text);

  // Shows a question and reads one line. Nothing: the line was not ended, is longer than a terminal's line can be,
  // or the question was stopped.
  std::optional<Secret> ask(std::string_view question, Echo echo);

  // The same for a question that is answered with y; anything else is a no.
  std::optional<bool> askYesOrNo(std::string_view question);

 private:
  class Silence;

  bool waitFor(short event) const;
  std::optional<Secret> readLine();

  int terminal_;
  int stop_;
  bool hasShown_ = false;
};

}  // namespace httppool
