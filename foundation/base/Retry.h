#pragma once

#include <chrono>
#include <new>
#include <thread>

namespace foundation {

/// Does `step`, again and again until there is the memory for it. For what must not be lost, on a thread that may wait;
/// `step` has to bear being done once more when it has thrown std::bad_alloc.
template <typename Step>
void untilThereIsMemory(const Step& step) {
  constexpr std::chrono::milliseconds kPause{50};
  while (true) {
    try {
      step();
      return;
    } catch (const std::bad_alloc&) {
      std::this_thread::sleep_for(kPause);
    }
  }
}

}  // namespace foundation
