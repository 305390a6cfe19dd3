#include "TraceDownloaderLines.h"

#include <string>

#include "TerminalText.h"

namespace httppool {
namespace {

using Kind = TraceLine::Kind;

// One line, applied to its request.
class Application {
 public:
  Application(TraceRequest& request, const TraceLine& line, const TraceRecord& record)
      : request_(request), line_(line), record_(record) {}

  void apply() {
    switch (line_.kind) {
      case Kind::ThreadStart:
        return step("the thread runs");
      case Kind::State:
        return applyState();
      case Kind::ErrorCode:
        return applyErrorCode();
      case Kind::Response:
        request_.httpStatus = line_.number;
        enter(TracePhase::Kind::Response);
        return step("response: HTTP " + std::to_string(line_.number));
      case Kind::Redirect:
        // Where it leads to may be https.
        request_.isPlain = false;
        request_.mark(TraceMark::Kind::Redirect, record_.time);
        enter(TracePhase::Kind::Started);
        return step("redirect followed: HTTP " + std::to_string(line_.number) + ", to " +
                    oneLine(line_.name));
      case Kind::TrackingId:
        return step("tracking id: " + oneLine(line_.name));
      case Kind::Loaded:
        nameTarget(targetOf(line_.name));
        return step("the body is there");
      case Kind::LoadFailed:
        return nameTarget(targetOf(line_.name));
      case Kind::FailureReason:
        return step("failed: " +
                    oneLine(line_.name.substr(0, line_.name.rfind(", error localizedDescription:"))));
      case Kind::UserName:
        return;  // with the password behind it; a road is to be shown to others
      case Kind::Other:
        return step(oneLine(record_.text));
      default:
        return applyChallengeLine();
    }
  }

 private:
  // When the launch is not in the log.
  void nameTarget(const std::string& target) {
    if (request_.target.empty()) {
      request_.target = target;
    }
  }

  void applyState() {
    constexpr int kSucceeded = 0;
    constexpr int kFailed = 1;
    constexpr int kReceiving = 7;
    constexpr int kRedirected = 8;
    if (line_.number == kReceiving) {
      enter(TracePhase::Kind::Receiving);
    } else if (line_.number == kRedirected) {
      request_.mark(TraceMark::Kind::Redirect, record_.time);
      return step("the redirect is captured, not followed", TraceRequest::Keep::Always);
    } else if (line_.number == kSucceeded || line_.number == kFailed) {
      request_.finalState = line_.number;
      request_.end = record_.time;
      enter(TracePhase::Kind::HandOver);
    }
    step(stateWord(line_.number), TraceRequest::Keep::Always);
  }

  void applyErrorCode() {
    request_.errorCode = line_.number;
    if (line_.number != 0) {
      step("error code " + std::to_string(line_.number), TraceRequest::Keep::Always);
    }
  }

  void applyChallengeLine() {
    switch (line_.kind) {
      case Kind::Challenge:
        request_.mark(TraceMark::Kind::Challenge, record_.time);
        nameTarget(oneLine(line_.name));
        if (request_.isPlain) {
          enter(TracePhase::Kind::Challenge);
        }
        return step("challenge of " + oneLine(line_.name));
      case Kind::AsksForPassword:
        enter(TracePhase::Kind::Challenge);
        return step("it asks for a user name and a password (NTLM or Basic)");
      case Kind::AnsweredByStore:
        return answered("answered with a stored credential");
      case Kind::StoredRefused:
        return step("the stored credential was refused, and is removed");
      case Kind::StoredUseless:
        return step("the stored credentials have no password, and are removed");
      case Kind::HostIsAsked:
        return step("the host is asked for a user name and a password");
      case Kind::HostHasAnswered:
        return step("the host has answered");
      case Kind::HostsAnswer:
        return answered("the host's answer is looked at");
      case Kind::Skipped:
        return answered("skipped: the challenge is cancelled");
      case Kind::AnswerIsEmpty:
        return answered("no user name or no password: the challenge is cancelled");
      case Kind::ServerUntrusted:
        return answered("the server is not trusted");
      case Kind::ProxyRefused:
        return answered("the proxy asks for a password: refused");
      default:
        return;
    }
  }

  void answered(const char* text) {
    if (!request_.finalState) {
      enter(TracePhase::Kind::Started);
    }
    step(text);
  }

  void enter(TracePhase::Kind kind) { request_.enter(kind, record_.time); }

  void step(std::string text, TraceRequest::Keep keep = TraceRequest::Keep::WhileFew) {
    request_.addStep(TraceStep::Where::Downloader, record_.time, std::move(text), keep);
  }

  TraceRequest& request_;
  const TraceLine& line_;
  const TraceRecord& record_;
};

}  // namespace

bool isDownloaderLine(Kind kind) {
  switch (kind) {
    case Kind::State:
    case Kind::ErrorCode:
    case Kind::Response:
    case Kind::Redirect:
    case Kind::TrackingId:
    case Kind::Loaded:
    case Kind::LoadFailed:
    case Kind::FailureReason:
    case Kind::Challenge:
    case Kind::AsksForPassword:
    case Kind::AnsweredByStore:
    case Kind::StoredRefused:
    case Kind::StoredUseless:
    case Kind::HostIsAsked:
    case Kind::HostHasAnswered:
    case Kind::HostsAnswer:
    case Kind::Skipped:
    case Kind::AnswerIsEmpty:
    case Kind::ServerUntrusted:
    case Kind::ProxyRefused:
    case Kind::ProxyRefusedEnd:
    case Kind::UserName:
      return true;
    default:
      return false;
  }
}

bool isTrailingLine(Kind kind) {
  return kind == Kind::TrackingId || kind == Kind::ProxyRefusedEnd;
}

void applyDownloaderLine(TraceRequest& request, const TraceLine& line, const TraceRecord& record) {
  if (!request.finalState) {
    request.end = record.time;
  }
  Application(request, line, record).apply();
}

}  // namespace httppool
