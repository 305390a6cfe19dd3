// What the jar of all cookies keeps when servers set more than it has room for. The cookies are curl's, put in as those
// of a cookie file.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "foundation/url/loader/CookieJar.h"

namespace foundation {
namespace {

class CookieJarTest : public testing::Test {
 protected:
  CookieJarTest() {
    EXPECT_TRUE(jar_.make());
    curl_easy_setopt(easy_.get(), CURLOPT_SHARE, jar_.share());
  }

  /// Cookies FIRST, FIRST + 1 and so on of a domain, by a field each.
  void set(const std::string& domain, int count, int first = 0) {
    for (int i = first; i < first + count; ++i) {
      jar_.noteHeaderLine("Set-Cookie: what curl has made of it\r\n");
      put(domain + "\tFALSE\t/\tFALSE\t0\tcookie" + std::to_string(i) + "\tvalue");
    }
  }

  void put(const std::string& line) {
    ASSERT_EQ(curl_easy_setopt(easy_.get(), CURLOPT_COOKIELIST, line.c_str()), CURLE_OK);
  }

  std::vector<std::string> kept() {
    curl_slist* list = nullptr;
    EXPECT_EQ(curl_easy_getinfo(easy_.get(), CURLINFO_COOKIELIST, &list), CURLE_OK);
    const HeaderList owner(list);
    std::vector<std::string> lines;
    for (; list != nullptr; list = list->next) {
      lines.emplace_back(list->data);
    }
    return lines;
  }

  std::size_t keptOf(const std::string& domain) {
    return static_cast<std::size_t>(std::ranges::count_if(
        kept(), [&](const std::string& line) { return line.starts_with(domain + "\t"); }));
  }

  CookieJar jar_;
  EasyHandle easy_{curl_easy_init()};
};

constexpr int kMost = CookieJar::kMost;
constexpr int kMostOfADomain = CookieJar::kMostOfADomain;

TEST_F(CookieJarTest, KeepsWhatThereIsRoomFor) {
  set("flood.test", kMost);
  jar_.keepBounds();
  EXPECT_EQ(kept().size(), CookieJar::kMost);
}

TEST_F(CookieJarTest, KeepsTheNewestOfADomainThatFloods) {
  put("quiet.test\tFALSE\t/here\tTRUE\t4102444800\tname\tits value");
  put("#HttpOnly_.below.test\tTRUE\t/\tFALSE\t0\tsession\t");
  const std::vector<std::string> others = kept();
  set("flood.test", kMost);
  jar_.keepBounds();
  EXPECT_EQ(keptOf("flood.test"), CookieJar::kMostOfADomain);
  for (const std::string& other : others) {
    EXPECT_EQ(std::ranges::count(kept(), other), 1) << other;
  }
  const std::string newest = "cookie" + std::to_string(kMost - 1) + "\tvalue";
  const std::string tooOld = "cookie" + std::to_string(kMost - kMostOfADomain - 1) + "\tvalue";
  EXPECT_TRUE(std::ranges::any_of(kept(), [&](const auto& line) { return line.ends_with(newest); }));
  EXPECT_FALSE(std::ranges::any_of(kept(), [&](const auto& line) { return line.ends_with(tooOld); }));
}

TEST_F(CookieJarTest, KeepsAsMuchOfManyDomainsAsThereIsRoomFor) {
  constexpr int kDomains = 400;
  for (int i = 0; i < kDomains; ++i) {
    set("flood" + std::to_string(i) + ".test", 10);
  }
  jar_.keepBounds();
  EXPECT_EQ(kept().size(), 7U * kDomains);
  EXPECT_EQ(keptOf("flood399.test"), 7U);
}

TEST_F(CookieJarTest, KeepsNothingWhenThereIsNotOnePlaceForEachDomain) {
  for (int i = 0; i <= kMost; ++i) {
    set("flood" + std::to_string(i) + ".test", 1);
  }
  jar_.keepBounds();
  EXPECT_TRUE(kept().empty());
  set("later.test", 1);
  EXPECT_EQ(keptOf("later.test"), 1U);
}

TEST_F(CookieJarTest, LooksAfterSoManyFieldsOnly) {
  set("flood.test", kMost + 1);
  jar_.keepBounds();
  ASSERT_EQ(kept().size(), CookieJar::kMostOfADomain);
  constexpr int kFields = CookieJar::kFieldsBetweenLooks;
  for (int i = 0; i < kMost; ++i) {
    put("other.test\tFALSE\t/\tFALSE\t0\tcookie" + std::to_string(i) + "\tvalue");
  }
  set("flood.test", kFields - 1);
  for (const char* line : {"Set-Cookie2: x", "Cookie: x", "Set-Cookie", "X-Set-Cookie: x", ""}) {
    jar_.noteHeaderLine(line);
  }
  jar_.keepBounds();
  EXPECT_GT(kept().size(), CookieJar::kMost);
  jar_.noteHeaderLine("sET-cOOKIE:x");
  jar_.keepBounds();
  EXPECT_EQ(kept().size(), 2 * CookieJar::kMostOfADomain);
}

}  // namespace
}  // namespace foundation
