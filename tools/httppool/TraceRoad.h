// Tells which lines of a trace log belong to which request, and passes on each request when it is over.
//
// A request's lines come from two threads. Those of its downloader's thread belong to it by the identity of the
// downloader, which the launch and the thread trace. On the host's thread a launch stands inside a call of
// ZEP_HttpPool_TaskRun; a stop tells the downloader's identity, and what follows it on that thread belongs to it;
// what a running request reports goes by the session id of its call. What cannot be told this way is counted as
// belonging to no request, never guessed.
//
// One thread. Memory is bounded by the requests that are open, see TraceOpenRequests.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "TraceLine.h"
#include "TraceOpenRequests.h"
#include "TraceRecord.h"
#include "TraceRequest.h"

namespace httppool {

// Lines that belong to no request.
struct TraceOthers {
  static constexpr std::size_t kMostMessages = 20;

  struct Message {
    std::int64_t time = 0;
    int offsetMinutes = 0;
    char level = 'W';
    std::string text;  // fit for a terminal
  };

  std::uint64_t lines = 0;
  std::map<std::string, std::uint64_t> calls;  // of exported functions, which name no task
  std::uint64_t releases = 0;                  // of downloaders, which tell no identity
  std::uint64_t states = 0;                    // of calls whose request cannot be told
  std::uint64_t texts = 0;                     // anything else
  std::vector<Message> messages;               // the first of those that are warnings or errors
  std::uint64_t messagesNotKept = 0;
};

class TraceRoad {
 public:
  using Sink = std::function<void(TraceRequest&&)>;

  // `sink` gets every request once, in the order in which they end.
  explicit TraceRoad(Sink sink);

  void take(const TraceRecord& record);
  // No more is to come: what is open has no end in the log.
  void finish();

  std::uint64_t requests() const { return open_.lastNumber(); }
  // Requests without an end, because too many were open at once.
  std::uint64_t givenUp() const { return open_.givenUp(); }
  const TraceOthers& others() const { return others_; }

 private:
  using Number = TraceOpenRequests::Number;
  using Open = TraceOpenRequest;
  using Identity = std::pair<std::uint32_t, std::uint64_t>;  // process and downloader

  struct Frame {
    std::string name;
    std::int64_t time = 0;
    Number launched = 0;
    bool isAttributed = false;  // to any request
  };
  struct Thread {
    std::vector<Frame> frames;
    Number launching = 0;  // until its session is told
    // What was stopped or told about last: further lines of this thread may belong to it.
    Number told = 0;
    bool hasEngineLine = false;
    Number served = 0;          // of a downloader's thread
    std::uint64_t serving = 0;  // the downloader whose launch has not been read yet
  };
  // A thread that began before its launch was traced, and what it has traced so far.
  struct Early {
    TraceThread thread;
    std::vector<TraceRecord> records;
  };

  void takeHostLine(Thread& thread, const TraceLine& line, const TraceRecord& record);
  void takeDownloaderLine(Thread& thread, const TraceLine& line, const TraceRecord& record);
  void enterFunction(Thread& thread, const TraceLine& line, const TraceRecord& record);
  void leaveFunction(Thread& thread, const TraceLine& line, const TraceRecord& record);
  void leave(const Frame& frame, Thread& thread, std::int64_t time);
  void launch(Thread& thread, const TraceLine& line, const TraceRecord& record);
  void refuse(Thread& thread, const TraceLine& line, const TraceRecord& record);
  void identify(Thread& thread, const TraceLine& line, const TraceRecord& record);
  void startThread(Thread& thread, const TraceLine& line, const TraceRecord& record);
  void bind(Number number, const TraceThread& thread);
  void keepEarly(const Identity& identity, const TraceRecord& record);
  void replay(Identity identity, Number number);
  void beginStop(Thread& thread, const TraceLine& line, const TraceRecord& record);
  void stop(Thread& thread, const TraceLine& line, const TraceRecord& record);
  void passOn(Thread& thread, const TraceLine& line, const TraceRecord& record);
  void findTold(Thread& thread, const TraceLine& line, std::uint32_t process);
  void tell(Open& told, const TraceLine& line, const TraceRecord& record);
  void endTelling(Thread& thread);
  void takeOther(const TraceRecord& record);
  void takeOtherCall(const std::string& name, std::uint64_t lines);

  void hostStep(Number number, const TraceRecord& record, std::string text);
  void passClosed(TraceRequest&& request);
  void boundThreads();

  Sink sink_;
  TraceOpenRequests open_;
  std::map<TraceThread, Thread> threads_;
  std::map<Identity, Early> early_;
  std::deque<Number> settled_;  // over, as far as their threads tell, and known by them alone
  TraceOthers others_;
};

}  // namespace httppool
