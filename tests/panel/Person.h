#pragma once

// Somebody in front of the screen, on a thread of his own, while the test's thread shows a panel. When he cannot do
// what he was told to, the test fails and the screen is taken away, so that no panel stays open.

#include <functional>
#include <thread>

#include "tests/support/Screen.h"

namespace test {

class Person {
 public:
  Person(Screen& screen, std::function<void(Screen&)> act);
  /// Waits until he has done it.
  ~Person();
  Person(const Person&) = delete;
  Person& operator=(const Person&) = delete;

 private:
  std::thread thread_;
};

}  // namespace test
