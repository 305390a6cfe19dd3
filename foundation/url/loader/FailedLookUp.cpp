#include "foundation/url/loader/FailedLookUp.h"

#include <netdb.h>
#include <sys/socket.h>

#include <map>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

#include "foundation/base/Retry.h"
#include "foundation/runloop/DispatchQueue.h"
#include "foundation/url/loader/ErrorTable.h"

namespace foundation {
namespace {

using Answers = std::vector<std::function<void(URLErrorCode)>>;

struct OpenQuestions {
  std::mutex mutex;
  std::map<std::string, Answers> byHost;
};

OpenQuestions& openQuestions() {
  // Never destroyed: workers may still answer while the process exits.
  static OpenQuestions* const questions = new OpenQuestions;
  return *questions;
}

int lookUp(const std::string& host) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const int error = getaddrinfo(host.c_str(), nullptr, &hints, &found);
  if (error == 0) {
    freeaddrinfo(found);
  }
  return error;
}

void answerAll(const std::string& host, URLErrorCode code) {
  Answers answers;
  {
    OpenQuestions& questions = openQuestions();
    const std::lock_guard lock(questions.mutex);
    answers = std::move(questions.byHost.extract(host).mapped());
  }
  for (const auto& answer : answers) {
    untilThereIsMemory([&] { answer(code); });
  }
}

}  // namespace

void diagnoseFailedLookUp(const std::string& host, std::function<void(URLErrorCode)> answer) {
  {
    OpenQuestions& questions = openQuestions();
    const std::lock_guard lock(questions.mutex);
    Answers& answers = questions.byHost[host];
    answers.push_back(std::move(answer));
    if (answers.size() > 1) {
      return;
    }
  }
  bool isAsked = false;
  try {
    isAsked = DispatchQueue::workers().async([host] { answerAll(host, urlErrorCodeOfLookUp(lookUp(host))); });
  } catch (const std::bad_alloc&) {
    // As without a thread.
  }
  if (!isAsked) {
    answerAll(host, urlErrorCodeOfLookUp(EAI_AGAIN));
  }
}

}  // namespace foundation
