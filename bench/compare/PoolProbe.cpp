// What the pool costs its host beside the requests themselves: a beat of the pool's timer, a request that waits, and
// the time for which the host's thread stands still. A process of its own for each question, like the contenders.

#include <glib.h>
#include <json/value.h>
#include <json/writer.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/compare/Arguments.h"
#include "bench/compare/Numbers.h"
#include "bench/compare/Usage.h"
#include "foundation/ZEP_Foundation.h"
#include "httpPool/ZEP_HttpPool.h"
#include "tests/support/PlainRequest.h"

namespace {

constexpr const char* kPool = "bench";

struct Question {
  std::string url;
  int port = 0;
  int tasks = 1;
  double seconds = 3;
};

void addTasks(const Question& question) {
  ZEP_HttpPool_Create(kPool);
  for (int task = 0; task < question.tasks; ++task) {
    const std::string name = std::to_string(task);
    ZEP_HttpPool_AddTask(kPool, name.c_str());
    ZEP_HttpPool_SetTaskProperty(kPool, name.c_str(), ZEP_HTTP_TASK_PROP_URL, question.url.c_str());
    ZEP_HttpPool_SetTaskProperty(kPool, name.c_str(), ZEP_HTTP_TASK_PROP_HEADER_FIELDS,
                                 "{\"HttpMethonGet\":\"1\"}");
  }
}

void runTasks(const Question& question) {
  for (int task = 0; task < question.tasks; ++task) {
    ZEP_HttpPool_TaskRun(kPool, std::to_string(task).c_str(), nullptr);
  }
}

double threadCpuSeconds() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

void turn(double seconds) {
  ZEP_RunLoop_Run(static_cast<long>(seconds * 1000));
}

/// Of one beat: when its first and its last task were notified of.
struct Beat {
  int tasks = 0;
  double first = 0;
  std::vector<double> microsecondsPerTask;
};
Beat beat;

void pollAndTime(ZEP_HTTP_POOL_TASK_NOTIFY, const char* pool, const char* task, const char*) {
  static int seen = 0;
  ZEP_HTTP_TASK_STATUS status{};
  ZEP_HttpPool_GetTaskStatus(pool, task, &status);
  if (++seen == 1) {
    beat.first = bench::now();
  } else if (seen == beat.tasks) {
    beat.microsecondsPerTask.push_back((bench::now() - beat.first) * 1e6 / (beat.tasks - 1));
    seen = 0;
  }
}

/// One notification and one status query for each task, none of which runs. The median of the beats: other programs
/// have the processor in some of them. What it takes to wake up for a beat at all does not count.
Json::Value pollEveryTask(const Question& question) {
  if (question.tasks < 2) {
    throw std::runtime_error("a beat is timed from its first task to its last: that takes two");
  }
  addTasks(question);
  beat.tasks = question.tasks;
  ZEP_HttpPool_SetPoolProc(kPool, &pollAndTime);
  turn(question.seconds);
  Json::Value answer;
  answer["beats"] = Json::UInt64(beat.microsecondsPerTask.size());
  answer["microsecondsPerTask"] = bench::median(beat.microsecondsPerTask);
  return answer;
}

long privateKilobytes() {
  std::ifstream map("/proc/self/smaps_rollup");
  const std::string label = "Private_Dirty:";
  for (std::string line; std::getline(map, line);) {
    if (line.starts_with(label)) {
      return std::stol(line.substr(label.size()));
    }
  }
  throw std::runtime_error("the kernel does not tell private memory");
}

/// Of all threads: how often one slept and was woken up.
long wakeUps() {
  const std::string label = "voluntary_ctxt_switches:";
  long sum = 0;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream status(thread.path() / "status");
    for (std::string line; std::getline(status, line);) {
      sum += line.starts_with(label) ? std::stol(line.substr(label.size())) : 0;
    }
  }
  return sum;
}

long connectionsAt(int port) {
  const std::string label = "Active connections: ";
  const std::string answer = test::plainGet(port, "/connections");
  const std::size_t at = answer.find(label);
  return at == std::string::npos ? 0 : std::stol(answer.substr(at + label.size())) - 1;
}

/// Requests that the server never answers, a while after all of them have arrived there. The run loop does not turn
/// meanwhile: the pool's own beat is another question.
Json::Value letRequestsWait(const Question& question) {
  addTasks(question);
  turn(0.2);
  const long memoryBefore = privateKilobytes();
  runTasks(question);
  while (connectionsAt(question.port) < question.tasks) {
    turn(0.05);
  }
  turn(1);
  const long memory = privateKilobytes() - memoryBefore;
  const long before = wakeUps();
  std::this_thread::sleep_for(std::chrono::duration<double>(question.seconds));
  // The host's own sleep is one.
  const long woken = wakeUps() - before - 1;
  Json::Value answer;
  answer["kilobytesPerRequest"] = static_cast<double>(memory) / question.tasks;
  answer["wakeUpsPerRequestAndSecond"] = static_cast<double>(woken) / question.tasks / question.seconds;
  return answer;
}

/// Between two waits of the run loop the host's thread computes or stands still.
struct StandStill {
  double total = 0;
  double since = bench::now();
  double cpuSince = threadCpuSeconds();
  long finished = 0;
};
StandStill standStill;

gint pollAndNote(GPollFD* descriptors, guint count, gint timeout) {
  standStill.total += (bench::now() - standStill.since) - (threadCpuSeconds() - standStill.cpuSince);
  const gint result = g_poll(descriptors, count, timeout);
  standStill.since = bench::now();
  standStill.cpuSince = threadCpuSeconds();
  return result;
}

void runAgain(ZEP_HTTP_POOL_TASK_NOTIFY, const char* pool, const char* task, const char*) {
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_REQUESTING;
  ZEP_HttpPool_GetTaskStatus(pool, task, &status);
  if (status == ZEP_HTTP_TASK_REQUESTING) {
    return;
  }
  ++standStill.finished;
  ZEP_HttpPool_TaskReset(pool, task);
  ZEP_HttpPool_TaskRun(pool, task, nullptr);
}

Json::Value finishRequests(const Question& question) {
  addTasks(question);
  ZEP_HttpPool_SetPoolProc(kPool, &runAgain);
  runTasks(question);
  turn(1);
  g_main_context_set_poll_func(g_main_context_default(), &pollAndNote);
  standStill = StandStill();
  turn(question.seconds);
  Json::Value answer;
  answer["finished"] = Json::Int64(standStill.finished);
  answer["blockedMsPerRequest"] = standStill.total * 1000 / static_cast<double>(standStill.finished);
  return answer;
}

Json::Value answerTo(const std::string& name, const Question& question) {
  if (name == "poll") {
    return pollEveryTask(question);
  }
  if (name == "wait") {
    return letRequestsWait(question);
  }
  if (name == "finish") {
    return finishRequests(question);
  }
  throw std::runtime_error("no such question: " + name);
}

}  // namespace

int main(int count, char** words) {
  try {
    const bench::Arguments arguments(count, words, {"ask", "url", "port", "tasks", "seconds", "result"}, {});
    const Json::Value answer =
        answerTo(arguments.text("ask"), {.url = arguments.text("url"),
                                         .port = static_cast<int>(arguments.number("port", 0, 0)),
                                         .tasks = static_cast<int>(arguments.number("tasks", 1, 1)),
                                         .seconds = arguments.number("seconds", 3, 0.01)});
    std::ofstream(arguments.text("result", "/dev/stdout")) << answer << "\n";
    // Tasks that still run are not worth the time of their ends.
    _exit(0);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", words[0], error.what());
    return 1;
  }
}
