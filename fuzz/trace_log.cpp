// Trace logs as `httppool trace` reads them: of the library, of other programs, torn or forged. Every record belongs
// to a request or is counted; what is shown is fit for a terminal, and the picture is an XML document.

#include <glib.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/Input.h"
#include "fuzz/Require.h"
#include "tools/httppool/TerminalText.h"
#include "tools/httppool/TraceLog.h"
#include "tools/httppool/TraceOrder.h"
#include "tools/httppool/TraceRoad.h"
#include "tools/httppool/TraceSvg.h"
#include "tools/httppool/TraceText.h"

namespace {

using httppool::TraceLog;
using httppool::TraceOrder;
using httppool::TraceRecord;
using httppool::TraceRequest;
using httppool::TraceRoad;
using httppool::TraceText;

/// What is written to the stream.
class Written {
 public:
  Written() : stream_(open_memstream(&bytes_, &size_)) {}
  ~Written() {
    std::fclose(stream_);
    std::free(bytes_);
  }
  Written(const Written&) = delete;
  Written& operator=(const Written&) = delete;

  std::FILE* stream() const { return stream_; }
  std::string_view text() const {
    std::fflush(stream_);
    return {bytes_, size_};
  }

 private:
  char* bytes_ = nullptr;
  std::size_t size_ = 0;
  std::FILE* stream_;
};

void checkRequest(const TraceRequest& request) {
  require(request.number > 0);
  require(request.steps.size() <= TraceRequest::kMostSteps + 16);
  require(request.phases.size() <= TraceRequest::kMostPhases);
  require(request.marks.size() <= TraceRequest::kMostPhases);
}

/// No control characters, no half characters.
void checkShown(std::string_view text) {
  require(httppool::isUtf8(text));
  require(httppool::escaped(text, httppool::Lines::Keep) == text);
  for (const char c : text) {
    require(static_cast<unsigned char>(c) >= ' ' || c == '\n');
    require(c != '\x7F');
  }
}

void checkPicture(const std::vector<TraceRequest>& requests) {
  if (requests.empty()) {
    return;
  }
  const std::string picture = httppool::TraceSvg(requests, 1).draw();
  const GMarkupParser parser = {};
  GMarkupParseContext* const context =
      g_markup_parse_context_new(&parser, static_cast<GMarkupParseFlags>(0), nullptr, nullptr);
  const bool isDocument =
      g_markup_parse_context_parse(context, picture.data(), static_cast<gssize>(picture.size()), nullptr) !=
          FALSE &&
      g_markup_parse_context_end_parse(context, nullptr) != FALSE;
  g_markup_parse_context_free(context);
  require(isDocument);
  require(picture.find("<script") == std::string::npos);
}

/// Lines that are not empty, and whether the last one has no end.
struct Lines {
  std::uint64_t whole = 0;
  bool isTorn = false;

  explicit Lines(std::string_view text) {
    const auto lines = linesOf(text);
    isTorn = !lines.back().empty();
    for (const std::string_view line : lines) {
      whole += line.empty() ? 0 : 1;
    }
    whole -= isTorn ? 1 : 0;
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string text(textOf(data, size));
  const Written written;
  TraceText shown(written.stream());
  std::vector<TraceRequest> requests;
  std::uint64_t passedOn = 0;
  TraceOrder order([&](TraceRequest&& request) {
    checkRequest(request);
    shown.showRequest(request);
    requests.push_back(std::move(request));
  });
  TraceRoad road([&](TraceRequest&& request) { order.add(std::move(request)); });
  TraceLog log([&](const TraceRecord& record) {
    require(record.text.size() <= record.length && record.text.size() <= TraceLog::kLongestLine);
    ++passedOn;
    road.take(record);
  });
  if (!text.empty()) {
    const std::unique_ptr<std::FILE, decltype(&std::fclose)> file(fmemopen(text.data(), text.size(), "r"),
                                                                  &std::fclose);
    require(log.read(file.get()));
  }
  log.finish();
  road.finish();
  order.finish();
  shown.showRest(log, road);

  const Lines lines(text);
  require(log.records() + log.foreignLines() == lines.whole);
  require(log.tornLines() == (lines.isTorn ? 1 : 0));
  require(passedOn <= log.records());
  require(requests.size() == road.requests());
  checkShown(written.text());
  checkPicture(requests);
  return 0;
}
