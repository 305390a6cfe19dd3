// The C host of README.md, compiled from there, does what the README says.

#include <gtest/gtest.h>

#include <string>

#include "CannedOrigin.h"
#include "Program.h"

namespace tooltest {
namespace {

TEST(ReadmeHost, PrintsTheResultOfItsTask) {
  CannedOrigin origin({{"/a", answer("200 OK", "hello")}, {"/b", answer("500 Internal Server Error", "no")}});
  const Finished done = Program(README_HOST_PROGRAM, {origin.url("/a")}).wait();
  EXPECT_EQ(done.status, 0);
  EXPECT_EQ(done.out, "3: hello\n");
  const Finished failed = Program(README_HOST_PROGRAM, {origin.url("/b")}).wait();
  EXPECT_EQ(failed.out, "5: {\"errorID\":2,\"errorReason\":0}\n");
}

}  // namespace
}  // namespace tooltest
