#include "Work.h"

#include <glib.h>

#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <utility>

#include "foundation/base/Data.h"
#include "foundation/notification/NotificationCenter.h"
#include "foundation/runloop/Timer.h"
#include "foundation/security/Trust.h"
#include "foundation/url/URL.h"
#include "foundation/url/loader/ChallengeParser.h"
#include "httpPool/Global.h"
#include "httpPool/HttpCallMacImpl.h"
#include "httpPool/MacDownloadEngine.h"
#include "support/logstream.h"

namespace {

using WorkDone = std::function<bool()>;

constexpr unsigned int kPollTimerId = 10001;
constexpr unsigned int kRegistryTimerId = 10002;

/// A pool for as long as the work lives.
class MadePool {
 public:
  MadePool(std::string name, int tasks) : name_(std::move(name)) {
    ZEP_HttpPool_Create(name_.c_str());
    for (int i = 0; i < tasks; ++i) {
      ZEP_HttpPool_AddTask(name_.c_str(), ("task" + std::to_string(i)).c_str());
    }
  }
  ~MadePool() {
    ZEP_HttpPool_Destroy(name_.c_str());
    g_pGlobal->OnTimer(kRegistryTimerId);
  }
  MadePool(const MadePool&) = delete;
  MadePool& operator=(const MadePool&) = delete;

  const char* name() const { return name_.c_str(); }
  CPool& operator*() const { return *g_pGlobal->GetPool(name()); }

