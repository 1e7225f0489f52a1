// How long a cache may use a response without asking. Dates are a fixed Sunday in 1994.
#include "host/http/freshness.h"

#include <gtest/gtest.h>

#include <vector>

#include "host/http/dates.h"
#include "tests/support/header_lines.h"

namespace http {
namespace {

constexpr double kDay = 86400;
constexpr double kNever = -1;  // it may not be stored

struct FreshnessCase {
  const char* why;
  double seconds;
  const char* headers;  // lines ended by LF
  int status = 200;
  const char* method = "GET";
};

double FreshSeconds(const FreshnessCase& row, std::optional<double> receivedMs) {
  const auto ms = FreshForMs(row.method, row.status, tests::RawBlock(row.status, row.headers), receivedMs);
  return ms ? *ms / 1e3 : kNever;
}

#define DATE "Date: Sun, 06 Nov 1994 08:49:37 GMT\n"
#define EXPIRES_TOMORROW "Expires: Mon, 07 Nov 1994 08:49:37 GMT\n"
#define MODIFIED_TEN_DAYS_AGO "Last-Modified: Thu, 27 Oct 1994 08:49:37 GMT\n"

const FreshnessCase kCases[] = {
    {"max-age, whatever the spelling", 60, "cache-CONTROL: public , Max-Age=60\n"},
    {"a quoted number", 60, "Cache-Control: max-age=\"60\"\n"},
    {"the first max-age counts", 60, "Cache-Control: max-age=60\nCache-Control: max-age=5\n"},
    {"directives of a second line count", 0, "Cache-Control: max-age=60\nCache-Control: no-cache\n"},
    {"the age is taken off", 50, "Cache-Control: max-age=60\nAge: 10\n"},
    {"older than it may get", 0, "Cache-Control: max-age=60\nAge: 61\n"},
    {"an age that is none", 60, "Cache-Control: max-age=60\nAge: old\n"},
    {"a negative max-age is stale", 0, "Cache-Control: max-age=-5\n"},
    {"a max-age without number is stale", 0, "Cache-Control: max-age\n" DATE EXPIRES_TOMORROW},
    {"more seconds than any type holds", 2147483648.0, "Cache-Control: max-age=99999999999999999999\n"},
    {"s-maxage is for shared caches", kDay, DATE EXPIRES_TOMORROW "Cache-Control: s-maxage=60\n"},
    {"a name inside quotes is no directive", 60, "Cache-Control: private=\"a, no-store, b\", max-age=60\n"},
    {"no-store", kNever, "Cache-Control: max-age=60, no-store\n"},
    {"an open quote hides no other line", kNever, "Cache-Control: a=\"b\nCache-Control: no-store\n"},
    {"no-cache for some fields is for all", 0, "Cache-Control: max-age=60, no-cache=\"set-cookie\"\n"},
    {"Pragma alone", 0, DATE EXPIRES_TOMORROW "Pragma: no-cache\n"},
    {"Pragma yields to Cache-Control", 60, "Pragma: no-cache\nCache-Control: max-age=60\n"},
    {"Vary names headers", 60, "Cache-Control: max-age=60\nVary: Accept, Accept-Encoding\n"},
    {"Vary: * never matches", 0, "Cache-Control: max-age=60\nVary: Accept, *\n"},

    {"Expires counts from Date", kDay, DATE EXPIRES_TOMORROW},
    {"Expires is past", 0, DATE "Expires: Sat, 05 Nov 1994 08:49:37 GMT\n"},
    {"Expires is no date: past", 0, DATE "Expires: -1\n" MODIFIED_TEN_DAYS_AGO},

    {"nothing said: a tenth of its age", kDay, DATE MODIFIED_TEN_DAYS_AGO},
    {"modified after it was sent", 0, DATE "Last-Modified: Mon, 07 Nov 1994 08:49:37 GMT\n"},
    {"nothing at all", 0, DATE},
    {"a lasting redirect may be guessed about", kDay, DATE MODIFIED_TEN_DAYS_AGO, 301},
    {"a renewal counts like what it renews", 60, "Cache-Control: max-age=60\n", 304},
    {"a passing redirect may not be stored", kNever, DATE MODIFIED_TEN_DAYS_AGO, 302},
    {"unless it says so", 60, "Cache-Control: max-age=60\n", 302},
    {"or says when it expires", kDay, DATE EXPIRES_TOMORROW, 302},
    {"public stores, and says no time", 0, DATE MODIFIED_TEN_DAYS_AGO "Cache-Control: public\n", 302},
    {"an error may not be stored", kNever, DATE, 500},
    {"must-understand lifts no-store", 60, "Cache-Control: no-store, must-understand, max-age=60\n"},
    {"for statuses that are understood", kNever, "Cache-Control: must-understand, max-age=60\n", 599},
    {"not the last word", kNever, "Cache-Control: max-age=60\n", 103},
    {"only GET", kNever, "Cache-Control: max-age=60\n", 200, "POST"},
};

TEST(Freshness, FollowsTheRulesOfAPrivateCache) {
  for (const FreshnessCase& row : kCases) {
    EXPECT_DOUBLE_EQ(FreshSeconds(row, std::nullopt), row.seconds) << row.why;
  }
}

TEST(Freshness, ArrivalStandsInForDate) {
  const double received = *ParseIsoDate("1994-11-06T08:49:37Z");
  for (const char* headers : {EXPIRES_TOMORROW, MODIFIED_TEN_DAYS_AGO}) {
    EXPECT_EQ(FreshSeconds({"no Date", kDay, headers}, received), kDay);
    EXPECT_EQ(FreshSeconds({"nothing to count from", 0, headers}, std::nullopt), 0);
  }
  EXPECT_EQ(FreshSeconds({"Date goes before", kDay, DATE EXPIRES_TOMORROW}, received + 5000), kDay);
}

TEST(Freshness, AgeIsTheGreaterOfWhatClocksAndHeadersTell) {
  const double made = *ParseIsoDate("1994-11-06T08:49:37Z");
  const struct {
    const char* headers;
    double requestedS, receivedS;  // after it was made
    double ageS;
    const char* why;
  } rows[] = {
      {DATE, 10, 10, 10, "it was made ten seconds ago"},
      {DATE, -20, -20, 0, "the server's clock is ahead"},
      {DATE, -20, -15, 5, "it may have been made when it was asked for"},
      {"", 10, 12, 2, "nobody says when it was made"},
      {DATE "Age: 100\n", 10, 12, 102, "the age when it was sent, at the latest when it was asked for"},
      {DATE "Age: 3\n", 10, 12, 12, "a cache on the way counted less than the clocks"},
      {DATE "Age: 20, 30\n", 0, 0, 20, "the first of several"},
      {DATE "Age: -20\n", 0, 0, 0, "no age"},
      {DATE, 12, 10, 10, "a clock that was set back"},
  };
  for (const auto& row : rows) {
    const double age = InitialAgeMs(tests::RawBlock(200, row.headers), made + row.requestedS * 1e3,
                                    made + row.receivedS * 1e3);
    EXPECT_DOUBLE_EQ(age, row.ageS * 1e3) << row.why;
  }
}

struct DateCase {
  const char* text;
  double ms;
};
using Texts = std::vector<const char*>;

TEST(Dates, OfRecordings) {
  constexpr double kMoment = 1519903805123;  // 2018-03-01 11:30:05.123 UTC
  for (const auto& [text, ms] : {DateCase{"2018-03-01T11:30:05.123Z", kMoment},
                                 {"2018-03-01T12:30:05.123+01:00", kMoment},
                                 {"2018-03-01T06:00:05.123-0530", kMoment},
                                 {"2018-03-01T13:30:05.123+02", kMoment},
                                 {"2018-03-01 11:30:05,123", kMoment},
                                 {"2018-03-01T11:30:05.1230000+00:00", kMoment},
                                 {"2018-03-01T11:30:05", kMoment - 123},
                                 {"1970-01-01T00:00:00Z", 0},
                                 {"2016-02-29T00:00:00Z", 1456704000000}}) {
    EXPECT_NEAR(ParseIsoDate(text).value_or(-1), ms, 0.001) << text;
  }
  for (const char* text :
       Texts{"2017-02-29T00:00:00Z", "2018-13-01T11:30:05Z", "2018-03-01T24:30:05Z",
             "2018-03-01T11:30:05.123Zulu", "2018-03-01T11:30:05+1", "2018-03-01T11:30", "2018-03-01",
             "1969-12-31T23:59:59Z", "12018-03-01T11:30:05Z", "NaN-NaN-NaNTNaN:NaN:NaN.NaN+NaN:NaN", ""}) {
    EXPECT_FALSE(ParseIsoDate(text)) << text;
  }
}

TEST(Dates, OfHeaders) {
  constexpr double kMoment = 784111777000;  // 1994-11-06 08:49:37 UTC
  for (const auto& [text, ms] : {DateCase{"Sun, 06 Nov 1994 08:49:37 GMT", kMoment},
                                 {"Sunday, 06-Nov-94 08:49:37 GMT", kMoment},
                                 {"Sun, 06-Nov-1994 08:49:37", kMoment},
                                 {"Sun Nov  6 08:49:37 1994", kMoment},
                                 {"sun, 6 november 1994 8:49:37 +0000", kMoment},
                                 {"Wed, 01-Jan-20 00:00:00 GMT", 1577836800000}}) {
    EXPECT_EQ(ParseHttpDate(text).value_or(-1), ms) << text;
  }
  for (const char* text :
       Texts{"Sun, 06 Nov 1994", "06 Foo 1994 08:49:37 GMT", "31 Feb 1994 08:49:37 GMT",
             "1994-11-06 08:49:37", "06 Nov 1994 08:49", "99999999999999999999 Nov 1994 08:49:37", "0", ""}) {
    EXPECT_FALSE(ParseHttpDate(text)) << text;
  }
}

TEST(Dates, AreWrittenAsTheyAreRead) {
  const struct {
    double ms;
    const char* text;
  } rows[] = {{784111777000, "Sun, 06 Nov 1994 08:49:37 GMT"},
              {784111777999, "Sun, 06 Nov 1994 08:49:37 GMT"},
              {951782400000, "Tue, 29 Feb 2000 00:00:00 GMT"},
              {-1, "Thu, 01 Jan 1970 00:00:00 GMT"},
              {1e300, "Fri, 31 Dec 9999 23:59:59 GMT"}};
  for (const auto& [ms, text] : rows) EXPECT_EQ(FormatHttpDate(ms), text);
}

}  // namespace
}  // namespace http
