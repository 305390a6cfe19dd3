// What other modules have compiled in: the places of virtual functions in their tables, the order of base classes, and
// the numbers of enumerations.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Fakes.h"
#include "common/zep/ZEPTimer.h"
#include "common/zep/mac/MacTimerImpl.h"
#include "httpPool/Global.h"
#include "httpPool/HttpCall.h"
#include "httpPool/HttpCallMacImpl.h"
#include "httpPool/MacDownloadEngine.h"
#include "httpPool/Pool.h"
#include "httpPool/Report.h"
#include "httpPool/Task.h"
#include "httpPool/ZEP_HttpPool.h"
#include "support/QlxTrace.h"

namespace {

/// The function's place in the table of virtual functions; -1: it is not virtual. A pointer to a virtual member
/// function holds its offset in the table and 1 (Itanium C++ ABI 2.3).
template <typename Function>
long slotOf(Function function) {
  static_assert(sizeof(function) == 2 * sizeof(std::uintptr_t));
  std::uintptr_t parts[2];
  std::memcpy(parts, &function, sizeof(parts));
  return parts[0] % 2 == 1 ? static_cast<long>((parts[0] - 1) / sizeof(void*)) : -1;
}

using TextLaunch = bool(const char*, const char*);
using BytesLaunch = bool(const char*, const char*, int);

/// One of several functions of that name.
template <typename Signature, typename Class>
constexpr auto overload(Signature Class::*function) {
  return function;
}

/// A class with one virtual function more, whose place is the number of those that the base has.
template <typename Base>
class WithOneMore : public Base {
 public:
  virtual void more() = 0;

