#include "TraceLine.h"

#include <charconv>
#include <optional>

namespace httppool {
namespace {

using Kind = TraceLine::Kind;

// How the values stand behind the text that a line begins with.
enum class Form {
  Nothing,           // and nothing may follow
  Name,              // all that follows
  Number,            // all that follows
  Identity,          // of a downloader: all that follows
  NameAndNumber,     // "name", the form's middle, "number"; the name may hold the middle, too
  NumberAndName,     // "number", the middle, "name"
  SessionAndNumber,  // "session", the middle, "number"
  SessionAndIdentity,
  Session  // "session", the middle, and whatever
};

struct Shape {
  std::string_view operation;  // what a line begins with,
  std::string_view begin;      // and what follows before the values
  Kind kind;
  Form form;
  std::string_view middle = {};
};

constexpr std::string_view kHandle = "-[MacDownloader handleAuthenticationChallenge:]";
constexpr std::string_view kGenerate = "-[MacDownloadEngine generateURLRequest:postData:headerFields:] ";
constexpr std::string_view kDownload =
    "-[MacDownloadEngine AsyncDownloadWithUrl:downloadType:eventSink:postContent:headerFields:] ";
constexpr std::string_view kDownloader = "-[MacDownloader ";
constexpr std::string_view kEngine = "-[MacDownloadEngine DownloadStateChanged:] ";
constexpr std::string_view kCall = "CHttpCallMacImpl::";

// The first that a line begins with and fits counts.
constexpr Shape kShapes[] = {
    {"", "--> ", Kind::Entry, Form::Name},
    {"", "<-- ", Kind::Exit, Form::Name},
    {kDownloader, "SetDownloadState:], state:", Kind::State, Form::Number},
    {kEngine, "state:", Kind::EngineState, Form::Number},
    {kCall, "OnDownloadStateChange,  SessionID: ", Kind::CallState, Form::SessionAndNumber, ", state:"},
    {"", "NotifyHttpCallStatus, sessionID: ", Kind::TaskNotified, Form::SessionAndNumber, "status"},
    {"", "GetSuccessResult, SessionID: ", Kind::Result, Form::Session, ", Response: "},
    {kDownloader, "Start], Cocoa http Call start thread to download: ", Kind::Launch, Form::Name},
    {kCall, "StartDownload, SessionID: ", Kind::Call, Form::SessionAndIdentity, ", downloader: "},
    {kDownloader, "ThreadProc], downloader:", Kind::ThreadStart, Form::Identity},
    {kDownloader, "Stop], downloader:", Kind::StopIdentity, Form::Identity},
    {kDownloader, "Stop], Cocoa http Call stop thread to call: ", Kind::Stop, Form::NameAndNumber,
     ", current state: "},
    {kDownloader, "dealloc], Cocoa http Call dealloc for calling: ", Kind::Release, Form::Name},
    {kDownloader, "connection:didReceiveResponse:], m_statusCode:", Kind::Response, Form::Number},
    {kDownloader, "connectionDidFinishLoading:], connectionDidFinishLoading: ", Kind::Loaded,
     Form::NameAndNumber, ", m_statusCode="},
    {kDownloader, "setErrorCode:], errorcode:", Kind::ErrorCode, Form::Number},
    {"", "-[NSURLResponse(GetHeaderAdditions) printHeadValue:] trackingID: ", Kind::TrackingId, Form::Name},
    {kDownloader, "connection:willSendRequest:redirectResponse:], m_statusCode:", Kind::Redirect,
     Form::NumberAndName, ", remotehost:"},
    {kDownloader, "connection:didFailWithError:], m_targetUrlString:", Kind::LoadFailed, Form::Name},
    {kDownloader, "connection:didFailWithError:], error:", Kind::FailureReason, Form::Name},
    {kHandle, ", remotehost:", Kind::Challenge, Form::Name},
    {kHandle, ", NSURLAuthenticationMethodNTLM", Kind::AsksForPassword, Form::Nothing},
    {kHandle, ", already has validate creden", Kind::AnsweredByStore, Form::Nothing},
    {kHandle, ", has invalidate creden and failureCount > 0, remove it ", Kind::StoredRefused, Form::Nothing},
    {kHandle, ", has invalidate creden, remove it", Kind::StoredUseless, Form::Nothing},
    {kHandle, ", no creden and need let user input user name and password", Kind::HostIsAsked, Form::Nothing},
    {kHandle, ", got user input", Kind::HostHasAnswered, Form::Nothing},
    {kHandle, ", credential m_ntlmUserName:", Kind::HostsAnswer, Form::Name},
    {kHandle, ", skip", Kind::Skipped, Form::Nothing},
    {kHandle, ", cancel", Kind::AnswerIsEmpty, Form::Nothing},
    {kHandle, ", requesting untrusted connection.", Kind::ServerUntrusted, Form::Nothing},
    {kHandle, ", NSURLProtectionSpace isProxy begin", Kind::ProxyRefused, Form::Nothing},
    {kHandle, ", NSURLProtectionSpace isProxy end", Kind::ProxyRefusedEnd, Form::Nothing},
    {kDownloader, "SetNTLMAskedInfo:password:], proxyName:", Kind::UserName, Form::Name},
    {kGenerate, "destUrl is empty, url:", Kind::Refusal, Form::Name},
    {kGenerate, "url is empty", Kind::Refusal, Form::Nothing},
    {kDownload, "urlRequest is nil, url:", Kind::Refusal, Form::Name},
    {kEngine, "http call failed, retry! url:", Kind::Retry, Form::Name},
    {kEngine, "http call retry count > 3, failed! url:", Kind::RetriesEnded, Form::Name},
};

template <typename Number>
bool readAll(std::string_view text, Number& number, int base = 10) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  return error == std::errc() && end == text.data() + text.size();
}

bool readIdentity(std::string_view text, std::uint64_t& downloader) {
  return text.starts_with("0x") && readAll(text.substr(2), downloader, 16);
}

bool readValues(const Shape& shape, std::string_view rest, TraceLine& line) {
  const bool isMiddleLast = shape.form == Form::NameAndNumber;
  const std::size_t at = isMiddleLast ? rest.rfind(shape.middle) : rest.find(shape.middle);
  if (at == rest.npos) {
    return false;
  }
  const std::string_view first = rest.substr(0, at);
  const std::string_view second = rest.substr(at + shape.middle.size());
  switch (shape.form) {
    case Form::Nothing:
      return rest.empty();
    case Form::Name:
      line.name = rest;
      return true;
    case Form::Number:
      return readAll(rest, line.number);
    case Form::Identity:
      return readIdentity(rest, line.downloader);
    case Form::NameAndNumber:
      line.name = first;
      return readAll(second, line.number);
    case Form::NumberAndName:
      line.name = second;
      return readAll(first, line.number);
    case Form::SessionAndNumber:
      return readAll(first, line.session) && readAll(second, line.number);
    case Form::SessionAndIdentity:
      return readAll(first, line.session) && readIdentity(second, line.downloader);
    case Form::Session:
      return readAll(first, line.session);
  }
  return false;
}

}  // namespace

TraceLine readTraceLine(std::string_view text) {
  for (const Shape& shape : kShapes) {
    if (!text.starts_with(shape.operation)) {
      continue;
    }
    const std::string_view rest = text.substr(shape.operation.size());
    TraceLine line;
    if (rest.starts_with(shape.begin) && readValues(shape, rest.substr(shape.begin.size()), line)) {
      line.kind = shape.kind;
      return line;
    }
  }
  return {};
}

}  // namespace httppool
