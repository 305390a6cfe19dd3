// The requests of a trace log that are not over yet, and what leads to them: their numbers, downloaders and sessions.
// One thread. When kMost are open the oldest is given up for a new one, so that memory is bounded.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <utility>
#include <vector>

#include "TraceRecord.h"
#include "TraceRequest.h"

namespace httppool {

struct TraceOpenRequest {
  TraceRequest request;
  std::uint64_t downloader = 0;  // 0: not known
  bool isIdentified = false;     // by a launch or a thread; else made out by the thread alone
};

class TraceOpenRequests {
 public:
  using Number = std::uint64_t;  // of a request; 0: none
  using Sink = std::function<void(TraceRequest&&)>;

  static constexpr std::size_t kMost = 20'000;

  // `sink` gets every request once, when it is closed.
  explicit TraceOpenRequests(Sink sink) : sink_(std::move(sink)) {}

  // One that begins with that record.
  TraceOpenRequest& add(const TraceRecord& record);
  // Null for one that is not open.
  TraceOpenRequest* find(Number number);
  void identify(Number number, std::uint64_t downloader);
  void setSession(Number number, std::int64_t session);
  // Of processes, for their downloaders and sessions may be alike.
  Number ofDownloader(std::uint32_t process, std::uint64_t downloader) const;
  // Several may have one session; which is meant is not known then.
  Number onlyOneOfSession(std::uint32_t process, std::int64_t session) const;
  void close(Number number);
  void closeAll();

  Number lastNumber() const { return lastNumber_; }
  std::uint64_t givenUp() const { return givenUp_; }

 private:
  Sink sink_;
  Number lastNumber_ = 0;
  std::uint64_t givenUp_ = 0;
  std::map<Number, TraceOpenRequest> open_;
  std::map<std::pair<std::uint32_t, std::uint64_t>, Number> downloaders_;
  std::map<std::pair<std::uint32_t, std::int64_t>, std::vector<Number>> sessions_;
};

}  // namespace httppool
