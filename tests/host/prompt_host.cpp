// A host that is asked for credentials and takes its time.
//
//   prompt_host reset URL    runs the URL, and resets the task as soon as it asks; answers when it is told to
//   prompt_host exit URL     the same, and returns from main instead
//
// Says what it does on standard output, a word to a line: "asked", "resetting", "reset". A file "answer" in the
// working folder makes a thread of its own give the answer.

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include "foundation/ZEP_Foundation.h"
#include "httpPool/ZEP_HttpPool.h"

namespace {

std::atomic<bool> isAsked = false;
std::atomic<bool> isOver = false;

void say(const char* word) {
  std::puts(word);
  std::fflush(stdout);
}

void answerWhenTold() {
  while (!isOver) {
    if (access("answer", F_OK) == 0) {
      ZEP_Notification_Post("HTTPAuthenticationDatasource", nullptr, nullptr);
      return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    return 2;
  }
  ZEP_Notification_AddObserver(
      "HTTPAuthenticationRequired",
      [](const char*, const void*, const char*, void*) {
        say("asked");
        isAsked = true;
      },
      nullptr);
  // An untrusted server stands still here, in the middle of its handshake.
  ZEP_Notification_AddObserver(
      "HTTPLocalizationRequired",
      [](const char*, const void*, const char*, void*) {
        say("asked");
        isAsked = true;
      },
      nullptr);
  ZEP_HttpPool_Create("pool");
  ZEP_HttpPool_AddTask("pool", "task");
  ZEP_HttpPool_SetTaskProperty("pool", "task", ZEP_HTTP_TASK_PROP_URL, argv[2]);
  ZEP_HttpPool_TaskRun("pool", "task", nullptr);
  while (!isAsked) {
    ZEP_RunLoop_Run(20);
  }
  if (std::string(argv[1]) == "exit") {
    return 0;
  }
  std::thread person(answerWhenTold);
  say("resetting");
  ZEP_HttpPool_TaskReset("pool", "task");
  say("reset");
  isOver = true;
  person.join();
  ZEP_HttpPool_Destroy("pool");
  ZEP_RunLoop_Run(200);
  return 0;
}
