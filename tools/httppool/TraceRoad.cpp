#include "TraceRoad.h"

#include <algorithm>

#include "TerminalText.h"
#include "TraceDownloaderLines.h"
#include "TraceWords.h"

namespace httppool {
namespace {

using Kind = TraceLine::Kind;

constexpr std::size_t kMostFrames = 64;
constexpr std::size_t kMostThreads = 2 * TraceOpenRequests::kMost;
constexpr std::size_t kMostEarly = 1000;
constexpr std::size_t kMostEarlyLines = 64;
// A request that is known by its thread alone has lines behind its final state, but soon.
constexpr std::size_t kMostSettled = 64;

constexpr const char* kDownloaderThread = "zep.downloader";
constexpr const char* kExportedPrefix = "ZEP_HttpPool_";
constexpr std::size_t kLongestFunction = 64;

// Other names would be no function's, and there could be any number of them.
bool isExportedFunction(std::string_view name) {
  const auto isOfAName = [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_'; };
  return name.starts_with(kExportedPrefix) && name.size() <= kLongestFunction &&
         std::all_of(name.begin(), name.end(), isOfAName);
}

bool isWarning(const TraceRecord& record) {
  return record.level == 'W' || record.level == 'E';
}

std::size_t resultLength(const TraceRecord& record) {
  constexpr std::string_view kResponse = ", Response: ";
  const std::size_t at = record.text.find(kResponse);
  return record.length - (at == record.text.npos ? 0 : at + kResponse.size());
}

}  // namespace

TraceRoad::TraceRoad(Sink sink)
    : sink_(std::move(sink)), open_([this](TraceRequest&& request) { passClosed(std::move(request)); }) {
}

void TraceRoad::take(const TraceRecord& record) {
  const TraceLine line = readTraceLine(record.text);
  boundThreads();
  Thread& thread = threads_[record.thread];
  if (line.kind == Kind::ThreadStart) {
    startThread(thread, line, record);
  } else if (thread.served != 0 || thread.serving != 0 || isDownloaderLine(line.kind)) {
    takeDownloaderLine(thread, line, record);
  } else {
    takeHostLine(thread, line, record);
  }
}

void TraceRoad::finish() {
  while (!early_.empty()) {
    replay(early_.begin()->first, 0);
  }
  for (auto& [key, thread] : threads_) {
    endTelling(thread);
    for (; !thread.frames.empty(); thread.frames.pop_back()) {
      if (!thread.frames.back().isAttributed) {
        takeOtherCall(thread.frames.back().name, 1);
      }
    }
  }
  open_.closeAll();
  threads_.clear();
}

// --- The host's thread. ---

void TraceRoad::takeHostLine(Thread& thread, const TraceLine& line, const TraceRecord& record) {
  switch (line.kind) {
    case Kind::Entry:
      return enterFunction(thread, line, record);
    case Kind::Exit:
      return leaveFunction(thread, line, record);
    case Kind::Launch:
      return launch(thread, line, record);
    case Kind::Refusal:
      return refuse(thread, line, record);
    case Kind::Call:
      return identify(thread, line, record);
    case Kind::StopIdentity:
      return beginStop(thread, line, record);
    case Kind::Stop:
      return stop(thread, line, record);
    case Kind::Retry:
    case Kind::RetriesEnded:
    case Kind::EngineState:
    case Kind::CallState:
    case Kind::TaskNotified:
    case Kind::Result:
      return passOn(thread, line, record);
    case Kind::Release:
      endTelling(thread);
      ++others_.lines;
      ++others_.releases;
      return;
    default:
      endTelling(thread);
      return takeOther(record);
  }
}

void TraceRoad::enterFunction(Thread& thread, const TraceLine& line, const TraceRecord& record) {
  endTelling(thread);
  if (!isExportedFunction(line.name) || thread.frames.size() >= kMostFrames) {
    return takeOther(record);
  }
  thread.frames.push_back({std::string(line.name), record.time});
}

void TraceRoad::leaveFunction(Thread& thread, const TraceLine& line, const TraceRecord& record) {
  endTelling(thread);
  auto& frames = thread.frames;
  const bool isOpen =
      std::any_of(frames.begin(), frames.end(), [&](const Frame& frame) { return frame.name == line.name; });
  if (!isOpen) {
    return isExportedFunction(line.name) ? takeOtherCall(std::string(line.name), 1) : takeOther(record);
  }
  // Those above it have lost their ends.
  for (bool isDone = false; !isDone;) {
    const Frame frame = std::move(frames.back());
    frames.pop_back();
    isDone = frame.name == line.name;
    leave(frame, thread, record.time);
  }
}

void TraceRoad::leave(const Frame& frame, Thread& thread, std::int64_t time) {
  if (!frame.isAttributed) {
    takeOtherCall(frame.name, 2);
  }
  if (frame.launched == 0) {
    return;
  }
  thread.launching = 0;
  if (Open* launched = open_.find(frame.launched)) {
    launched->request.addStep(TraceStep::Where::Host, time, frame.name + " returns");
    if (launched->request.isRefused) {
      launched->request.end = time;
      open_.close(frame.launched);
    }
  }
}

void TraceRoad::launch(Thread& thread, const TraceLine& line, const TraceRecord& record) {
  endTelling(thread);
  Open& launched = open_.add(record);
  TraceRequest& request = launched.request;
  request.hostThread = record.thread.thread;
  request.isStartKnown = true;
  request.target = targetOf(line.name);
  request.isPlain = line.name.starts_with("http://");
  thread.launching = request.number;
  if (!thread.frames.empty()) {
    Frame& frame = thread.frames.back();
    frame.launched = request.number;
    frame.isAttributed = true;
    request.start = frame.time;
    request.addStep(TraceStep::Where::Host, frame.time, frame.name + " is called");
  }
  request.enter(TracePhase::Kind::Started, request.start);
  if (line.kind == Kind::Launch) {
    request.addStep(TraceStep::Where::Host, record.time, "the downloader's thread is started");
  }
}

void TraceRoad::refuse(Thread& thread, const TraceLine& line, const TraceRecord& record) {
  if (const Open* launching = open_.find(thread.launching); launching && launching->request.isRefused) {
    return;  // a refusal is traced twice
  }
  launch(thread, line, record);
  open_.find(thread.launching)->request.isRefused = true;
  hostStep(thread.launching, record, line.name.empty() ? "refused: no URL" : "refused: not a URL");
}

// The call and the downloader of what has just been launched.
void TraceRoad::identify(Thread& thread, const TraceLine& line, const TraceRecord& record) {
  endTelling(thread);
  const Number launching = std::exchange(thread.launching, 0);
  // The log may begin in between.
  const Number number = open_.find(launching) ? launching : open_.add(record).request.number;
  open_.identify(number, line.downloader);
  open_.setSession(number, line.session);
  replay({record.thread.process, line.downloader}, number);
}

void TraceRoad::beginStop(Thread& thread, const TraceLine& line, const TraceRecord& record) {
  endTelling(thread);
  replay({record.thread.process, line.downloader}, 0);  // when the log begins behind its launch
  thread.told = open_.ofDownloader(record.thread.process, line.downloader);
  if (thread.told == 0) {
    takeOther(record);
  }
}

void TraceRoad::stop(Thread& thread, const TraceLine& line, const TraceRecord& record) {
  Open* stopped = open_.find(thread.told);
  if (!stopped || stopped->request.stopped) {
    endTelling(thread);
    return takeOther(record);
  }
  TraceRequest& request = stopped->request;
  request.stopped = record.time;
  request.hostThread = record.thread.thread;
  if (request.target.empty()) {
    request.target = targetOf(line.name);
  }
  std::string text = "the downloader is stopped, its state is " + stateWord(line.number);
  if (!thread.frames.empty()) {
    thread.frames.back().isAttributed = true;
    request.stoppedBy = thread.frames.back().name;
    text = request.stoppedBy + ": " + text;
  }
  hostStep(request.number, record, std::move(text));
}

// A change of state on its way from the engine to the task.
void TraceRoad::passOn(Thread& thread, const TraceLine& line, const TraceRecord& record) {
  if (line.kind == Kind::EngineState) {
    // Without a session: it belongs to what was stopped just before, or to the line that follows.
    if (thread.hasEngineLine) {
      endTelling(thread);
    }
    thread.hasEngineLine = true;
    return;
  }
  if (line.kind == Kind::CallState) {
    findTold(thread, line, record.thread.process);
  }
  if (Open* told = open_.find(thread.told)) {
    return tell(*told, line, record);
  }
  if (line.kind == Kind::Retry || line.kind == Kind::RetriesEnded) {
    return takeOther(record);
  }
  ++others_.lines;
  ++others_.states;
}

// A call may be run again while it runs; its session does not tell its requests apart then.
void TraceRoad::findTold(Thread& thread, const TraceLine& line, std::uint32_t process) {
  const Open* told = open_.find(thread.told);
  if (told && (told->request.session == line.session || told->request.session == 0)) {
    return;
  }
  const bool hasEngineLine = std::exchange(thread.hasEngineLine, false);
  endTelling(thread);
  thread.told = open_.onlyOneOfSession(process, line.session);
  thread.hasEngineLine = hasEngineLine;
}

void TraceRoad::tell(Open& told, const TraceLine& line, const TraceRecord& record) {
  const Number number = told.request.number;
  if (line.kind == Kind::CallState) {
    told.request.toldState = line.number;
    hostStep(number, record, "the task is told: " + stateWord(line.number));
  } else if (line.kind == Kind::Result) {
    hostStep(number, record, "the task takes the result: " + counted(resultLength(record), "byte"));
  } else if (line.kind == Kind::Retry) {
    hostStep(number, record, "it is tried again");
  }
}

// What follows on this thread has nothing to do with what was told last; if that was stopped it is over.
void TraceRoad::endTelling(Thread& thread) {
  const Number number = std::exchange(thread.told, 0);
  if (std::exchange(thread.hasEngineLine, false) && number == 0) {
    ++others_.lines;
    ++others_.states;
  }
  const Open* told = open_.find(number);
  if (told && told->request.stopped) {
    open_.close(number);
  }
}

void TraceRoad::takeOther(const TraceRecord& record) {
  ++others_.lines;
  if (isWarning(record) && others_.messages.size() < TraceOthers::kMostMessages) {
    others_.messages.push_back({record.time, record.offsetMinutes, record.level, oneLine(record.text)});
  } else if (isWarning(record)) {
    ++others_.messagesNotKept;
  } else {
    ++others_.texts;
  }
}

void TraceRoad::takeOtherCall(const std::string& name, std::uint64_t lines) {
  others_.lines += lines;
  ++others_.calls[name];
}

// --- A downloader's thread. ---

void TraceRoad::startThread(Thread& thread, const TraceLine& line, const TraceRecord& record) {
  thread = {};
  const Number number = open_.ofDownloader(record.thread.process, line.downloader);
  Open* launched = open_.find(number);
  if (launched && launched->request.downloaderThread == 0) {
    bind(number, record.thread);
    applyDownloaderLine(launched->request, line, record);
    return;
  }
  const Identity identity{record.thread.process, line.downloader};
  thread.serving = line.downloader;
  early_[identity] = {record.thread, {}};
  keepEarly(identity, record);
}

void TraceRoad::bind(Number number, const TraceThread& thread) {
  threads_[thread].served = number;
  threads_[thread].serving = 0;
  open_.find(number)->request.downloaderThread = thread.thread;
}

void TraceRoad::takeDownloaderLine(Thread& thread, const TraceLine& line, const TraceRecord& record) {
  if (thread.serving != 0) {
    return keepEarly({record.thread.process, thread.serving}, record);
  }
  Open* served = open_.find(thread.served);
  if (!served && open_.find(thread.launching)) {
    served = open_.find(thread.launching);  // it was given no thread, and fails at once
  }
  const bool isOver =
      served && !served->isIdentified && served->request.finalState && !isTrailingLine(line.kind);
  if ((!served || isOver) && record.threadName == kDownloaderThread) {
    served = &open_.add(record);
    served->request.enter(TracePhase::Kind::Started, record.time);
    bind(served->request.number, record.thread);
  }
  if (!served) {
    return takeOther(record);
  }
  const bool wasFinal = served->request.finalState.has_value();
  applyDownloaderLine(served->request, line, record);
  if (!served->isIdentified && !wasFinal && served->request.finalState) {
    settled_.push_back(served->request.number);
    if (settled_.size() > kMostSettled) {
      open_.close(settled_.front());
    }
  }
}

void TraceRoad::keepEarly(const Identity& identity, const TraceRecord& record) {
  Early& early = early_[identity];
  early.records.push_back(record);
  if (early.records.size() > kMostEarlyLines) {
    replay(identity, 0);
  } else if (early_.size() > kMostEarly) {
    replay(early_.begin()->first, 0);
  }
}

// Gives what a thread has traced before its launch to the launch, or without one (0) to a request of its own.
void TraceRoad::replay(Identity identity, Number number) {
  const auto found = early_.find(identity);
  if (found == early_.end()) {
    return;
  }
  const Early early = std::move(found->second);
  early_.erase(found);
  if (number == 0) {
    TraceRequest& opened = open_.add(early.records.front()).request;
    number = opened.number;
    opened.enter(TracePhase::Kind::Started, opened.start);
    open_.identify(number, identity.second);
  }
  TraceRequest& request = open_.find(number)->request;
  for (const TraceRecord& record : early.records) {
    applyDownloaderLine(request, readTraceLine(record.text), record);
  }
  request.downloaderThread = early.thread.thread;
  // The thread may serve another downloader by now, when its end is not in the log.
  Thread& thread = threads_[early.thread];
  if (thread.serving == identity.second) {
    bind(number, early.thread);
  }
}

// --- Requests. ---

void TraceRoad::hostStep(Number number, const TraceRecord& record, std::string text) {
  TraceRequest& request = open_.find(number)->request;
  if (!request.finalState) {
    request.end = record.time;
  }
  request.addStep(TraceStep::Where::Host, record.time, std::move(text), TraceRequest::Keep::Always);
}

void TraceRoad::passClosed(TraceRequest&& request) {
  const auto thread = threads_.find({request.process, request.downloaderThread});
  if (thread != threads_.end() && thread->second.served == request.number) {
    thread->second.served = 0;
  }
  std::erase(settled_, request.number);
  sink_(std::move(request));
}

void TraceRoad::boundThreads() {
  if (threads_.size() < kMostThreads) {
    return;
  }
  std::erase_if(threads_, [](const auto& entry) {
    const Thread& thread = entry.second;
    return thread.served == 0 && thread.serving == 0 && thread.told == 0 && thread.frames.empty();
  });
  if (threads_.size() >= kMostThreads) {
    std::erase_if(threads_, [](const auto& entry) { return entry.second.served == 0; });
  }
}

}  // namespace httppool
