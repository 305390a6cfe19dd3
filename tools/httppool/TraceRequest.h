// One request as a trace log tells it: what happened, when, in which phases, and how it ended. Any thread; a value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "TraceRecord.h"

namespace httppool {

struct TraceStep {
  enum class Where { Host, Downloader };

  std::int64_t time = 0;
  Where where = Where::Host;
  std::string text;         // fit for a terminal
  std::uint64_t times = 1;  // how often it happened, the last time at `last`
  std::int64_t last = 0;
};

struct TracePhase {
  enum class Kind {
    Started,    // no answer yet
    Challenge,  // somebody or something has to answer
    Response,   // the head of the answer is there, its body is not
    Receiving,  // the body arrives
    HandOver    // over, but the task has not been told
  };

  Kind kind = Kind::Started;
  std::int64_t from = 0;
  std::int64_t to = 0;
};

// What happened at one moment.
struct TraceMark {
  enum class Kind { Challenge, Redirect };

  Kind kind = Kind::Challenge;
  std::int64_t time = 0;
};

struct TraceRequest {
  enum class Outcome { Done, Failed, Redirected, Stopped, Refused, NoEnd };
  // What counts for the end is kept, however many steps there are already.
  enum class Keep { WhileFew, Always };

  static constexpr std::size_t kMostSteps = 200;
  static constexpr std::size_t kMostPhases = 200;  // and marks

  std::uint64_t number = 0;  // in the order of the starts, from 1
  std::uint32_t process = 0;
  std::uint32_t hostThread = 0;        // 0: the log does not tell
  std::uint32_t downloaderThread = 0;  // 0: likewise
  std::int64_t session = 0;            // of the task's call object; 0: likewise
  bool isStartKnown = false;           // else the log begins later
  std::int64_t start = 0;
  std::int64_t end = 0;
  int offsetMinutes = 0;
  std::string target;    // host and path, fit for a terminal; empty: not traced
  bool isPlain = false;  // http all along: no server shows a certificate

  Outcome outcome = Outcome::NoEnd;
  bool isRefused = false;
  int httpStatus = 0;
  int errorCode = 0;
  std::optional<int> finalState;  // that its thread has set
  std::optional<int> toldState;   // the last that its task was told
  std::optional<std::int64_t> stopped;
  std::string stoppedBy;  // an exported function; empty: none of them

  std::vector<TraceStep> steps;
  std::uint64_t stepsNotKept = 0;
  std::vector<TracePhase> phases;
  std::vector<TraceMark> marks;

  void addStep(TraceStep::Where where, std::int64_t time, std::string text, Keep keep = Keep::WhileFew);
  // Goes over to another phase.
  void enter(TracePhase::Kind kind, std::int64_t time);
  void mark(TraceMark::Kind kind, std::int64_t time);
  bool isIn(TracePhase::Kind kind) const { return !phases.empty() && phases.back().kind == kind; }
  // It is over, or its log is: decides what came of it.
  void close();

 private:
  void decide();
};

// Of a URL: host, port and path, since the rest may be private.
std::string targetOf(std::string_view url);
// "succeeded", "receiving"...; of a downloader or a call.
std::string stateWord(int state);
// "done, HTTP 200", "failed, HTTP 500, error 2 (server)"...
std::string outcomeText(const TraceRequest& request);

}  // namespace httppool
