#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "WrittenLog.h"
#include "tools/httppool/TraceSvg.h"

namespace httppool {
namespace {

using testing::HasSubstr;
using testing::Not;
using Outcome = TraceRequest::Outcome;

// What a picture is made of, read by GLib's parser.
struct Picture {
  std::vector<std::string> texts;  // that are shown
  std::vector<std::string> tooltips;
  std::map<std::string, int> elements;
  std::vector<std::string> references;  // attributes that could lead elsewhere
  std::string error;                    // not well-formed
};

void startElement(GMarkupParseContext*, const gchar* name, const gchar** names, const gchar** values,
                  gpointer data, GError**) {
  auto* picture = static_cast<Picture*>(data);
  ++picture->elements[name];
  for (; *names != nullptr; ++names, ++values) {
    if (std::string(*names).find("href") != std::string::npos || std::string(*names).starts_with("on")) {
      picture->references.push_back(std::string(*names) + "=" + *values);
    }
  }
}

void takeText(GMarkupParseContext* context, const gchar* text, gsize size, gpointer data, GError**) {
  auto* picture = static_cast<Picture*>(data);
  const std::string element = g_markup_parse_context_get_element(context);
  if (element == "text") {
    picture->texts.emplace_back(text, size);
  } else if (element == "title") {
    picture->tooltips.emplace_back(text, size);
  }
}

Picture parsed(const std::string& svg) {
  Picture picture;
  const GMarkupParser parser{&startElement, nullptr, &takeText, nullptr, nullptr};
  GMarkupParseContext* context = g_markup_parse_context_new(&parser, GMarkupParseFlags{}, &picture, nullptr);
  GError* error = nullptr;
  if (g_markup_parse_context_parse(context, svg.data(), static_cast<gssize>(svg.size()), &error) == FALSE ||
      g_markup_parse_context_end_parse(context, &error) == FALSE) {
    picture.error = error->message;
    g_error_free(error);
  }
  g_markup_parse_context_free(context);
  return picture;
}

std::vector<TraceRequest> requestsOf(const WrittenLog& log) {
  return readLog(log).requests;
}

TraceRequest ended(Outcome outcome, std::uint64_t number) {
  TraceRequest request;
  request.number = number;
  request.target = "host/" + std::to_string(number);
  request.start = static_cast<std::int64_t>(number) * 1000;
  request.end = request.start + 500;
  request.outcome = outcome;
  return request;
}

TEST(TraceSvgTest, HasARowAndATooltipForEachRequest) {
  WrittenLog log;
  log.launch(0, 1, "http://host/one").launch(10, 2, "http://host/two");
  log.line(40, downloader(202), "-[MacDownloader connection:didReceiveResponse:], m_statusCode:200", 'I');
  log.line(50, downloader(202), "-[MacDownloader SetDownloadState:], state:7", 'I');
  log.end(90, 2, "http://host/two", 0).end(100, 1, "http://host/one", 1);
  const auto requests = requestsOf(log);
  const Picture picture = parsed(TraceSvg(requests, 0).draw());
  EXPECT_EQ(picture.error, "");
  EXPECT_THAT(picture.texts, testing::IsSupersetOf({"2 requests in 100.1 ms", "#1  host/one", "#2  host/two",
                                                    "done, HTTP 200", "failed", "80.0 ms", "100.0 ms"}));
  ASSERT_EQ(picture.tooltips.size(), 3U) << "the picture's and one for each row";
  EXPECT_THAT(picture.tooltips[1],
              testing::AllOf(HasSubstr("#2 host/two"), HasSubstr("started: 30.0 ms"),
                             HasSubstr("response: 10.0 ms"), HasSubstr("receiving: 40.0 ms")));
}

TEST(TraceSvgTest, EveryOutcomeHasAShapeAndAWordOfItsOwn) {
  const std::vector<std::pair<Outcome, std::string>> outcomes = {
      {Outcome::Done, "done"},       {Outcome::Failed, "failed"},   {Outcome::Redirected, "redirected"},
      {Outcome::Stopped, "stopped"}, {Outcome::Refused, "refused"}, {Outcome::NoEnd, "no end in this log"}};
  std::map<std::string, std::string> markOf;
  for (const auto& [outcome, word] : outcomes) {
    const std::vector<TraceRequest> requests{ended(outcome, 1)};
    const std::string svg = TraceSvg(requests, 0).draw();
    EXPECT_THAT(parsed(svg).texts, testing::Contains(word));
    // The row's mark is the last shape that is put somewhere.
    const std::size_t begin = svg.find('>', svg.rfind("transform=\"translate")) + 1;
    markOf[svg.substr(begin, svg.find("</g>", begin) - begin)] = word;
  }
  EXPECT_EQ(markOf.size(), outcomes.size());
}

TEST(TraceSvgTest, HostileTextsStayTexts) {
  TraceRequest request = ended(Outcome::Done, 1);
  request.target = "</text><script>alert(1)</script>&amp;\"'\xEF\xBF\xBE\xEF\xBF\xBF";
  const std::vector<TraceRequest> requests{request};
  const Picture picture = parsed(TraceSvg(requests, 0).draw());
  EXPECT_EQ(picture.error, "");
  EXPECT_EQ(picture.elements.count("script"), 0U);
  EXPECT_THAT(picture.texts, testing::Contains("#1  </text><script>alert(1)</script>&amp;\"'\\ufffe\\uffff"));
}

TEST(TraceSvgTest, NeedsNothingFromElsewhere) {
  const std::vector<TraceRequest> requests{ended(Outcome::Done, 1)};
  const std::string svg = TraceSvg(requests, 0).draw();
  EXPECT_THAT(parsed(svg).references, testing::IsEmpty());
  EXPECT_THAT(svg, Not(HasSubstr("@import")));
  std::size_t addresses = 0;
  for (std::size_t at = 0; (at = svg.find("://", at)) != std::string::npos; ++at) {
    ++addresses;
  }
  EXPECT_EQ(addresses, 1U) << "the name of the format, and nothing else";
}

double heightOf(const std::string& svg) {
  const std::string attribute = " height=\"";
  return std::stod(svg.substr(svg.find(attribute) + attribute.size()));
}

TEST(TraceSvgTest, RowsGetDenserAndNoneIsLost) {
  std::vector<TraceRequest> requests;
  double heightOfTen = 0;
  for (std::uint64_t number = 1; number <= 200; ++number) {
    requests.push_back(ended(number % 3 == 0 ? Outcome::Failed : Outcome::Done, number));
    if (number == 10) {
      heightOfTen = heightOf(TraceSvg(requests, 0).draw());
    }
  }
  const std::string svg = TraceSvg(requests, 7).draw();
  const Picture picture = parsed(svg);
  for (const char* text : {"#1  host/1", "#200  host/200", "134 done", "66 failed", "0 refused"}) {
    EXPECT_THAT(picture.texts, testing::Contains(text));
  }
  EXPECT_THAT(picture.texts, testing::Contains(HasSubstr("7 requests more in the log, not drawn")));
  EXPECT_LT(heightOf(svg), 20 * heightOfTen / 2);
}

TEST(TraceSvgTest, SeveralProcessesAreNamed) {
  std::vector<TraceRequest> requests{ended(Outcome::Done, 1), ended(Outcome::Done, 2)};
  requests[0].process = 100;
  requests[1].process = 300;
  EXPECT_THAT(parsed(TraceSvg(requests, 0).draw()).texts, testing::Contains("#2  process 300  host/2"));
}

TEST(TraceSvgTest, TheAxisHasFewRoundSteps) {
  for (std::int64_t span = 1; span < 400'000'000'000'000; span = span * 3 / 2 + 1) {
    const std::int64_t step = tickStep(span);
    EXPECT_LE(span / step, 10) << span;
    EXPECT_TRUE(span < 1000 || span / step >= 2) << span << " " << step;
  }
  EXPECT_EQ(tickStep(2'003'000), 200'000);
  EXPECT_EQ(tickStep(100'000), 10'000);
  EXPECT_EQ(tickStep(7'200'000'000), 1'800'000'000);
}

TEST(TraceSvgTest, TicksAreLabelledInTheirUnit) {
  EXPECT_EQ(tickLabel(0), "0 ms");
  EXPECT_EQ(tickLabel(500), "0.5 ms");
  EXPECT_EQ(tickLabel(200'000), "200 ms");
  EXPECT_EQ(tickLabel(1'500'000), "1.5 s");
  EXPECT_EQ(tickLabel(120'000'000), "2 min");
  EXPECT_EQ(tickLabel(5'400'000'000), "1.5 h");
}

}  // namespace
}  // namespace httppool
