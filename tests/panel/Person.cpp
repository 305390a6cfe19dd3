#include "tests/panel/Person.h"

#include <gtest/gtest.h>

#include <exception>
#include <utility>

namespace test {

Person::Person(Screen& screen, std::function<void(Screen&)> act)
    : thread_([&screen, act = std::move(act)] {
        try {
          act(screen);
        } catch (const std::exception& error) {
          ADD_FAILURE() << error.what();
          screen.stop();
        }
      }) {
}

Person::~Person() {
  thread_.join();
}

}  // namespace test
