#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "tools/httppool/TraceOrder.h"

namespace httppool {
namespace {

class TraceOrderTest : public testing::Test {
 protected:
  void add(std::uint64_t number) {
    TraceRequest request;
    request.number = number;
    order.add(std::move(request));
  }

  std::vector<std::uint64_t> passed;
  TraceOrder order{[this](TraceRequest&& request) { passed.push_back(request.number); }};
};

TEST_F(TraceOrderTest, ARequestWaitsForThoseBeforeIt) {
  add(2);
  add(3);
  EXPECT_THAT(passed, testing::IsEmpty());
  add(1);
  EXPECT_THAT(passed, testing::ElementsAre(1, 2, 3));
  add(5);
  order.finish();
  EXPECT_THAT(passed, testing::ElementsAre(1, 2, 3, 5));
}

TEST_F(TraceOrderTest, NoMoreThanABoundWait) {
  for (std::uint64_t number = 2; number < TraceOrder::kMostWaiting + 3; ++number) {
    add(number);
  }
  EXPECT_EQ(passed.size(), TraceOrder::kMostWaiting + 1)
      << "once the first has gone ahead its followers are next";
  add(1);
  EXPECT_EQ(passed.back(), 1U);
}

}  // namespace
}  // namespace httppool