 protected:
  ~WithOneMore() = default;
};
template <typename Base>
long slotsIn() {
  return slotOf(&WithOneMore<Base>::more);
}

/// Calls a destructor by its place in the table of the object's first base.
void destroyBySlot(void* object, std::size_t slot) {
  void** const table = *static_cast<void***>(object);
  reinterpret_cast<void (*)(void*)>(table[slot])(object);
}

TEST(Slots, OfACallback) {
  EXPECT_EQ(slotOf(&ICallback_Http_call::NotifyHttpCallStatus), 0);
  EXPECT_EQ(slotsIn<ICallback_Http_call>(), 1);
}

TEST(Slots, OfTheRoot) {
  EXPECT_EQ(slotsIn<IZEP_Root>(), 2) << "the destructor, complete and deleting";
}

TEST(Slots, OfACall) {
  EXPECT_EQ(slotOf(&IHttp_call::SetCallBack), 2);
  EXPECT_EQ(slotOf(&IHttp_call::LaunchCall), 3);
  EXPECT_EQ(slotOf(&IHttp_call::DownloadFile), 4);
  EXPECT_EQ(slotOf(&IHttp_call::GetSessionId), 5);
  EXPECT_EQ(slotOf(&IHttp_call::GetResult), 6);
  EXPECT_EQ(slotOf(&IHttp_call::GetRedirectUrl), 7);
  EXPECT_EQ(slotsIn<IHttp_call>(), 8);
}

TEST(Slots, OfTheFacadeAreThoseOfACallAndTwoMore) {
  EXPECT_EQ(slotOf(&CHttpCall::SetCallBack), 2);
  EXPECT_EQ(slotOf(overload<TextLaunch>(&CHttpCall::LaunchCall)), 3);
  EXPECT_EQ(slotOf(&CHttpCall::DownloadFile), 4);
  EXPECT_EQ(slotOf(&CHttpCall::GetSessionId), 5);
  EXPECT_EQ(slotOf(&CHttpCall::GetResult), 6);
  EXPECT_EQ(slotOf(&CHttpCall::GetRedirectUrl), 7);
  EXPECT_EQ(slotOf(&CHttpCall::SetHeaderFields), 8);
  EXPECT_EQ(slotOf(overload<BytesLaunch>(&CHttpCall::LaunchCall)), 9);
  EXPECT_EQ(slotsIn<CHttpCall>(), 10);
}

template <typename Implementation>
void expectSlotsOfAnImplementation() {
  EXPECT_EQ(slotOf(&Implementation::SetCallBack), 2);
  EXPECT_EQ(slotOf(&Implementation::SetHeaderFields), 3);
  EXPECT_EQ(slotOf(overload<TextLaunch>(&Implementation::LaunchCall)), 4);
  EXPECT_EQ(slotOf(overload<BytesLaunch>(&Implementation::LaunchCall)), 5);
  EXPECT_EQ(slotOf(&Implementation::DownloadFile), 6);
  EXPECT_EQ(slotOf(&Implementation::GetSessionId), 7);
  EXPECT_EQ(slotOf(&Implementation::GetResult), 8);
  EXPECT_EQ(slotOf(&Implementation::GetRedirectUrl), 9);
  EXPECT_EQ(slotsIn<Implementation>(), 10);
}

TEST(Slots, OfAnImplementationAreInAnotherOrder) {
  expectSlotsOfAnImplementation<IHttp_call_Impl>();
  expectSlotsOfAnImplementation<CHttpCallMacImpl>();
}

TEST(Slots, OfTimers) {
  EXPECT_EQ(slotOf(&IZEPTimer_Callback::OnTimer), 0);
  EXPECT_EQ(slotsIn<IZEPTimer_Callback>(), 1);
  EXPECT_EQ(slotsIn<ZEPTimer>(), 2);
  EXPECT_EQ(slotOf(&IZEPTimer_Impl::SetTimer), 2);
  EXPECT_EQ(slotOf(&IZEPTimer_Impl::KillTimer), 3);
  EXPECT_EQ(slotsIn<IZEPTimer_Impl>(), 4);
  EXPECT_EQ(slotOf(&ZEPMacTimer::SetTimer), 2);
  EXPECT_EQ(slotOf(&ZEPMacTimer::KillTimer), 3);
  EXPECT_EQ(slotsIn<ZEPMacTimer>(), 4);
}

TEST(Slots, OfADownloadsEventSink) {
  EXPECT_EQ(slotOf(&IDownloadEventSink::OnDownloadStateChange), 0);
  EXPECT_EQ(slotsIn<IDownloadEventSink>(), 1);
}

TEST(Slots, OfTheWatchdog) {
  EXPECT_EQ(slotOf(&CTimeoutCheck::GetSelfIdentity), 2);
  EXPECT_EQ(slotsIn<CTimeoutCheck>(), 5) << "and the two of the clock";
}

TEST(Slots, OfTheRegistryThePoolAndTheTask) {
  EXPECT_EQ(slotOf(&CGlobal::OnTimer), 2);
  EXPECT_EQ(slotsIn<CGlobal>(), 3);
  EXPECT_EQ(slotOf(&CPool::OnTimer), 2);
  EXPECT_EQ(slotOf(&CPool::GetSelfIdentity), 3);
  EXPECT_EQ(slotsIn<CPool>(), 4);
  EXPECT_EQ(slotOf(&CTask::NotifyHttpCallStatus), 0);
  EXPECT_EQ(slotOf(&CTask::GetSelfIdentity), 3) << "behind the destructor";
  EXPECT_EQ(slotsIn<CTask>(), 4);
}

TEST(Slots, OfTheDeletingDestructors) {
  CallScript script;
  auto call = std::make_unique<CHttpCall>(std::make_unique<FakeCallImpl>(script));
  destroyBySlot(call.release(), 1);
  EXPECT_EQ(script.alive, 0);

  const auto task = [&script] {
    auto made = std::make_unique<CTask>(
        "t", "p", [&script] { return std::make_unique<CHttpCall>(std::make_unique<FakeCallImpl>(script)); });
    made->Run(nullptr);
    return made;
  };
  destroyBySlot(task().release(), 2);
  EXPECT_EQ(script.alive, 0);

  auto pool = std::make_unique<CPool>("p");
  pool->AdoptTask(task());
  destroyBySlot(pool.release(), 1);
  EXPECT_EQ(script.alive, 0);
}

template <typename Base, typename Class>
std::ptrdiff_t offsetIn(Class& object) {
  return reinterpret_cast<char*>(static_cast<Base*>(&object)) - reinterpret_cast<char*>(&object);
}

TEST(Bases, StandInTheirOrder) {
  CGlobal registry;
  EXPECT_EQ(offsetIn<ZEPTimer>(registry), 0);
  EXPECT_EQ(offsetIn<IZEPTimer_Callback>(registry), static_cast<std::ptrdiff_t>(sizeof(ZEPTimer)));

  CPool pool("p");
  EXPECT_EQ(offsetIn<ZEPTimer>(pool), 0);
  EXPECT_EQ(offsetIn<IZEPTimer_Callback>(pool), static_cast<std::ptrdiff_t>(sizeof(ZEPTimer)));
  EXPECT_EQ(offsetIn<CTimeoutCheck>(pool),
            static_cast<std::ptrdiff_t>(sizeof(ZEPTimer) + sizeof(IZEPTimer_Callback)));

  CTask task("t", "p");
  EXPECT_EQ(offsetIn<ICallback_Http_call>(task), 0);
  EXPECT_EQ(offsetIn<CTimeoutCheck>(task), static_cast<std::ptrdiff_t>(sizeof(ICallback_Http_call)));
}

// The compiler looks at these.
#define EXPECT_NUMBER(name, number) static_assert(static_cast<int>(name) == (number))

static_assert(sizeof(ZEP_HTTP_TASK_STATUS) == 4);
EXPECT_NUMBER(ZEP_HTTP_TASK_UNINITIALIZED, 0);
EXPECT_NUMBER(ZEP_HTTP_TASK_STATUS_1, 1);
EXPECT_NUMBER(ZEP_HTTP_TASK_REQUESTING, 2);
EXPECT_NUMBER(ZEP_HTTP_TASK_DONE, 3);
EXPECT_NUMBER(ZEP_HTTP_TASK_NOT_EXIST, 4);
EXPECT_NUMBER(ZEP_HTTP_TASK_FAILED, 5);
EXPECT_NUMBER(ZEP_HTTP_TASK_TIMEOUT, 6);
EXPECT_NUMBER(ZEP_HTTP_TASK_API_ERROR, 7);
EXPECT_NUMBER(ZEP_HTTP_TASK_STATUS_8, 8);
EXPECT_NUMBER(ZEP_HTTP_TASK_REDIRECTED, 9);

static_assert(sizeof(ZEP_HTTP_TASK_PROPERTY) == 4);
EXPECT_NUMBER(ZEP_HTTP_TASK_PROP_HEADER_FIELDS, 1);
EXPECT_NUMBER(ZEP_HTTP_TASK_PROP_EXTRA_2, 2);
EXPECT_NUMBER(ZEP_HTTP_TASK_PROP_EXTRA_3, 3);
EXPECT_NUMBER(ZEP_HTTP_TASK_PROP_EXTRA_4, 4);
EXPECT_NUMBER(ZEP_HTTP_TASK_PROP_URL, 5);
EXPECT_NUMBER(ZEP_HTTP_TASK_PROP_POST_DATA, 6);
EXPECT_NUMBER(ZEP_HTTP_TASK_PROP_RESULT, 7);
EXPECT_NUMBER(ZEP_HTTP_TASK_PROP_DOWNLOAD_FILE, 8);
EXPECT_NUMBER(ZEP_HTTP_TASK_PROP_EXTRA_9, 9);
EXPECT_NUMBER(ZEP_HTTP_TASK_PROP_REDIRECT_URL, 10);

static_assert(sizeof(ZEP_HTTP_POOL_TASK_NOTIFY) == 4);
EXPECT_NUMBER(ZEP_HTTP_POOL_TASK_NOTIFY_POLL, 0);

static_assert(sizeof(HTTP_CALL_STATUS) == 4);
EXPECT_NUMBER(HTTP_CALL_SUCCEEDED, 0);
EXPECT_NUMBER(HTTP_CALL_FAILED, 1);
EXPECT_NUMBER(HTTP_CALL_PENDING, 2);
EXPECT_NUMBER(HTTP_CALL_ERROR_3, 3);
EXPECT_NUMBER(HTTP_CALL_TIMEOUT, 4);
EXPECT_NUMBER(HTTP_CALL_ERROR_5, 5);
EXPECT_NUMBER(HTTP_CALL_ERROR_6, 6);
EXPECT_NUMBER(HTTP_CALL_RECEIVING, 7);
EXPECT_NUMBER(HTTP_CALL_REDIRECTED, 8);

EXPECT_NUMBER(DOWNLOAD_ERROR_NONE, 0);
EXPECT_NUMBER(DOWNLOAD_ERROR_CONNECTION, 1);
EXPECT_NUMBER(DOWNLOAD_ERROR_SERVER, 2);
EXPECT_NUMBER(DOWNLOAD_ERROR_AUTHENTICATION, 3);
EXPECT_NUMBER(DOWNLOAD_ERROR_TIMEOUT, 4);
EXPECT_NUMBER(DOWNLOAD_ERROR_TOO_MANY_REQUESTS, 5);
EXPECT_NUMBER(DOWNLOAD_ERROR_OTHER, 6);

EXPECT_NUMBER(POOL_EVENT_POOL_CREATED, 0);
EXPECT_NUMBER(POOL_EVENT_POOL_DESTROYED, 5);
EXPECT_NUMBER(POOL_EVENT_TASK_CREATED, 10);
EXPECT_NUMBER(POOL_EVENT_TASK_SUBMIT, 20);
EXPECT_NUMBER(POOL_EVENT_TASK_GOT_RESP, 30);

EXPECT_NUMBER(QLX_LEVEL_DEBUG, 1);
EXPECT_NUMBER(QLX_LEVEL_INFO, 2);
EXPECT_NUMBER(QLX_LEVEL_WARNING, 4);
EXPECT_NUMBER(QLX_LEVEL_ERROR, 8);

}  // namespace
