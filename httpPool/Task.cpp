#include "httpPool/Task.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>
#include <utility>

#include "httpPool/NamedList.h"
#include "support/logstream.h"

CTask::CTask(const char* name, const char* poolName)
    : CTask(name, poolName, [] { return std::make_unique<CHttpCall>(); }) {
}

CTask::CTask(const char* name, const char* poolName, CallFactory makeCall)
    : m_name(name), m_poolName(poolName), m_makeCall(std::move(makeCall)) {
  InitTimeoutCheck();
}

CTask::~CTask() = default;

BasicString CTask::GetSelfIdentity() {
  BasicString identity;
  identity.format("%s %s", m_poolName.c_str(), m_name.c_str());
  return identity;
}

void CTask::SetName(const char* name) {
  m_name = name;
  NamedListBase::NoteRename();
}

void CTask::GetStatus(ZEP_HTTP_TASK_STATUS* status) const {
  if (status) {
    *status = m_status;
  }
}

void CTask::SetProperty(ZEP_HTTP_TASK_PROPERTY property, const char* value) {
  switch (property) {
    case ZEP_HTTP_TASK_PROP_HEADER_FIELDS:
    case ZEP_HTTP_TASK_PROP_EXTRA_2:
    case ZEP_HTTP_TASK_PROP_EXTRA_3:
    case ZEP_HTTP_TASK_PROP_EXTRA_4:
    case ZEP_HTTP_TASK_PROP_URL:
    case ZEP_HTTP_TASK_PROP_POST_DATA:
    case ZEP_HTTP_TASK_PROP_DOWNLOAD_FILE:
    case ZEP_HTTP_TASK_PROP_EXTRA_9:
      Property(property) = value ? value : "";
      break;
    default:
      break;
  }
}

void CTask::SetDataProperty(const unsigned char* data, long size) {
  FreeData();
  if (!data || size < 0 || size > INT_MAX) {
    return;
  }
  const auto length = static_cast<std::size_t>(size);
  // One byte more than the data, which stays unwritten on purpose: the data is bytes, not text.
  m_pData.reset(new unsigned char[length + 1]);
  std::memcpy(m_pData.get(), data, length);
  m_dataSize = static_cast<int>(size);
}

long CTask::GetProperty(ZEP_HTTP_TASK_PROPERTY property, char* buffer, const long* size) {
  const int number = property;
  if (number < ZEP_HTTP_TASK_PROP_HEADER_FIELDS || number > ZEP_HTTP_TASK_PROP_REDIRECT_URL) {
    return 0;
  }
  if (property == ZEP_HTTP_TASK_PROP_REDIRECT_URL && m_pCall) {
    m_pCall->GetRedirectUrl(Property(property));
  }
  const BasicString& value = Property(property);
  const auto length = static_cast<long>(value.length());
  if (buffer && size && *size > 0) {
    std::memcpy(buffer, value.data(), static_cast<std::size_t>(std::min(*size, length)));
  }
  return length;
}

void CTask::Reset() {
  m_status = ZEP_HTTP_TASK_UNINITIALIZED;
  m_pCall.reset();
  FreeData();
}

void CTask::Run(ZEP_HTTP_TASK_STATUS* status) {
  try {
    m_status = Launch() ? ZEP_HTTP_TASK_REQUESTING : ZEP_HTTP_TASK_FAILED;
  } catch (const std::bad_alloc&) {
    m_status = ZEP_HTTP_TASK_FAILED;
  }
  GetStatus(status);
}

bool CTask::Launch() {
  if (!m_pCall) {
    m_pCall = m_makeCall();
  }
  m_pCall->SetCallBack(this);
  if (!Property(ZEP_HTTP_TASK_PROP_HEADER_FIELDS).empty()) {
    m_pCall->SetHeaderFields(Text(ZEP_HTTP_TASK_PROP_HEADER_FIELDS));
  }
  const char* url = Text(ZEP_HTTP_TASK_PROP_URL);
  if (m_pData && m_dataSize != 0) {
    return m_pCall->LaunchCall(url, reinterpret_cast<const char*>(m_pData.get()), m_dataSize);
  }
  if (!Property(ZEP_HTTP_TASK_PROP_DOWNLOAD_FILE).empty()) {
    return m_pCall->DownloadFile(url, Text(ZEP_HTTP_TASK_PROP_DOWNLOAD_FILE));
  }
  const bool hasPostData = !Property(ZEP_HTTP_TASK_PROP_POST_DATA).empty();
  return m_pCall->LaunchCall(url, hasPostData ? Text(ZEP_HTTP_TASK_PROP_POST_DATA) : nullptr);
}

bool CTask::NotifyHttpCallStatus(int sessionId, HTTP_CALL_STATUS callStatus) {
  // There is no blank between "status" and the number, on purpose.
  logstream(QLX_LEVEL_DEBUG, "httpPool").l_value()
      << "NotifyHttpCallStatus"
      << ", sessionID: " << sessionId << "status" << static_cast<int>(callStatus) << std::endl;
  if (!m_pCall || sessionId != m_pCall->GetSessionId()) {
    return false;
  }
  switch (callStatus) {
    case HTTP_CALL_SUCCEEDED:
      m_status = ZEP_HTTP_TASK_DONE;
      m_pCall->GetResult(Property(ZEP_HTTP_TASK_PROP_RESULT));
      break;
    case HTTP_CALL_FAILED:
    case HTTP_CALL_PENDING:
    case HTTP_CALL_ERROR_3:
    case HTTP_CALL_ERROR_5:
    case HTTP_CALL_ERROR_6:
      m_status = ZEP_HTTP_TASK_FAILED;
      m_pCall->GetResult(Property(ZEP_HTTP_TASK_PROP_RESULT));
      break;
    case HTTP_CALL_TIMEOUT:
      m_status = ZEP_HTTP_TASK_TIMEOUT;
      break;
    case HTTP_CALL_RECEIVING:
      m_status = ZEP_HTTP_TASK_REQUESTING;
      break;
    case HTTP_CALL_REDIRECTED:
      m_status = ZEP_HTTP_TASK_REDIRECTED;
      m_pCall->GetRedirectUrl(Property(ZEP_HTTP_TASK_PROP_REDIRECT_URL));
      break;
  }
  return true;
}

void CTask::FreeData() {
  m_pData.reset();
  m_dataSize = 0;
}
