#include "tests/soak/Fleet.h"

#include <chrono>
#include <exception>
#include <utility>

#include "foundation/ZEP_Foundation.h"

namespace test {
namespace {

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

}  // namespace

bool Fleet::run(std::size_t errands) {
  current = this;
  wanted_ += errands;
  for (int pool = 0; pool < kPools; ++pool) {
    const std::string name = "pool " + std::to_string(pool);
    ZEP_HttpPool_Create(name.c_str());
    ZEP_HttpPool_SetPoolProc(name.c_str(), &Fleet::notified);
    for (int task = 0; task < kTasksOfAPool; ++task) {
      Place place{.pool = name, .task = "task " + std::to_string(task)};
      ZEP_HttpPool_AddTask(name.c_str(), place.task.c_str());
      places_[name + "/" + place.task] = std::move(place);
    }
  }
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(18);
  const auto isOver = [this] { return ended_ + givenUp_ >= wanted_ && busy_ == 0; };
  while (!isOver() && std::chrono::steady_clock::now() < end) {
    ZEP_RunLoop_Run(50);
  }
  for (int pool = 0; pool < kPools; ++pool) {
    ZEP_HttpPool_Destroy(("pool " + std::to_string(pool)).c_str());
  }
  places_.clear();
  // Destroyed pools are deleted on a beat of 300 ms.
  ZEP_RunLoop_Run(700);
  return isOver();
}

void Fleet::notified(ZEP_HTTP_POOL_TASK_NOTIFY /*code*/, const char* pool, const char* task,
                     const char* /*data*/) {
  const auto place = current->places_.find(std::string(pool) + "/" + task);
  if (place != current->places_.end()) {
    current->beat(place->second);
  }
}

void Fleet::beat(Place& place) {
  const ZEP_HTTP_TASK_STATUS status = statusOf(place.pool, place.task);
  ++place.beats;
  switch (place.stage) {
    case Stage::Running:
      running(place, status);
      break;
    case Stage::Ended:
      if (status != place.endedAs) {
        fault(place, "became " + std::to_string(status) + " after its end");
      }
      if (place.beats > kBeatsOfWatch) {
        --busy_;
        rest(place);
      }
      break;
    case Stage::GivenUp:
      if (status != ZEP_HTTP_TASK_UNINITIALIZED) {
        fault(place, "became " + std::to_string(status) + " after it was given up");
      }
      if (place.beats > kBeatsOfWatch) {
        --busy_;
        rest(place);
      }
      break;
    case Stage::Resting:
      if (launched_ < wanted_) {
        launch(place);
      }
      break;
  }
}

void Fleet::running(Place& place, ZEP_HTTP_TASK_STATUS status) {
  if (status == ZEP_HTTP_TASK_DONE || status == ZEP_HTTP_TASK_FAILED || status == ZEP_HTTP_TASK_TIMEOUT) {
    finished(place, status);
  } else if (status != ZEP_HTTP_TASK_REQUESTING) {
    fault(place, "is " + std::to_string(status) + " while it runs");
  } else if (place.errand.beatsToLive > 0 && place.beats >= place.errand.beatsToLive) {
    giveUp(place);
  }
}

void Fleet::finished(Place& place, ZEP_HTTP_TASK_STATUS status) {
  ++ended_;
  place.stage = Stage::Ended;
  place.endedAs = status;
  place.beats = 0;
  const std::string result = resultOf(place.pool, place.task);
  if (place.errand.beatsToLive > 0) {
    fault(place, "ended, although nobody answers");
  } else if (status != place.errand.status || !isRight(place.errand, result)) {
    fault(place, "ended with " + std::to_string(status) + ": " + result.substr(0, 200));
  }
}

void Fleet::giveUp(Place& place) {
  ++givenUp_;
  place.stage = Stage::GivenUp;
  place.beats = 0;
  if (givenUp_ % 2 == 0) {
    ZEP_HttpPool_TaskReset(place.pool.c_str(), place.task.c_str());
  } else {
    ZEP_HttpPool_RemoveTask(place.pool.c_str(), place.task.c_str());
    ZEP_HttpPool_AddTask(place.pool.c_str(), place.task.c_str());
  }
}

/// The two ways for a host to use a task's name for something else.
void Fleet::rest(Place& place) {
  place.stage = Stage::Resting;
  if (uses_++ % 2 == 0) {
    ZEP_HttpPool_TaskReset(place.pool.c_str(), place.task.c_str());
  } else {
    ZEP_HttpPool_RemoveTask(place.pool.c_str(), place.task.c_str());
    ZEP_HttpPool_AddTask(place.pool.c_str(), place.task.c_str());
  }
}

void Fleet::launch(Place& place) {
  const char* const pool = place.pool.c_str();
  const char* const task = place.task.c_str();
  place.errand = behaviours_.next();
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
  place.stage = Stage::Running;
  place.beats = 0;
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_STATUS_8;
  ZEP_HttpPool_TaskRun(pool, task, &status);
  if (status == ZEP_HTTP_TASK_FAILED) {
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
