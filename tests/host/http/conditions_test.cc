// Conditional requests against a stored response. Dates are a fixed Sunday in 1994 and its neighbours.
#include "host/http/conditions.h"

#include <gtest/gtest.h>

#include "tests/support/header_lines.h"

namespace http {
namespace {

#define MODIFIED "Last-Modified: "
#define SATURDAY "Sat, 05 Nov 1994 08:49:37 GMT"
#define SUNDAY "Sun, 06 Nov 1994 08:49:37 GMT"
#define SUNDAY_ONE_SECOND_LATER "Sun, 06 Nov 1994 08:49:38 GMT"

TEST(Conditions, DecideWhetherTheClientHasTheResponse) {
  const struct {
    bool notModified;
    const char* request;
    const char* response;
    const char* why;
    bool conditional = true;
  } rows[] = {
      {true, "If-None-Match: \"b,c\", \"a\"\n", "ETag: \"a\"\n", "one of several"},
      {true, "If-None-Match: \"b\"\nif-none-match: W/\"a\"\n", "ETag: \"a\"\n", "weakly, on a second line"},
      {true, "If-None-Match: *\n", "", "anything will do"},
      {true, "If-None-Match: abc\n", "ETag: abc\n", "a tag without quotes, as it was sent"},
      {false, "If-None-Match: \"a\"\n", "ETag: \"A\"\n", "another tag"},
      {false, "If-None-Match: \"a\"\n", "", "no tag to compare with"},
      {false, "If-None-Match:\n", "ETag:\n", "two tags that are none"},
      {false, "If-None-Match: \"b\"\nIf-Modified-Since: " SUNDAY "\n", "ETag: \"a\"\n" MODIFIED SUNDAY "\n",
       "the tag decides alone"},
      {true, "If-Modified-Since: " SUNDAY "\n", MODIFIED SUNDAY "\n", "not modified since"},
      {false, "If-Modified-Since: " SUNDAY "\n", MODIFIED SUNDAY_ONE_SECOND_LATER "\n", "modified"},
      {false, "If-Modified-Since: " SUNDAY "\n", "Date: " SATURDAY "\n", "nobody says when"},
      {false, "If-Modified-Since: yesterday\n", MODIFIED SATURDAY "\n", "no date to compare with"},
      {false, "If-Modified-Since: " SUNDAY "\n", MODIFIED "0\n", "nor here"},
      {false, "If-Match: \"a\"\n", "ETag: \"a\"\n" MODIFIED SUNDAY "\n", "a condition of another kind",
       false},
  };
  for (const auto& row : rows) {
    const std::string request = tests::HeaderText(row.request);
    EXPECT_EQ(IsConditional(request), row.conditional) << row.why;
    EXPECT_EQ(IsNotModified(request, tests::RawBlock(200, row.response)), row.notModified) << row.why;
  }
}

TEST(Conditions, NotModifiedKeepsWhatIsNotOfTheBody) {
  const std::string kept =
      "Date: " SUNDAY
      "\nETag: \"a\"\nCache-Control: no-cache\nCache-Control: private\nVary: Accept\nAge: 5\n"
      "Content-Location: /a\nSet-Cookie: a=b\nset-cookie: c=d\nAccess-Control-Allow-Origin: *\n";
  const std::string dropped = "content-length: 5\nContent-Type: text/css\nContent-Encoding: br\n";
  std::string expected = tests::RawBlock(304, kept);
  expected.insert(expected.find('\0'), " Not Modified");
  EXPECT_EQ(NotModifiedBlock(tests::RawBlock(200, kept + dropped)), expected);
}

}  // namespace
}  // namespace http
