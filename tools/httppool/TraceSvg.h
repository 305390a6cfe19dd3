// Draws requests as a timeline: a row for each, with a bar for each phase and a mark for how it ended. Phases differ
// in height and outcomes in shape, too, not only in colour. The picture is one SVG text without scripts and without
// anything from elsewhere.
//
// One thread. Does not own the requests.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "TraceRequest.h"

namespace httppool {

class TraceSvg {
 public:
  // `requests` is not empty and outlives the drawing; `notDrawn` is told in the picture.
  TraceSvg(const std::vector<TraceRequest>& requests, std::uint64_t notDrawn);

  std::string draw();

 private:
  void drawHead();
  void drawLegend();
  void drawAxis();
  void drawRow(std::size_t index);
  void drawPhase(const TraceRequest& request, const TracePhase& phase, double middle);
  void drawLabels(const TraceRequest& request, double middle);
  double drawPhaseKey(double x, double y, TracePhase::Kind kind, std::string_view text);
  double drawSignKey(double x, double y, TraceMark::Kind kind, std::string_view text);
  double drawOutcomeKey(double x, double y, TraceRequest::Outcome outcome, std::string_view text);

  double x(std::int64_t time) const;
  std::int64_t endOf(const TraceRequest& request) const;
  double height() const;
  std::string clip(const char* name, double left, double right) const;
  void text(double x, double y, std::string_view attributes, std::string_view content);

  const std::vector<TraceRequest>& requests_;
  std::uint64_t notDrawn_;
  std::int64_t begin_;
  std::int64_t end_;
  bool hasSeveralProcesses_ = false;
  double rowHeight_;
  double fontSize_;
  std::string svg_;
};

// A step of the axis: the smallest of the usual ones that cuts the span into ten parts at most. Microseconds.
std::int64_t tickStep(std::int64_t span);
// "200 ms", "1.5 s", "3 min", "2 h"
std::string tickLabel(std::int64_t time);
// Fit for the text and the attributes of an XML document; also what no XML document may hold.
std::string xmlEscaped(std::string_view text);

}  // namespace httppool
