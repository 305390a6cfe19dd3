#include "TraceRequest.h"

#include <algorithm>
#include <utility>

#include "TerminalText.h"

namespace httppool {
namespace {

constexpr int kSucceeded = 0;
constexpr int kFailed = 1;
constexpr int kRedirected = 8;

// Two steps that alternate, as those of a long body on its two threads do, are joined all the same.
constexpr std::size_t kJoinedWithin = 2;

std::string phaseWord(TracePhase::Kind kind) {
  switch (kind) {
    case TracePhase::Kind::Started:
      return "waiting for an answer";
    case TracePhase::Kind::Challenge:
      return "a challenge was open";
    case TracePhase::Kind::Response:
      return "waiting for the body";
    case TracePhase::Kind::Receiving:
      return "receiving";
    case TracePhase::Kind::HandOver:
      return "handing over";
  }
  return {};
}

std::string errorWord(int code) {
  switch (code) {
    case 1:
      return "connection";
    case 2:
      return "server";
    case 3:
      return "authentication";
    case 4:
      return "time-out";
    case 5:
      return "too many requests";
    case 6:
      return "other";
    default:
      return "unknown";
  }
}

}  // namespace

void TraceRequest::addStep(TraceStep::Where where, std::int64_t time, std::string text, Keep keep) {
  const auto last = steps.end();
  const auto begin = last - static_cast<std::ptrdiff_t>(std::min(steps.size(), kJoinedWithin));
  const auto same = std::find_if(
      begin, last, [&](const TraceStep& step) { return step.where == where && step.text == text; });
  if (same != last) {
    ++same->times;
    same->last = time;
  } else if (steps.size() < kMostSteps || (keep == Keep::Always && steps.size() < 2 * kMostSteps)) {
    steps.push_back({time, where, std::move(text), 1, time});
  } else {
    ++stepsNotKept;
  }
}

void TraceRequest::enter(TracePhase::Kind kind, std::int64_t time) {
  if (isIn(kind)) {
    return;
  }
  if (!phases.empty()) {
    // The clock may have been set back.
    time = std::max(time, phases.back().from);
    phases.back().to = time;
  }
  if (phases.size() < kMostPhases || kind == TracePhase::Kind::HandOver) {
    phases.push_back({kind, time, time});
  }
}

void TraceRequest::mark(TraceMark::Kind kind, std::int64_t time) {
  if (marks.size() < kMostPhases) {
    marks.push_back({kind, time});
  }
}

void TraceRequest::close() {
  decide();
  if (outcome == Outcome::Stopped) {
    end = *stopped;
  }
  if (!phases.empty()) {
    TracePhase& last = phases.back();
    last.to = std::max({last.from, last.to, end, stopped.value_or(end)});
  }
}

void TraceRequest::decide() {
  const auto isEither = [](const std::optional<int>& state) {
    return state == kSucceeded || state == kFailed;
  };
  if (isRefused) {
    outcome = Outcome::Refused;
  } else if (isEither(toldState)) {
    outcome = *toldState == kSucceeded ? Outcome::Done : Outcome::Failed;
  } else if (finalState) {
    outcome = *finalState == kSucceeded ? Outcome::Done : Outcome::Failed;
  } else if (toldState == kRedirected) {
    outcome = Outcome::Redirected;
  } else {
    outcome = stopped ? Outcome::Stopped : Outcome::NoEnd;
  }
}

std::string targetOf(std::string_view url) {
  const std::size_t slashes = url.find("://");
  std::string_view rest = slashes == url.npos ? url : url.substr(slashes + 3);
  rest = rest.substr(0, rest.find_first_of("?#"));
  const std::size_t at = rest.substr(0, rest.find('/')).rfind('@');
  if (at != rest.npos) {
    rest.remove_prefix(at + 1);
  }
  return oneLine(rest);
}

std::string stateWord(int state) {
  switch (state) {
    case kSucceeded:
      return "succeeded";
    case kFailed:
      return "failed";
    case 2:
      return "pending";
    case 4:
      return "timed out";
    case 7:
      return "receiving";
    case kRedirected:
      return "redirected";
    default:
      return "state " + std::to_string(state);
  }
}

std::string outcomeText(const TraceRequest& request) {
  std::string text;
  switch (request.outcome) {
    case TraceRequest::Outcome::Done:
      text = "done";
      break;
    case TraceRequest::Outcome::Failed:
      text = "failed";
      break;
    case TraceRequest::Outcome::Redirected:
      text = "redirected";
      break;
    case TraceRequest::Outcome::Stopped:
      text = "stopped";
      break;
    case TraceRequest::Outcome::Refused:
      return "refused";
    case TraceRequest::Outcome::NoEnd:
      text = "no end in this log";
      break;
  }
  const bool isUnfinished =
      request.outcome == TraceRequest::Outcome::Stopped || request.outcome == TraceRequest::Outcome::NoEnd;
  if (isUnfinished && !request.phases.empty()) {
    text += ", " + phaseWord(request.phases.back().kind);
  }
  if (request.httpStatus != 0) {
    text += ", HTTP " + std::to_string(request.httpStatus);
  }
  if (request.errorCode != 0) {
    text += ", error " + std::to_string(request.errorCode) + " (" + errorWord(request.errorCode) + ")";
  }
  return text;
}

}  // namespace httppool
