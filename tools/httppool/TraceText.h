// Writes the roads of requests as text, fit for a terminal. One thread; does not own its stream.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "TraceLog.h"
#include "TraceRequest.h"
#include "TraceRoad.h"

namespace httppool {

class TraceText {
 public:
  explicit TraceText(std::FILE* stream) : stream_(stream) {}

  // A summary line, and a line for each step.
  void showRequest(const TraceRequest& request);
  // How much there was, and what belongs to no request.
  void showRest(const TraceLog& log, const TraceRoad& road);

 private:
  void showStep(const TraceRequest& request, std::size_t index);
  void showOthers(const TraceOthers& others);
  void showTroubles(const TraceLog& log, const TraceRoad& road);
  void line(const std::string& text);

  std::FILE* stream_;
};

}  // namespace httppool
