#pragma once

// Tasks in several pools that run errands side by side, again and again, and account for each: a task becomes final
// once, keeps that state and its result until the host ends it, and is untouched from then on. Now and then a whole pool
// is cleared or destroyed while its tasks run. A host on the test's main thread.

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tests/soak/Behaviours.h"

namespace test {

class Fleet {
 public:
  /// `most`: how many errands there will be at most; what accounts for them is allocated here.
  Fleet(Behaviours& behaviours, std::size_t most);
  Fleet(const Fleet&) = delete;
  Fleet& operator=(const Fleet&) = delete;

  /// Runs so many errands of the mixture, after those that a run begins with, in pools of its own, which are gone
  /// afterwards. False when some never end.
  bool run(std::size_t errands);
  using Maker = Errand (Behaviours::*)();
  /// The same with one errand of that kind.
  bool runOne(Maker make);

  // What has happened so far.

  std::size_t launched() const { return launched_; }
  /// Of these so many failed in their launch.
  std::size_t ended() const { return ended_; }
  std::size_t failedInLaunch() const { return failedInLaunch_; }
  /// By the host, while they ran; the last ones, in pools that were destroyed, went on for a while.
  std::size_t givenUp() const { return givenUp_; }
  std::size_t destroyed() const { return destroyed_; }
  /// Launches for which the system had no thread.
  std::size_t withoutThread() const { return withoutThread_; }
  /// Of how many each kind was.
  const std::map<std::string, std::size_t>& kinds() const { return kinds_; }
  /// By the errands' numbers: what the servers have to have received.
  const std::vector<Requests>& requests() const { return requests_; }
  const std::vector<const char*>& kindOf() const { return kindOf_; }
  /// What went wrong; empty when nothing did.
  const std::vector<std::string>& faults() const { return faults_; }

 private:
  static constexpr std::size_t kPools = 4;
  static constexpr std::size_t kTasksOfAPool = 100;
  /// So many of each of those that a run begins with.
  static constexpr std::size_t kFirst = 20;

  enum class Stage { Resting, Running, Ended, GivenUp };
  struct Place {
    std::string pool;
    std::string task;
    Stage stage = Stage::Resting;
    Errand errand = {};
    std::chrono::steady_clock::time_point launched = {};
    int beats = 0;
    /// For so many beats a task is looked at in its stage before it goes on.
    int watch = 0;
    /// How often it was seen to become final since its launch.
    int finals = 0;
    ZEP_HTTP_TASK_STATUS seen = ZEP_HTTP_TASK_UNINITIALIZED;
    std::string result = {};
  };
  struct Pool {
    std::string name;
    std::map<std::string, Place, std::less<>> places;
  };

  static void notified(ZEP_HTTP_POOL_TASK_NOTIFY code, const char* pool, const char* task, const char* data);
  bool runAll();
  void turnUntilSilent();
  void make(Pool& pool, const std::string& name);
  void clear(Pool& pool);
  void destroy(Pool& pool);
  void endAll(Pool& pool);
  void beat(Place& place);
  void running(Place& place, ZEP_HTTP_TASK_STATUS status);
  void expectUnchanged(Place& place, ZEP_HTTP_TASK_STATUS status);
  void finished(Place& place, ZEP_HTTP_TASK_STATUS status);
  void expectOneFinalState(Place& place);
  void rest(Place& place);
  void launch(Place& place);
  void start(Place& place);
  void giveUp(Place& place);
  void noteGivenUp(Place& place);
  Errand nextErrand();
  void fault(const Place& place, const std::string& what);

  Behaviours& behaviours_;
  std::vector<Pool> pools_ = std::vector<Pool>(kPools);
  int generation_ = 0;
  long notifications_ = 0;
  /// Still to be launched of those that a run begins with.
  std::size_t timedOutLeft_ = 0;
  std::size_t withoutThreadLeft_ = 0;
  /// Makes the only one; none: the mixture.
  Maker only_ = nullptr;
  std::size_t wanted_ = 0;
  std::size_t busy_ = 0;
  std::size_t launched_ = 0;
  std::size_t ended_ = 0;
  std::size_t failedInLaunch_ = 0;
  std::size_t givenUp_ = 0;
  std::size_t destroyed_ = 0;
  std::size_t withoutThread_ = 0;
  std::size_t uses_ = 0;
  std::size_t nextEnd_ = 0;
  std::vector<Requests> requests_;
  std::vector<const char*> kindOf_;
  std::map<std::string, std::size_t> kinds_;
  /// That tasks of destroyed pools may still write.
  std::vector<std::string> leftFiles_;
  std::vector<std::string> faults_;
};

}  // namespace test
