#include "TraceSvg.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>

#include "TraceWords.h"

namespace httppool {
namespace {

using Outcome = TraceRequest::Outcome;
using Phase = TracePhase::Kind;

constexpr double kWidth = 1370;
constexpr double kMargin = 16;
constexpr double kChartLeft = 330;
constexpr double kChartRight = 910;
constexpr double kDurationRight = 1010;
constexpr double kOutcomeLeft = 1026;
constexpr double kTop = 132;        // of the first row
constexpr double kBottom = 40;      // below the last one
constexpr double kNarrowest = 1.5;  // no phase is invisible

// The colours are told apart by the colour-blind, too (Okabe and Ito).
struct PhaseLook {
  Phase kind;
  double share;  // of the row's height
  const char* fill;
  const char* name;
  const char* explanation;
};
constexpr PhaseLook kPhases[] = {
    {Phase::Started, 0.22, "#8a949e", "started", "started: no answer yet"},
    {Phase::Challenge, 0.78, "url(#hatch)", "challenge", "challenge: it is to be answered"},
    {Phase::Response, 0.46, "#56b4e9", "response", "response: its head is there"},
    {Phase::Receiving, 0.78, "#0072b2", "receiving", "receiving its body"},
    {Phase::HandOver, 0.12, "#222222", "handing over", "handing over to the task"},
};

struct OutcomeLook {
  Outcome outcome;
  const char* name;
  const char* shape;  // in a box from -7 to 7
};
constexpr OutcomeLook kOutcomes[] = {
    {Outcome::Done, "done",
     R"(<circle r="7" fill="#00785a"/><path d="M-3.5 0.3 L-1 3 L3.7 -2.7" fill="none" stroke="#fff" stroke-width="2"/>)"},
    {Outcome::Failed, "failed",
     R"(<rect x="-6.5" y="-6.5" width="13" height="13" fill="#c23b00"/><path d="M-3.5 -3.5 L3.5 3.5 M3.5 -3.5 L-3.5 3.5" stroke="#fff" stroke-width="2"/>)"},
    {Outcome::Redirected, "redirected",
     R"(<path d="M0 -7 L7 0 L0 7 L-7 0 Z" fill="#a3457f"/><path d="M-3 0 H3 M0.5 -2.7 L3.2 0 L0.5 2.7" fill="none" stroke="#fff" stroke-width="1.5"/>)"},
    {Outcome::Stopped, "stopped",
     R"(<path d="M-3 -7 H3 L7 -3 V3 L3 7 H-3 L-7 3 V-3 Z" fill="#444"/><rect x="-2.7" y="-2.7" width="5.4" height="5.4" fill="#fff"/>)"},
    {Outcome::Refused, "refused",
     R"(<circle r="6" fill="#fff" stroke="#c23b00" stroke-width="2"/><path d="M-4.2 4.2 L4.2 -4.2" stroke="#c23b00" stroke-width="2"/>)"},
    {Outcome::NoEnd, "no end in the log",
     R"(<path d="M-4 -6 L4 0 L-4 6" fill="none" stroke="#222" stroke-width="2"/>)"},
};

const PhaseLook& lookOf(Phase kind) {
  return *std::find_if(std::begin(kPhases), std::end(kPhases),
                       [kind](const PhaseLook& look) { return look.kind == kind; });
}

const OutcomeLook& lookOf(Outcome outcome) {
  return *std::find_if(std::begin(kOutcomes), std::end(kOutcomes),
                       [outcome](const OutcomeLook& look) { return look.outcome == outcome; });
}

__attribute__((format(printf, 1, 2))) std::string formatted(const char* format, ...) {
  std::array<char, 512> text{};
  va_list values;
  va_start(values, format);
  // The checker does not know va_start of this compiler.
  std::vsnprintf(text.data(), text.size(), format, values);  // NOLINT(clang-analyzer-valist.Uninitialized)
  va_end(values);
  return text.data();
}

std::string rectangle(double left, double right, double middle, double height, const char* attributes) {
  return formatted(R"(<rect x="%.1f" y="%.1f" width="%.1f" height="%.1f" %s)", left, middle - height / 2,
                   right - left, height, attributes);
}

std::string sign(TraceMark::Kind kind, double x, double y, double size) {
  if (kind == TraceMark::Kind::Redirect) {
    return formatted(R"(<path d="M%.1f %.1f l%.1f %.1f l%.1f %.1f Z" fill="#a3457f" stroke="#222"/>)",
                     x - size / 2, y - size, size * 1.5, size, -size * 1.5, size);
  }
  return formatted(
      R"(<path d="M%.1f %.1f l%.1f %.1f l%.1f %.1f l%.1f %.1f Z" fill="#e69f00" stroke="#222"/>)", x,
      y - size, size, size, -size, size, -size, -size);
}

std::string mark(Outcome outcome, double x, double y, double scale) {
  return formatted(R"svg(<g transform="translate(%.1f %.1f) scale(%.2f)">)svg", x, y, scale) +
         lookOf(outcome).shape + "</g>\n";
}

std::string tooltip(const TraceRequest& request) {
  std::string text = "#" + std::to_string(request.number) + " " + request.target + "\n" +
                     outcomeText(request) + "\n" + duration(request.end - request.start) + " from " +
                     dayAndTime(request.start, request.offsetMinutes) + ", process " +
                     std::to_string(request.process);
  for (const TracePhase& phase : request.phases) {
    text += "\n" + std::string(lookOf(phase.kind).name) + ": " + duration(phase.to - phase.from);
  }
  if (!request.isStartKnown) {
    text += "\nits start is not in this log";
  }
  return text;
}

}  // namespace

TraceSvg::TraceSvg(const std::vector<TraceRequest>& requests, std::uint64_t notDrawn)
    : requests_(requests), notDrawn_(notDrawn), begin_(requests.front().start), end_(begin_) {
  for (const TraceRequest& request : requests) {
    hasSeveralProcesses_ = hasSeveralProcesses_ || request.process != requests.front().process;
    begin_ = std::min(begin_, request.start);
    end_ = std::max({end_, request.end, request.phases.empty() ? request.end : request.phases.back().to});
  }
  end_ = std::max(end_, begin_ + 1000);
  const bool isRoomy = requests.size() <= 15;
  const bool isDense = requests.size() > 60;
  rowHeight_ = isRoomy ? 30 : isDense ? 13 : 20;
  fontSize_ = isRoomy ? 13 : isDense ? 10 : 12;
}

std::string TraceSvg::draw() {
  svg_.clear();
  drawHead();
  drawLegend();
  for (std::size_t index = 0; index < requests_.size(); ++index) {
    drawRow(index);
  }
  drawAxis();
  svg_ += "</svg>\n";
  return std::move(svg_);
}

double TraceSvg::height() const {
  return kTop + rowHeight_ * static_cast<double>(requests_.size()) + kBottom;
}

double TraceSvg::x(std::int64_t time) const {
  const double share =
      static_cast<double>(std::clamp(time, begin_, end_) - begin_) / static_cast<double>(end_ - begin_);
  return kChartLeft + share * (kChartRight - kChartLeft);
}

std::string TraceSvg::clip(const char* name, double left, double right) const {
  return formatted(R"(<clipPath id="%s"><rect x="%.0f" width="%.0f" height="%.0f"/></clipPath>)", name, left,
                   right - left, height());
}

// A request without an end goes on to the picture's end.
std::int64_t TraceSvg::endOf(const TraceRequest& request) const {
  return request.outcome == Outcome::NoEnd ? end_ : request.end;
}

void TraceSvg::drawHead() {
  const TraceRequest& first =
      *std::min_element(requests_.begin(), requests_.end(),
                        [](const TraceRequest& a, const TraceRequest& b) { return a.start < b.start; });
  const std::string title = counted(requests_.size(), "request") + " in " + duration(end_ - begin_);
  svg_ += formatted(
      R"(<svg xmlns="http://www.w3.org/2000/svg" width="%.0f" height="%.0f" viewBox="0 0 %.0f %.0f" role="img" )"
      R"(font-family="DejaVu Sans, Verdana, sans-serif" font-size="%.0f" fill="#222">)",
      kWidth, height(), kWidth, height(), fontSize_);
  svg_ += "\n<title>" + title + "</title>\n<defs>";
  svg_ +=
      R"svg(<pattern id="hatch" width="6" height="6" patternUnits="userSpaceOnUse" patternTransform="rotate(45)">)svg"
      R"(<rect width="6" height="6" fill="#e69f00"/><rect width="2" height="6" fill="#fff3d6"/></pattern>)";
  svg_ += clip("names", 0, kChartLeft - 12) + clip("outcomes", kOutcomeLeft, kWidth) + "</defs>";
  svg_ += formatted("\n<rect width=\"%.0f\" height=\"%.0f\" fill=\"#fff\"/>\n", kWidth, height());
  text(kMargin, 28, R"(font-size="18" font-weight="bold")", title);
  std::string subtitle = "from " + dayAndTime(first.start, first.offsetMinutes);
  if (notDrawn_ > 0) {
    subtitle += "; " + counted(notDrawn_, "request") + " more in the log, not drawn";
  }
  text(kMargin, 47, R"(font-size="12" fill="#555")", subtitle);
}

void TraceSvg::drawLegend() {
  constexpr double kPhaseLine = 70;
  constexpr double kOutcomeLine = 92;
  double x = kMargin;
  for (const PhaseLook& look : kPhases) {
    x = drawPhaseKey(x, kPhaseLine, look.kind, look.explanation);
  }
  x = drawSignKey(x, kPhaseLine, TraceMark::Kind::Challenge, "a challenge");
  drawSignKey(x, kPhaseLine, TraceMark::Kind::Redirect, "a redirect");
  x = kMargin;
  for (const OutcomeLook& look : kOutcomes) {
    const auto count = std::count_if(requests_.begin(), requests_.end(), [&](const TraceRequest& request) {
      return request.outcome == look.outcome;
    });
    x = drawOutcomeKey(x, kOutcomeLine, look.outcome, std::to_string(count) + " " + look.name);
  }
}

// All three return where the next key begins.
double TraceSvg::drawPhaseKey(double x, double y, Phase kind, std::string_view name) {
  constexpr double kBar = 26;
  constexpr double kTextHeight = 16;
  const PhaseLook& look = lookOf(kind);
  svg_ += rectangle(x, x + kBar, y, kTextHeight * look.share, "fill=\"") + look.fill + "\"/>\n";
  text(x + kBar + 6, y + 4, R"(font-size="12")", name);
  return x + kBar + 22 + 6.9 * static_cast<double>(name.size());
}

double TraceSvg::drawSignKey(double x, double y, TraceMark::Kind kind, std::string_view name) {
  svg_ += sign(kind, x + 6, y, 5) + "\n";
  text(x + 17, y + 4, R"(font-size="12")", name);
  return x + 33 + 6.9 * static_cast<double>(name.size());
}

double TraceSvg::drawOutcomeKey(double x, double y, Outcome outcome, std::string_view name) {
  svg_ += mark(outcome, x + 7, y, 1);
  text(x + 20, y + 4, R"(font-size="12")", name);
  return x + 40 + 6.9 * static_cast<double>(name.size());
}

void TraceSvg::drawAxis() {
  const double bottom = height() - kBottom;
  const std::int64_t step = tickStep(end_ - begin_);
  for (std::int64_t time = 0; time <= end_ - begin_; time += step) {
    const double at = x(begin_ + time);
    svg_ += formatted(R"(<path d="M%.1f %.1f V%.1f" stroke="#00000022"/>)", at, kTop - 4, bottom + 4) + "\n";
    const std::string label = tickLabel(time);
    text(at, kTop - 10, R"(font-size="11" text-anchor="middle" fill="#555")", label);
    text(at, bottom + 18, R"(font-size="11" text-anchor="middle" fill="#555")", label);
  }
}

void TraceSvg::drawRow(std::size_t index) {
  const TraceRequest& request = requests_[index];
  const double top = kTop + rowHeight_ * static_cast<double>(index);
  const double middle = top + rowHeight_ / 2;
  svg_ += "<g><title>" + xmlEscaped(tooltip(request)) + "</title>\n";
  // Also what the pointer meets where nothing is drawn.
  svg_ += rectangle(0, kWidth, middle, rowHeight_, "fill=\"") + (index % 2 == 0 ? "#f4f6f8" : "#ffffff") +
          "\"/>\n";
  for (const TracePhase& phase : request.phases) {
    drawPhase(request, phase, middle);
  }
  for (const TraceMark& mark : request.marks) {
    svg_ += sign(mark.kind, x(mark.time), middle, rowHeight_ * 0.16 + 1) + "\n";
  }
  svg_ += mark(request.outcome, x(endOf(request)) + 9, middle, std::min(1.0, (rowHeight_ - 2) / 15));
  drawLabels(request, middle);
  svg_ += "</g>\n";
}

void TraceSvg::drawPhase(const TraceRequest& request, const TracePhase& phase, double middle) {
  const PhaseLook& look = lookOf(phase.kind);
  const bool isOpen = request.outcome == Outcome::NoEnd && &phase == &request.phases.back();
  const double left = x(phase.from);
  const double right = std::max(x(isOpen ? end_ : phase.to), left + kNarrowest);
  svg_ += rectangle(left, right, middle, rowHeight_ * look.share, "fill=\"") + look.fill + "\"/>\n";
}

void TraceSvg::drawLabels(const TraceRequest& request, double middle) {
  const double baseline = middle + fontSize_ * 0.36;
  std::string name = "#" + std::to_string(request.number) + "  ";
  if (hasSeveralProcesses_) {
    name += "process " + std::to_string(request.process) + "  ";
  }
  name += request.target.empty() ? "(URL not in the log)" : request.target;
  text(kMargin, baseline, R"svg(clip-path="url(#names)")svg", name);
  text(kDurationRight, baseline, R"(text-anchor="end")", duration(request.end - request.start));
  text(kOutcomeLeft, baseline, R"svg(clip-path="url(#outcomes)")svg", outcomeText(request));
}

void TraceSvg::text(double x, double y, std::string_view attributes, std::string_view content) {
  svg_ += formatted(R"(<text x="%.1f" y="%.1f" )", x, y) + std::string(attributes) + ">" +
          xmlEscaped(content) + "</text>\n";
}

std::int64_t tickStep(std::int64_t span) {
  constexpr std::int64_t kMostTicks = 10;
  constexpr std::int64_t kSecond = 1'000'000;
  for (std::int64_t decade = 100; decade <= kSecond; decade *= 10) {
    for (const std::int64_t step : {decade, 2 * decade, 5 * decade}) {
      if (span / step <= kMostTicks) {
        return step;
      }
    }
  }
  for (const std::int64_t seconds : {10, 30, 60, 120, 300, 600, 1800, 3600, 7200, 21'600, 43'200}) {
    if (span / (seconds * kSecond) <= kMostTicks) {
      return seconds * kSecond;
    }
  }
  constexpr std::int64_t kDay = 86'400 * kSecond;
  return kDay * (1 + span / kDay / kMostTicks);
}

std::string tickLabel(std::int64_t time) {
  struct Unit {
    std::int64_t length;
    const char* name;
  };
  constexpr Unit kUnits[] = {{3'600'000'000, "h"}, {60'000'000, "min"}, {1'000'000, "s"}, {1000, "ms"}};
  for (const Unit& unit : kUnits) {
    if (time >= unit.length || unit.length == 1000) {
      return formatted("%.10g %s", static_cast<double>(time) / static_cast<double>(unit.length), unit.name);
    }
  }
  return {};
}

std::string xmlEscaped(std::string_view text) {
  std::string result;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const char c = text[at];
    const std::string_view three = text.substr(at, 3);
    if (three == "\xEF\xBF\xBE" || three == "\xEF\xBF\xBF") {
      result += three.back() == '\xBE' ? "\\ufffe" : "\\uffff";
      at += 2;
    } else if (c == '&') {
      result += "&amp;";
    } else if (c == '<') {
      result += "&lt;";
    } else if (c == '>') {
      result += "&gt;";
    } else if (c == '"') {
      result += "&quot;";
    } else if (c == '\'') {
      result += "&apos;";
    } else {
      result += c;
    }
  }
  return result;
}

}  // namespace httppool
