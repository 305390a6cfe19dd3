#pragma once

// Tasks in several pools that run errands side by side, again and again, and account for each: a task becomes final
// once, keeps that state, and has the right result. A host on the test's main thread.

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "tests/soak/Behaviours.h"

namespace test {

class Fleet {
 public:
  explicit Fleet(Behaviours& behaviours) : behaviours_(behaviours) {}
  Fleet(const Fleet&) = delete;
  Fleet& operator=(const Fleet&) = delete;

  /// Runs so many errands to their ends, in pools of its own, which are gone afterwards. False when they did not end
  /// in time.
  bool run(std::size_t errands);

  // What has happened so far.

  std::size_t launched() const { return launched_; }
  std::size_t ended() const { return ended_; }
  std::size_t givenUp() const { return givenUp_; }
  /// Of how many each kind was.
  const std::map<std::string, std::size_t>& kinds() const { return kinds_; }
  /// What went wrong; empty when nothing did.
  const std::vector<std::string>& faults() const { return faults_; }

 private:
  static constexpr int kPools = 4;
  static constexpr int kTasksOfAPool = 100;
  /// For so many beats a task is looked at after its end, before it is used again.
  static constexpr int kBeatsOfWatch = 2;

  enum class Stage { Resting, Running, Ended, GivenUp };
  struct Place {
    std::string pool;
    std::string task;
    Stage stage = Stage::Resting;
    Errand errand = {};
    int beats = 0;
    ZEP_HTTP_TASK_STATUS endedAs = ZEP_HTTP_TASK_UNINITIALIZED;
  };

  static void notified(ZEP_HTTP_POOL_TASK_NOTIFY code, const char* pool, const char* task, const char* data);
  void beat(Place& place);
  void running(Place& place, ZEP_HTTP_TASK_STATUS status);
  void finished(Place& place, ZEP_HTTP_TASK_STATUS status);
  void rest(Place& place);
  void launch(Place& place);
  void giveUp(Place& place);
  void fault(const Place& place, const std::string& what);

  Behaviours& behaviours_;
  std::map<std::string, Place> places_;
  std::size_t wanted_ = 0;
  std::size_t busy_ = 0;
  std::size_t launched_ = 0;
  std::size_t ended_ = 0;
  std::size_t givenUp_ = 0;
  std::size_t uses_ = 0;
  std::map<std::string, std::size_t> kinds_;
  std::vector<std::string> faults_;
};

}  // namespace test
