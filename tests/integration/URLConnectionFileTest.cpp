// File URLs.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "tests/integration/RecordingDelegate.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

using test::fetch;
using test::RecordingDelegate;
using Events = std::vector<std::string>;

namespace {

TEST(URLConnectionFile, IsReadWhole) {
  test::TemporaryFolder folder;
  const std::string content(3'000'000, 'f');
  test::writeFile(folder.file("with blank"), content);
  const RecordingDelegate got = fetch("file://" + folder.path() + "/with%20blank");
  EXPECT_EQ(got.events, (Events{"response 0", "data", "finish"}));
  EXPECT_FALSE(got.response->isHTTP());
  EXPECT_TRUE(got.body == content);
  EXPECT_EQ(fetch("file://localhost" + folder.path() + "/with%20blank").events.back(), "finish");
}

TEST(URLConnectionFile, EmptyHasNoData) {
  test::TemporaryFolder folder;
  test::writeFile(folder.file("empty"), "");
  EXPECT_EQ(fetch("file://" + folder.path() + "/empty").events, (Events{"response 0", "finish"}));
}

TEST(URLConnectionFile, WhatCannotBeReadFails) {
  test::TemporaryFolder folder;
  EXPECT_EQ(fetch("file://" + folder.path() + "/missing").events, (Events{"fail -1100"}));
  EXPECT_EQ(fetch("file://" + folder.path()).events, (Events{"fail -1102"}));
  ASSERT_EQ(mkfifo(folder.file("pipe").c_str(), 0600), 0);
  EXPECT_EQ(fetch("file://" + folder.path() + "/pipe").events, (Events{"fail -1102"}));
  EXPECT_EQ(fetch("file:///dev/zero").events, (Events{"fail -1102"}));
  EXPECT_EQ(fetch("file://elsewhere" + folder.path() + "/x").events, (Events{"fail -1000"}));
  EXPECT_EQ(fetch("file:///a%00b").events, (Events{"fail -1000"}));
  if (geteuid() != 0) {
    test::writeFile(folder.file("secret"), "x");
    ASSERT_EQ(chmod(folder.file("secret").c_str(), 0), 0);
    EXPECT_EQ(fetch("file://" + folder.path() + "/secret").events, (Events{"fail -1102"}));
  }
}

TEST(URLConnectionFile, OverTheLimitFails) {
  setenv("ZEP_URL_MAX_BODY_BYTES", "1000000", 1);
  test::TemporaryFolder folder;
  test::writeFile(folder.file("large"), std::string(1'000'001, 'x'));
  EXPECT_EQ(fetch("file://" + folder.path() + "/large").events.back(), "fail -1103");
}

}  // namespace
