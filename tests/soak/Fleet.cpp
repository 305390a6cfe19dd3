#include "tests/soak/Fleet.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <string>
#include <utility>

#include "foundation/ZEP_Foundation.h"
#include "tests/soak/SystemFaults.h"

namespace test {
namespace {

using Clock = std::chrono::steady_clock;

/// After so many launches the next pool is cleared or destroyed.
constexpr std::size_t kBetweenEnds = 1500;
/// No errand at all ends for so long: some never will.
constexpr std::chrono::minutes kStandstill{2};

std::chrono::milliseconds idleTime() {
  return std::chrono::milliseconds(std::stoi(SOAK_IDLE_MS));
}

/// The one that runs: a notify function has no context.
Fleet* current = nullptr;

ZEP_HTTP_TASK_STATUS statusOf(const std::string& pool, const std::string& task) {
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_STATUS_8;  // which the library never writes
  ZEP_HttpPool_GetTaskStatus(pool.c_str(), task.c_str(), &status);
  return status;
}

std::string resultOf(const std::string& pool, const std::string& task) {
  long size =
      ZEP_HttpPool_GetTaskProperty(pool.c_str(), task.c_str(), ZEP_HTTP_TASK_PROP_RESULT, nullptr, nullptr);
  std::string result(static_cast<std::size_t>(size), '\0');
  ZEP_HttpPool_GetTaskProperty(pool.c_str(), task.c_str(), ZEP_HTTP_TASK_PROP_RESULT, result.data(), &size);
  return result;
}

bool isRight(const Errand& errand, const std::string& result) {
  try {
    return errand.isRight(result);
  } catch (const std::exception&) {
    return false;  // no echo at all
  }
}

bool isFinal(ZEP_HTTP_TASK_STATUS status) {
  return status == ZEP_HTTP_TASK_DONE || status == ZEP_HTTP_TASK_FAILED || status == ZEP_HTTP_TASK_TIMEOUT;
}

}  // namespace

Fleet::Fleet(Behaviours& behaviours, std::size_t most) : behaviours_(behaviours) {
  requests_.reserve(most);
  kindOf_.reserve(most);
}

bool Fleet::run(std::size_t errands) {
  timedOutLeft_ = kFirst;
  withoutThreadLeft_ = kFirst;
  only_ = nullptr;
  wanted_ += errands + 2 * kFirst;
  return runAll();
}

bool Fleet::runOne(Maker make) {
  only_ = make;
  ++wanted_;
  return runAll();
}

bool Fleet::runAll() {
  current = this;
  for (Pool& pool : pools_) {
    make(pool, "pool " + std::to_string(generation_++));
  }
  const auto isOver = [this] { return ended_ + givenUp_ >= wanted_ && busy_ == 0; };
  nextEnd_ = launched_ + kBetweenEnds;
  std::size_t ended = 0;
  auto lastEnd = Clock::now();
  while (!isOver() && Clock::now() < lastEnd + kStandstill) {
    // A transfer that is refused its socket waits for another one to end, so there must be some.
    refuseSockets(wanted_ - launched_ > kPools * kTasksOfAPool && busy_ > kTasksOfAPool);
    ZEP_RunLoop_Run(50);
    if (std::exchange(ended, ended_ + givenUp_) != ended_ + givenUp_) {
      lastEnd = Clock::now();
    }
    if (launched_ >= nextEnd_ && launched_ < wanted_) {
      Pool& pool = pools_[nextEnd_ / kBetweenEnds % kPools];
      nextEnd_ += kBetweenEnds;
      generation_ % 2 == 0 ? clear(pool) : destroy(pool);
      ++generation_;
    }
  }
  refuseSockets(false);
  for (Pool& pool : pools_) {
    for (const auto& [name, place] : pool.places) {
      if (place.stage == Stage::Running) {
        fault(place, "never ends");
      }
    }
    ZEP_HttpPool_Destroy(pool.name.c_str());
    pool = {};
  }
  turnUntilSilent();
  for (const std::string& file : leftFiles_) {
    unlink(file.c_str());
  }
  leftFiles_ = {};
  return isOver();
}

/// Destroyed pools are deleted on a beat of 300 ms, until when they notify.
void Fleet::turnUntilSilent() {
  long before = 0;
  do {
    before = notifications_;
    ZEP_RunLoop_Run(50);
  } while (notifications_ != before);
}

void Fleet::make(Pool& pool, const std::string& name) {
  pool.name = name;
  ZEP_HttpPool_Create(name.c_str());
  ZEP_HttpPool_SetPoolProc(name.c_str(), &Fleet::notified);
  for (std::size_t i = 0; i < kTasksOfAPool; ++i) {
    const std::string task = "task " + std::to_string(i);
    ZEP_HttpPool_AddTask(name.c_str(), task.c_str());
    pool.places[task] = {.pool = name, .task = task};
  }
}

void Fleet::clear(Pool& pool) {
  endAll(pool);
  ZEP_HttpPool_ClearTask(pool.name.c_str());
  for (auto& [task, place] : pool.places) {
    if (const auto status = statusOf(place.pool, task); status != ZEP_HTTP_TASK_NOT_EXIST) {
      fault(place, "is " + std::to_string(status) + " after its pool was cleared");
    }
    unlink(place.errand.file.c_str());
    ZEP_HttpPool_AddTask(pool.name.c_str(), task.c_str());
  }
}

void Fleet::destroy(Pool& pool) {
  const std::size_t before = givenUp_;
  endAll(pool);
  destroyed_ += givenUp_ - before;
  for (const auto& [task, place] : pool.places) {
    if (!place.errand.file.empty()) {
      leftFiles_.push_back(place.errand.file);
    }
  }
  ZEP_HttpPool_Destroy(pool.name.c_str());
  make(pool, "pool " + std::to_string(generation_));
}

/// All tasks of the pool are about to be ended, wherever they stand.
void Fleet::endAll(Pool& pool) {
  for (auto& [task, place] : pool.places) {
    const ZEP_HTTP_TASK_STATUS status = statusOf(place.pool, place.task);
    if (place.stage == Stage::Running && isFinal(status)) {
      finished(place, status);
    } else if (place.stage == Stage::Running) {
      noteGivenUp(place);
    }
    if (place.stage != Stage::Resting) {
      expectOneFinalState(place);
      --busy_;
    }
    place.stage = Stage::Resting;
    place.beats = 0;
    place.seen = ZEP_HTTP_TASK_UNINITIALIZED;
  }
}

void Fleet::notified(ZEP_HTTP_POOL_TASK_NOTIFY /*code*/, const char* pool, const char* task,
                     const char* /*data*/) {
  ++current->notifications_;
  for (Pool& one : current->pools_) {
    if (one.name == pool) {
      current->beat(one.places.find(task)->second);
    }
  }
}

void Fleet::beat(Place& place) {
  const ZEP_HTTP_TASK_STATUS status = statusOf(place.pool, place.task);
  ++place.beats;
  if (isFinal(status) && !isFinal(place.seen)) {
    ++place.finals;
  }
  switch (place.stage) {
    case Stage::Running:
      running(place, status);
      break;
    case Stage::Ended:
    case Stage::GivenUp:
      expectUnchanged(place, status);
      if (place.beats > place.watch) {
        --busy_;
        rest(place);
      }
      break;
    case Stage::Resting:
      expectUnchanged(place, status);
      if (launched_ < wanted_ && place.beats > place.watch) {
        launch(place);
      }
      break;
  }
}

void Fleet::running(Place& place, ZEP_HTTP_TASK_STATUS status) {
  place.seen = status;
  if (isFinal(status)) {
    finished(place, status);
  } else if (status != ZEP_HTTP_TASK_REQUESTING) {
    fault(place, "is " + std::to_string(status) + " while it runs");
  } else if (place.errand.beatsToLive > 0 && place.beats >= place.errand.beatsToLive) {
    giveUp(place);
  }
}

void Fleet::expectUnchanged(Place& place, ZEP_HTTP_TASK_STATUS status) {
  if (status != place.seen) {
    fault(place, "became " + std::to_string(status) + " after " + std::to_string(place.seen));
    place.seen = status;
  }
  if (place.stage == Stage::Ended && resultOf(place.pool, place.task) != place.result) {
    fault(place, "has another result after its end");
  }
}

void Fleet::finished(Place& place, ZEP_HTTP_TASK_STATUS status) {
  ++ended_;
  place.finals += isFinal(place.seen) ? 0 : 1;
  place.stage = Stage::Ended;
  place.seen = status;
  place.beats = 0;
  constexpr std::size_t kLongOneOf = 16;
  place.watch = ended_ % kLongOneOf == 0 ? 25 : 2;
  place.result = resultOf(place.pool, place.task);
  if (place.errand.beatsToLive > 0 && Clock::now() - place.launched < idleTime()) {
    fault(place, "ended, although nobody answers");
  } else if (status != place.errand.status || !isRight(place.errand, place.result)) {
    fault(place, "ended with " + std::to_string(status) + ": " + place.result.substr(0, 200));
  }
  if (!place.errand.file.empty() && unlink(place.errand.file.c_str()) != 0) {
    fault(place, "wrote no file");
  }
}

/// At the end of a run, by itself or by the host.
void Fleet::expectOneFinalState(Place& place) {
  const int finals = place.stage == Stage::Ended ? 1 : 0;
  if (place.finals != finals) {
    fault(place, "became final " + std::to_string(place.finals) + " times");
  }
}

void Fleet::giveUp(Place& place) {
  noteGivenUp(place);
  if (givenUp_ % 2 == 0) {
    ZEP_HttpPool_TaskReset(place.pool.c_str(), place.task.c_str());
  } else {
    ZEP_HttpPool_RemoveTask(place.pool.c_str(), place.task.c_str());
    ZEP_HttpPool_AddTask(place.pool.c_str(), place.task.c_str());
  }
}

void Fleet::noteGivenUp(Place& place) {
  ++givenUp_;
  requests_[place.errand.number].least = 0;
  place.stage = Stage::GivenUp;
  place.seen = ZEP_HTTP_TASK_UNINITIALIZED;
  place.beats = 0;
  place.watch = 2;
}

/// The two ways for a host to use a task's name for something else.
void Fleet::rest(Place& place) {
  expectOneFinalState(place);
  place.stage = Stage::Resting;
  place.seen = ZEP_HTTP_TASK_UNINITIALIZED;
  place.beats = 0;
  constexpr std::size_t kLongOneOf = 16;
  place.watch = uses_ % kLongOneOf == 0 ? 10 : 0;
  if (uses_++ % 2 == 0) {
    ZEP_HttpPool_TaskReset(place.pool.c_str(), place.task.c_str());
  } else {
    ZEP_HttpPool_RemoveTask(place.pool.c_str(), place.task.c_str());
    ZEP_HttpPool_AddTask(place.pool.c_str(), place.task.c_str());
  }
}

/// A thread can only be refused where none is kept from an earlier request, so those come first.
Errand Fleet::nextErrand() {
  if (only_ != nullptr) {
    return (behaviours_.*only_)();
  }
  if (withoutThreadLeft_ > 0) {
    --withoutThreadLeft_;
    return behaviours_.withoutThread();
  }
  if (timedOutLeft_ > 0) {
    --timedOutLeft_;
    return behaviours_.timedOut();
  }
  return behaviours_.next();
}

void Fleet::launch(Place& place) {
  const char* const pool = place.pool.c_str();
  const char* const task = place.task.c_str();
  place.errand = nextErrand();
  for (const auto property : {ZEP_HTTP_TASK_PROP_URL, ZEP_HTTP_TASK_PROP_HEADER_FIELDS,
                              ZEP_HTTP_TASK_PROP_POST_DATA, ZEP_HTTP_TASK_PROP_DOWNLOAD_FILE}) {
    ZEP_HttpPool_SetTaskProperty(pool, task, property, "");
  }
  for (const auto& [property, value] : place.errand.properties) {
    ZEP_HttpPool_SetTaskProperty(pool, task, property, value.c_str());
  }
  ZEP_HttpPool_SetTaskDataProperty(pool, task, place.errand.data.data(),
                                   static_cast<int>(place.errand.data.size()));
  ++launched_;
  ++busy_;
  ++kinds_[place.errand.name];
  start(place);
}

void Fleet::start(Place& place) {
  const char* const pool = place.pool.c_str();
  const char* const task = place.task.c_str();
  place.stage = Stage::Running;
  place.beats = 0;
  place.finals = 0;
  place.launched = Clock::now();
  place.result = {};
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_STATUS_8;
  if (place.errand.hasNoThread) {
    const ThreadRefusalHere refusal;
    ZEP_HttpPool_TaskRun(pool, task, &status);
    if (refusal.hasRefused()) {
      ++withoutThread_;
      place.errand.status = ZEP_HTTP_TASK_FAILED;
      place.errand.isRight = [](const std::string& result) {
        return result == R"({"errorID":6,"errorReason":0})";
      };
      place.errand.requests = {.least = 0, .most = 0};
    }
  } else {
    ZEP_HttpPool_TaskRun(pool, task, &status);
  }
  requests_.push_back(place.errand.requests);
  kindOf_.push_back(place.errand.name);
  place.seen = status;
  if (status == ZEP_HTTP_TASK_FAILED) {
    ++failedInLaunch_;
    place.finals = 1;
    finished(place, status);
  } else if (status != ZEP_HTTP_TASK_REQUESTING) {
    fault(place, "began with " + std::to_string(status));
  }
}

void Fleet::fault(const Place& place, const std::string& what) {
  constexpr std::size_t kMost = 20;
  if (faults_.size() < kMost) {
    faults_.push_back(place.pool + ", " + place.task + ", " + place.errand.name + ": " + what);
  }
}

}  // namespace test
