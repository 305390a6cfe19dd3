// Dates in the user's language.

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>

#include "foundation/base/LongDate.h"

namespace foundation {
namespace {

constexpr std::chrono::system_clock::time_point kDate{std::chrono::seconds(1706112345)};

/// The time zone is looked up once in a process.
const int theTimeZone = setenv("TZ", "Europe/Berlin", 1);

struct Words {
  const char* locale;
  const char* day;
  const char* time;
};

class LongDate : public testing::TestWithParam<Words> {};

TEST_P(LongDate, HasTheLocalesWords) {
  ASSERT_EQ(theTimeZone, 0);
  const std::string text = longDateAndTime(kDate, GetParam().locale);
  EXPECT_TRUE(text.starts_with(GetParam().day)) << text;
  EXPECT_NE(text.find(GetParam().time), std::string::npos) << text;
  EXPECT_EQ(text.find('\n'), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(All, LongDate,
                         testing::Values(Words{"C", "January 24, 2024 at ", "5:05:45"},
                                         Words{"C.UTF-8", "January 24, 2024 at ", "5:05:45"},
                                         Words{"POSIX", "January 24, 2024 at ", "5:05:45"},
                                         Words{"", "January 24, 2024 at ", "5:05:45"},
                                         Words{"en_GB.UTF-8", "24 January 2024 at ", "17:05:45"},
                                         Words{"en_GB", "24 January 2024 at ", "17:05:45"},
                                         Words{"de_DE", "24. Januar 2024 um ", "17:05:45 MEZ"},
                                         Words{"de_DE.UTF-8", "24. Januar 2024 um ", "17:05:45 MEZ"},
                                         Words{"de_DE@euro", "24. Januar 2024 um ", "17:05:45 MEZ"},
                                         Words{"de_DE.ISO-8859-1@euro", "24. Januar 2024 um ",
                                               "17:05:45 MEZ"},
                                         Words{"ja_JP", "2024年1月24日 ", "17:05:45"},
                                         Words{"ja_JP.eucJP", "2024年1月24日 ", "17:05:45"}));

TEST(LongDateLimits, HoldForNamesAndDates) {
  EXPECT_EQ(longDateAndTime(kDate, std::string(100'000, 'x')), longDateAndTime(kDate, "C"));
  EXPECT_NE(longDateAndTime(kDate, "../../../etc/passwd"), "");
  EXPECT_NE(longDateAndTime(std::chrono::system_clock::time_point::min(), "de_DE"), "");
  EXPECT_NE(longDateAndTime(std::chrono::system_clock::time_point::max(), "ja_JP"), "");
}

class DateLocale : public testing::Test {
 protected:
  using Setting = std::optional<std::string>;

  ~DateLocale() override { set(std::nullopt, std::nullopt, std::nullopt); }

  static void set(const Setting& all, const Setting& time, const Setting& lang) {
    setOne("LC_ALL", all);
    setOne("LC_TIME", time);
    setOne("LANG", lang);
  }

 private:
  static void setOne(const char* name, const Setting& value) {
    if (value) {
      setenv(name, value->c_str(), 1);
    } else {
      unsetenv(name);
    }
  }
};

TEST_F(DateLocale, IsTheFirstOfTheEnvironmentsThatIsNotEmpty) {
  set("de_DE.UTF-8", "ja_JP", "fr_FR");
  EXPECT_EQ(currentDateLocale(), "de_DE.UTF-8");
  set("", "ja_JP", "fr_FR");
  EXPECT_EQ(currentDateLocale(), "ja_JP");
  set(std::nullopt, "ja_JP", "fr_FR");
  EXPECT_EQ(currentDateLocale(), "ja_JP");
  set(std::nullopt, "", "fr_FR");
  EXPECT_EQ(currentDateLocale(), "fr_FR");
  set(std::nullopt, std::nullopt, std::nullopt);
  EXPECT_EQ(currentDateLocale(), "C");
}

}  // namespace
}  // namespace foundation
