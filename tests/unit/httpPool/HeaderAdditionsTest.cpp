#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TraceLog.h"
#include "httpPool/NSURLResponse+GetHeaderAdditions.h"

namespace {

using foundation::HeaderFields;
using foundation::URL;
using foundation::URLResponse;
using testing::ElementsAre;
using testing::IsEmpty;

URLResponse responseWith(const char* name, const char* value, const char* url = "http://example.org/path") {
  HeaderFields fields;
  fields.set("Content-Type", "text/plain");
  fields.set(name, value);
  return {URL::parse(url), 200, fields};
}

std::vector<TraceLine> traceOf(const URLResponse& response, std::string_view name) {
  takeTrace();
  printHeadValue(response, name);
  return takeTrace();
}

constexpr const char* kPrefix = "-[NSURLResponse(GetHeaderAdditions) printHeadValue:] trackingID: ";

TEST(HeaderAdditionsTest, FindsTheNameWithoutRegardToCase) {
  EXPECT_THAT(traceOf(responseWith("TrackingId", "id-1"), "trackingID"),
              ElementsAre(TraceLine{2, std::string(kPrefix) + "id-1 from example.org\n"}));
}

TEST(HeaderAdditionsTest, TheTrackingIdIsWhatIsLookedUp) {
  takeTrace();
  traceTrackingId(responseWith("trackingID", "id-2"));
  EXPECT_THAT(takeTrace(), ElementsAre(TraceLine{2, std::string(kPrefix) + "id-2 from example.org\n"}));
}

TEST(HeaderAdditionsTest, TheLabelIsFixed) {
  EXPECT_THAT(traceOf(responseWith("Other", "value"), "other"),
              ElementsAre(TraceLine{2, std::string(kPrefix) + "value from example.org\n"}));
}

TEST(HeaderAdditionsTest, WithoutAHostThereIsABlank) {
  EXPECT_THAT(traceOf(responseWith("trackingID", "id", "path"), "trackingID"),
              ElementsAre(TraceLine{2, std::string(kPrefix) + "id from  \n"}));
}

TEST(HeaderAdditionsTest, NothingToTellIsNotTraced) {
  EXPECT_THAT(traceOf(responseWith("X", "value"), "trackingID"), IsEmpty());
  EXPECT_THAT(traceOf(responseWith("trackingID", ""), "trackingID"), IsEmpty());
  EXPECT_THAT(traceOf(responseWith("trackingID", "id"), ""), IsEmpty());
  EXPECT_THAT(traceOf(URLResponse(URL::parse("file:///a")), "trackingID"), IsEmpty());
}

}  // namespace
