#include "Demo.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "ClosedPort.h"
#include "DemoOrigin.h"
#include "Interrupt.h"
#include "Job.h"
#include "Report.h"
#include "Runner.h"
#include "TemporaryFolder.h"
#include "TerminalText.h"

namespace httppool {
namespace {

constexpr std::chrono::seconds kPatience(20);

// One thing the demo shows.
struct Act {
  const char* heading;
  std::string asked;
  TaskJob task;
  ZEP_HTTP_TASK_STATUS status;
  std::string result;
};

class Demo {
 public:
  bool run();

 private:
  bool isReady() const { return origin_.isServing() && closedPort_.number() != 0 && !folder_.path().empty(); }
  std::vector<Act> acts() const;
  TaskJob get(const std::string& path, std::vector<HeaderField> headers = {}) const;
  void play(const Act& act);
  void playDownload();
  void playDestroyedPool();
  void judge(bool isAsPromised, const std::string& expected);

  DemoOrigin origin_;
  ClosedPort closedPort_;
  TemporaryFolder folder_;
  int shown_ = 0;
  int differing_ = 0;
};

// Keeps what became of its task.
class Seen : public Report {
 public:
  void taskEnded(const TaskOutcome& outcome) override { outcome_ = outcome; }
  void showSnapshot(const std::string&) override {}

  const TaskOutcome& outcome() const { return outcome_; }

 private:
  TaskOutcome outcome_;
};

TaskOutcome runTask(const TaskJob& task) {
  Seen seen;
  const std::vector<PoolJob> jobs{{"demo", {task}}};
  Runner(jobs, seen, {.time = kPatience}).run();
  return seen.outcome();
}

void announce(const char* heading, const std::string& asked) {
  std::printf("%s\n  %-36s -> ", heading, asked.c_str());
  std::fflush(stdout);
}

std::string content(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

TaskJob Demo::get(const std::string& path, std::vector<HeaderField> headers) const {
  TaskJob task;
  task.name = path.substr(1);
  task.url = origin_.url(path);
  task.headers = std::move(headers);
  return task;
}

std::vector<Act> Demo::acts() const {
  TaskJob post = get("/echo");
  post.post = "colour=green";
  TaskJob unreachable = get("/hello");
  unreachable.url = "http://127.0.0.1:" + std::to_string(closedPort_.number()) + "/hello";
  const std::string failed = R"({"errorID":2,"errorReason":0})";
  return {
      {"A GET: the result is the body of the answer.", "GET /hello", get("/hello"), ZEP_HTTP_TASK_DONE,
       "Hello from the origin."},
      {"A POST: property 6 is the body of the request.", "POST /echo, colour=green", post, ZEP_HTTP_TASK_DONE,
       "received 12 bytes: colour=green"},
      {"Header fields: sent as given; a reserved key only steers the request.",
       "GET /fields, X-Colour and Adjacency", get("/fields", {{"X-Colour", "green"}, {"Adjacency", "1"}}),
       ZEP_HTTP_TASK_DONE, "X-Colour: green, Adjacency: (not sent)"},
      {"A redirect is followed.", "GET /moved (302 to /hello)", get("/moved"), ZEP_HTTP_TASK_DONE,
       "Hello from the origin."},
      {"A 404 is done, with the body of the answer.", "GET /missing", get("/missing"), ZEP_HTTP_TASK_DONE,
       "There is no such page."},
      {"A 500 fails with error 2.", "GET /broken", get("/broken"), ZEP_HTTP_TASK_FAILED, failed},
      {"A 429 fails like any other status.", "GET /busy", get("/busy"), ZEP_HTTP_TASK_FAILED, failed},
      {"A 429 of a Glint request is done and gives the delay in milliseconds.",
       "GET /busy, Glint (Retry-After: 7)", get("/busy", {{"Glint", "1"}}), ZEP_HTTP_TASK_DONE,
       R"({"errorID":5,"errorReason":7000})"},
      {"A server that cannot be reached fails with error 2.", "GET a port where nobody listens", unreachable,
       ZEP_HTTP_TASK_FAILED, failed},
  };
}

void Demo::judge(bool isAsPromised, const std::string& expected) {
  ++shown_;
  if (!isAsPromised) {
    ++differing_;
    std::printf("  DIFFERS, expected: %s\n", expected.c_str());
  }
}

void Demo::play(const Act& act) {
  announce(act.heading, act.asked);
  const TaskOutcome outcome = runTask(act.task);
  std::printf("%s\n", summary(outcome).c_str());
  judge(outcome.status == act.status && outcome.result == act.result,
        statusWord(act.status) + "  " + act.result);
}

void Demo::playDownload() {
  announce("A download: the body goes to a file, the result is its path.", "GET /file");
  TaskJob task = get("/file");
  task.download = folder_.path() + "/file";
  const TaskOutcome outcome = runTask(task);
  std::printf("%s\n", summary(outcome).c_str());
  const bool isWhole = content(task.download) == DemoOrigin::file();
  judge(outcome.status == ZEP_HTTP_TASK_DONE && outcome.result == task.download && isWhole,
        "the path, and in the file the 100000 bytes that the origin sent");
}

void Demo::playDestroyedPool() {
  announce("A destroyed pool is gone from the snapshot at once.", "destroy pool \"short-lived\"");
  ZEP_HttpPool_Create("short-lived");
  const std::string before = snapshot();
  ZEP_HttpPool_Destroy("short-lived");
  const std::string after = snapshot();
  std::printf("before %s, after %s\n", oneLine(before).c_str(), oneLine(after).c_str());
  const std::string pool = R"({"poolName":"short-lived","taskList":[]})";
  judge(before == "[" + pool + "]" && after == "[]", "before [" + pool + "], after []");
}

bool Demo::run() {
  if (!isReady()) {
    std::fprintf(stderr, "httppool: the demo has no port of its own or no temporary folder\n");
    return false;
  }
  std::printf("The library against an origin of its own, http://127.0.0.1:%d\n\n", origin_.port());
  for (const Act& act : acts()) {
    if (caughtInterrupt() != 0) {
      return false;
    }
    play(act);
  }
  playDownload();
  playDestroyedPool();
  if (differing_ == 0) {
    std::printf("\nAll %d came out as promised.\n", shown_);
  } else {
    std::printf("\n%d of %d came out differently.\n", differing_, shown_);
  }
  return differing_ == 0;
}

}  // namespace

bool runDemo() {
  // The origin is on this machine: a proxy would not find it. No other thread runs yet.
  setenv("no_proxy", "127.0.0.1", 1);  // NOLINT(concurrency-mt-unsafe)
  setenv("NO_PROXY", "127.0.0.1", 1);  // NOLINT(concurrency-mt-unsafe)
  catchInterrupts();
  return Demo().run();
}

}  // namespace httppool
