#pragma once

// One named HTTP request of a pool: its properties, the call that runs it, and the status that the host
// polls. Owned by its pool; on the host's thread, where the call's states arrive, too.

#include <array>
#include <cstddef>
#include <functional>
#include <memory>

#include "httpPool/HttpCall.h"
#include "httpPool/IHttpCall.h"
#include "httpPool/TimeoutCheck.h"
#include "httpPool/ZEP_HttpPool.h"
#include "support/BasicString.h"

class CTask : public ICallback_Http_call, public CTimeoutCheck {
 public:
  using CallFactory = std::function<std::unique_ptr<CHttpCall>()>;

  CTask(const char* name, const char* poolName);
  /// With calls of the given make.
  CTask(const char* name, const char* poolName, CallFactory makeCall);

  /// Takes a state of the current call; drops those of any other.
  bool NotifyHttpCallStatus(int sessionId, HTTP_CALL_STATUS callStatus) override;

  /// Ends a request that is still running.
  ~CTask() override;

  /// "pool task"
  BasicString GetSelfIdentity() override;

  BasicString GetName() const { return m_name; }
  const BasicString& GetNameText() const { return m_name; }
  void SetName(const char* name);

  void GetStatus(ZEP_HTTP_TASK_STATUS* status) const;
  /// Properties 7, 10 and unknown ones are ignored; a null value is the empty text.
  void SetProperty(ZEP_HTTP_TASK_PROPERTY property, const char* value);
  /// Replaces the byte body. Null data or a negative size: none.
  void SetDataProperty(const unsigned char* data, long size);
  /// The value's length; copies at most `*size` bytes, without a terminator, when both pointers are there.
  long GetProperty(ZEP_HTTP_TASK_PROPERTY property, char* buffer, const long* size);

  /// Back to the start: no call, no byte body, status 0. The property texts stay, on purpose, results
  /// included.
  void Reset();
  void Run(ZEP_HTTP_TASK_STATUS* status);

 private:
  static constexpr std::size_t kPropertyCount = 10;

  bool Launch();
  void FreeData();
  BasicString& Property(ZEP_HTTP_TASK_PROPERTY property) { return m_properties[property - 1]; }
  const char* Text(ZEP_HTTP_TASK_PROPERTY property) { return Property(property).c_str(); }

  BasicString m_name;
  BasicString m_poolName;
  ZEP_HTTP_TASK_STATUS m_status = ZEP_HTTP_TASK_UNINITIALIZED;
  std::unique_ptr<CHttpCall> m_pCall;
  std::array<BasicString, kPropertyCount> m_properties;
  std::unique_ptr<unsigned char[]> m_pData;
  int m_dataSize = 0;
  CallFactory m_makeCall;
};