 private:
  const std::string name_;
};

int g_polled = 0;

void askForStatus(ZEP_HTTP_POOL_TASK_NOTIFY, const char* pool, const char* task, const char*) {
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_NOT_EXIST;
  ZEP_HttpPool_GetTaskStatus(pool, task, &status);
  g_polled += status == ZEP_HTTP_TASK_UNINITIALIZED ? 1 : 0;
}

WorkDone pollTick() {
  auto pool = std::make_shared<MadePool>("polled", 1'000);
  (**pool).SetPoolProc(&askForStatus);
  return [pool] {
    g_polled = 0;
    for (int tick = 0; tick < 5; ++tick) {
      (**pool).OnTimer(kPollTimerId);
    }
    return g_polled == 5'000;
  };
}

WorkDone addFindRemove() {
  auto pool = std::make_shared<MadePool>("changed", 0);
  return [pool] {
    constexpr int kTasks = 2'000;
    const auto name = [](int i) { return "task" + std::to_string(i); };
    for (int i = 0; i < kTasks; ++i) {
      ZEP_HttpPool_AddTask(pool->name(), name(i).c_str());
    }
    // The later ones first: in neither direction may the others be in the way.
    for (int i = kTasks; i-- > 0;) {
      ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_NOT_EXIST;
      ZEP_HttpPool_GetTaskStatus(pool->name(), name(i).c_str(), &status);
      if (status != ZEP_HTTP_TASK_UNINITIALIZED) {
        return false;
      }
      ZEP_HttpPool_RemoveTask(pool->name(), name(i).c_str());
    }
    return (**pool).GetTaskList() == "[]";
  };
}

WorkDone snapshot() {
  auto pool = std::make_shared<MadePool>("listed", 500);
  return [pool] {
    long size = 0;
    ZEP_HttpPool_GetSnapshot(nullptr, &size);
    std::string text(static_cast<std::size_t>(size), '\0');
    ZEP_HttpPool_GetSnapshot(text.data(), &size);
    return text.find(R"({"taskName":"task499","taskStatus":"uninitialized"})") != std::string::npos;
  };
}

WorkDone requestOfHeaderJson() {
  auto call = std::make_shared<CHttpCallMacImpl>();
  auto engine = std::make_shared<MacDownloadEngine>();
  return [call, engine] {
    for (int i = 0; i < 200; ++i) {
      call->SetHeaderFields(
          R"({"HttpMethod":"PUT","Content-Type":"application/json; charset=utf-8","Accept":"*/*","X-A":"a \"b\"",)"
          R"("User-Agent":"Some application of somebody's, version 1.2.3","X-Number":"1234567890","Glint":"1"})");
      const foundation::Dictionary fields = call->ParseHeaders();
      const auto request = engine->generateURLRequest("https://www.example.com/path", nullptr, &fields);
      if (!request || request->HTTPMethod() != "PUT") {
        return false;
      }
    }
    return true;
  };
}

WorkDone traceDropped() {
  return [] {
    const std::string url = "https://www.example.com/";
    for (int i = 0; i < 2'000; ++i) {
      logstream(QLX_LEVEL_DEBUG, "Unknown").l_value() << "-[MacDownloader Start]"
                                                      << ", URL:" << url << ", number: " << 4711 << std::endl;
    }
    return !qlxHasWriter(QLX_LEVEL_DEBUG);
  };
}

WorkDone challengeParse() {
  return [] {
    const std::vector<std::string> fields = {
        "Negotiate", R"(Digest realm="a", nonce="dcd98b7102dd2f0e8b11d0f600bfb0c093", qop="auth,auth-int")",
        R"(Bearer scope="x y z", error="invalid_token", Basic realm="The \"intranet\"", charset="UTF-8")"};
    for (int i = 0; i < 200; ++i) {
      const auto chosen = foundation::chooseChallenge(fields);
      if (!chosen || chosen->realm != R"(The "intranet")") {
        return false;
      }
    }
    return true;
  };
}

WorkDone urlParse() {
  return [] {
    for (int i = 0; i < 500; ++i) {
      const auto url = foundation::URL::parse(
          "https://user@www.example.com:8443/path/to/a/resource;v=1?query=some%20thing#part");
      if (!url || url->port() != 8443) {
        return false;
      }
    }
    return true;
  };
}

WorkDone notificationPost() {
  struct Posts {
    foundation::NotificationCenter center;
    foundation::Dictionary userInfo = {{"authLink", "linkValue"}, {"ShowWarningMsg", "false"}, {"Type", 1}};
    int seen = 0;
  };
  auto posts = std::make_shared<Posts>();
  for (int i = 0; i < 10; ++i) {
    posts->center.addObserver(nullptr, i < 5 ? "Posted" : "NeverPosted",
                              [&seen = posts->seen](const foundation::Notification& notification) {
                                seen += notification.userInfoText() != nullptr ? 1 : 0;
                              });
  }
  return [posts] {
    posts->seen = 0;
    for (int i = 0; i < 500; ++i) {
      posts->center.post("Posted", nullptr, &posts->userInfo);
    }
    return posts->seen == 2'500;
  };
}

/// Each turn of the loop is one beat: the last one was at least a millisecond ago.
WorkDone timerDispatch() {
  struct Context {
    Context() {
      g_main_context_push_thread_default(context);
      timer = foundation::Timer::scheduled(std::chrono::milliseconds(1), foundation::Timer::Repeats::Yes,
                                           [this](foundation::Timer&) { ++beats; });
    }
    ~Context() {
      timer->invalidate();
      g_main_context_pop_thread_default(context);
      g_main_context_unref(context);
    }
    GMainContext* const context = g_main_context_new();
    std::shared_ptr<foundation::Timer> timer;
    int beats = 0;
  };
  auto shared = std::make_shared<Context>();
  return [shared] {
    shared->beats = 0;
    while (shared->beats < 300) {
      g_main_context_iteration(shared->context, TRUE);
    }
    return shared->beats == 300;
  };
}

WorkDone bodyAppend() {
  return [] {
    const std::string chunk(1'500, 'x');
    foundation::Data body;
    for (int i = 0; i < 1'000; ++i) {
      if (!body.append(chunk.data(), chunk.size())) {
        return false;
      }
    }
    return body.length() == 1'500'000;
  };
}

/// A leaf for localhost and its root that lie beside this source, so that their numbers are always the same. They are
/// valid to 2049; nobody has their keys.
WorkDone trustEvaluation() {
  setenv("SSL_CERT_FILE", BENCH_FOLDER "/root.pem", 1);
  setenv("SSL_CERT_DIR", "/nonexistent", 1);
  std::ifstream stream(BENCH_FOLDER "/leaf.der", std::ios::binary);
  const std::string leaf{std::istreambuf_iterator<char>(stream), {}};
  return [leaf] {
    for (int i = 0; i < 5; ++i) {
      constexpr std::int64_t kYear2030 = 1'900'000'000;
      foundation::Trust trust({leaf}, foundation::TrustPolicy::ssl("localhost"));
      trust.setVerifyDate(kYear2030);
      foundation::TrustResult result = foundation::TrustResult::Invalid;
      if (trust.evaluate(result) != 0 || result != foundation::TrustResult::Unspecified) {
        return false;
      }
    }
    return true;
  };
}

}  // namespace

const std::vector<Work>& allWorks() {
  static const std::vector<Work> works = {
      {"poll_tick", &pollTick},
      {"add_find_remove", &addFindRemove},
      {"snapshot", &snapshot},
      {"request_of_header_json", &requestOfHeaderJson},
      {"trace_dropped", &traceDropped},
      {"challenge_parse", &challengeParse},
      {"url_parse", &urlParse},
      {"notification_post", &notificationPost},
      {"timer_dispatch", &timerDispatch},
      {"body_append", &bodyAppend},
      {"trust_evaluation", &trustEvaluation},
  };
  return works;
}
