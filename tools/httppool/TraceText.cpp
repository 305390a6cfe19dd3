#include "TraceText.h"

#include "TraceWords.h"

namespace httppool {
namespace {

std::string place(const TraceRequest& request) {
  std::string text =
      dayAndTime(request.start, request.offsetMinutes) + ", process " + std::to_string(request.process);
  if (request.hostThread != 0) {
    text += ", thread " + std::to_string(request.hostThread);
  }
  if (request.downloaderThread != 0) {
    text += ", downloader's thread " + std::to_string(request.downloaderThread);
  }
  return text;
}

}  // namespace

void TraceText::showRequest(const TraceRequest& request) {
  line("#" + std::to_string(request.number) + "  " + outcomeText(request) + "  " +
       duration(request.end - request.start) + "  " +
       (request.target.empty() ? "(its URL is not in this log)" : request.target));
  line("    " + place(request));
  if (!request.isStartKnown) {
    line("    its start is not in this log: times count from its first line");
  }
  line("          ms         gap  thread");
  for (std::size_t index = 0; index < request.steps.size(); ++index) {
    showStep(request, index);
  }
  if (request.stepsNotKept > 0) {
    line("    and " + counted(request.stepsNotKept, "further step"));
  }
  line("");
}

void TraceText::showStep(const TraceRequest& request, std::size_t index) {
  constexpr int kWidth = 12;
  const TraceStep& step = request.steps[index];
  std::string text = aligned(step.time - request.start, kWidth);
  if (index == 0) {
    text += std::string(kWidth, ' ');
  } else {
    // A step that happened again may have done so after this one.
    const TraceStep& before = request.steps[index - 1];
    text += aligned(step.time - (before.last > step.time ? before.time : before.last), kWidth);
  }
  text += step.where == TraceStep::Where::Host ? "  host        " : "  downloader  ";
  text += step.text;
  if (step.times > 1) {
    text += " (" + std::to_string(step.times) + " times, until " + aligned(step.last - request.start) + ")";
  }
  line(text);
}

void TraceText::showRest(const TraceLog& log, const TraceRoad& road) {
  line(counted(road.requests(), "request") + " in " + counted(log.records(), "record") + "; " +
       counted(road.others().lines, "line") + " of no request" + (road.others().lines == 0 ? "" : ":"));
  showOthers(road.others());
  showTroubles(log, road);
}

void TraceText::showOthers(const TraceOthers& others) {
  for (const auto& [name, count] : others.calls) {
    line("  " + counted(count, "call") + " of " + name +
         (name == "ZEP_HttpPool_TaskRun" ? ", which started nothing" : ""));
  }
  if (others.releases > 0) {
    line("  " + counted(others.releases, "release") + " of a downloader, but of which request is not traced");
  }
  if (others.states > 0) {
    line("  " + counted(others.states, "line") +
         " on the state of a call, but of which request is not traced");
  }
  if (others.texts > 0) {
    line("  " + counted(others.texts, "other line"));
  }
  for (const TraceOthers::Message& message : others.messages) {
    line("  " + timeOfDay(message.time, message.offsetMinutes) + " " +
         (message.level == 'E' ? "error: " : "warning: ") + message.text);
  }
  if (others.messagesNotKept > 0) {
    line("  and " +
         counted(others.messagesNotKept, "further warning or error", "further warnings and errors"));
  }
}

void TraceText::showTroubles(const TraceLog& log, const TraceRoad& road) {
  if (log.foreignLines() > 0) {
    line(counted(log.foreignLines(), "line") + " not of the format of a trace");
  }
  if (log.tornLines() > 0) {
    line(counted(log.tornLines(), "last line") + " without an end, not used");
  }
  if (log.stepsBack() > 0) {
    line("the clock was set back " + counted(log.stepsBack(), "time") + ", at most by " +
         duration(log.longestStepBack()) + ": durations across that are wrong");
  }
  if (road.givenUp() > 0) {
    line(counted(road.givenUp(), "request") + " given up: more than " +
         std::to_string(TraceOpenRequests::kMost) + " were open at once");
  }
}

void TraceText::line(const std::string& text) {
  std::fprintf(stream_, "%s\n", text.c_str());
}

}  // namespace httppool
