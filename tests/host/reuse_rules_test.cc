// Which request a preload may answer, rule by rule.
#include "host/reuse_rules.h"

#include <gtest/gtest.h>

#include "tests/support/scripted_transport.h"

namespace host {
namespace {

TEST(ReuseRules, WhichRequestsMayBeAnsweredByAPreload) {
  const struct {
    const char* method;
    const char* headers;
    bool hasBody;
    NotServed why;
  } rows[] = {
      {"GET", "Accept: */*\r\nX-Range: 1\r\n", false, NotServed::None},
      {"POST", "", false, NotServed::NotGet},
      {"HEAD", "", false, NotServed::NotGet},
      {"get", "", false, NotServed::NotGet},
      {"GET", "", true, NotServed::HasRequestBody},
      {"GET", "transfer-encoding: chunked\r\n", false, NotServed::HasRequestBody},
      {"GET", "RANGE: bytes=0-\r\n", false, NotServed::Range},
      {"GET", "If-Range: \"a\"\r\n", false, NotServed::Precondition},
      {"GET", "If-Match: *\r\n", false, NotServed::Precondition},
      {"GET", "If-Unmodified-Since: Sun, 06 Nov 1994 08:49:37 GMT\r\n", false, NotServed::Precondition},
      {"GET", "If-None-Match: \"a\"\r\nIf-Modified-Since: Sun, 06 Nov 1994 08:49:37 GMT\r\n", false,
       NotServed::None},
      {"GET", "Authorization: Basic eA==\r\n", false, NotServed::Authorization},
      {"GET", "Cache-Control: max-age=0\r\n", false, NotServed::None},
      {"GET", "Cache-Control: max-age=0, No-Cache\r\n", false, NotServed::AsksForNewCopy},
      {"GET", "cache-control: no-store\r\n", false, NotServed::AsksForNewCopy},
      {"GET", "Pragma: no-cache\r\n", false, NotServed::AsksForNewCopy},
      {"GET", "Cache-Control: x=\"no-cache\"\r\n", false, NotServed::None},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(WhyNotReusable({.method = row.method, .headers = row.headers, .hasBody = row.hasBody}), row.why)
        << row.method << " " << row.headers;
  }
}

TEST(ReuseRules, WhichResponseAnswersWhichRequest) {
  const struct {
    const char* response;
    const char* request;
    const char* sent;
    NotServed why;
  } rows[] = {
      {"", "A: 1\r\n", "A: 2\r\n", NotServed::None},
      {"Vary: a\n", "A: 1\r\n", "A: 2\r\n", NotServed::OtherVariant},
      {"Vary: a\n", "A: 1\r\n", "a:  1 \r\n", NotServed::None},
      {"Vary: A\nVary: b\n", "A: 1\r\nB: 1\r\n", "A: 1\r\n", NotServed::OtherVariant},
      {"Vary: *\n", "", "", NotServed::OtherVariant},
      {"", "Cookie: a=1\r\n", "Cookie: a=1\r\n", NotServed::None},
      {"", "Cookie: a=1\r\nCookie: b=2\r\n", "Cookie: a=1; b=2\r\n", NotServed::None},
      {"", "Cookie: b=2; a=1\r\n", "Cookie: a=1; b=2\r\n", NotServed::None},
      {"", "Cookie: a=1; a=1\r\n", "Cookie: a=1\r\n", NotServed::OtherCookies},
      {"", "Cookie: a=1\r\n", "", NotServed::OtherCookies},
      {"", "", "Cookie: a=1\r\n", NotServed::OtherCookies},
      {"", "Cookie: \r\n", "", NotServed::None},
      {"Content-Encoding: br\n", "Accept-Encoding: gzip, br\r\n", "Accept-Encoding: br\r\n", NotServed::None},
      {"Content-Encoding: br\n", "Accept-Encoding: gzip\r\n", "Accept-Encoding: br\r\n",
       NotServed::CodingNotAccepted},
      {"Content-Encoding: br\n", "", "Accept-Encoding: br\r\n", NotServed::None},
  };
  for (const auto& row : rows) {
    const std::string block =
        tests::ResponseHeaders("HTTP/1.1 200 OK\n" + std::string(row.response)).raw_headers();
    EXPECT_EQ(WhyNotAnswer({.method = "GET", .headers = row.request}, {.headers = row.sent}, block), row.why)
        << row.response << row.request << row.sent;
  }
  const RequestFacts with = {.method = "GET"};
  const RequestFacts without = {.method = "GET", .withCredentials = false};
  EXPECT_EQ(WhyNotSameSender(with, without), NotServed::OtherCredentials);
  EXPECT_EQ(WhyNotSameSender(without, with), NotServed::OtherCredentials);
  EXPECT_EQ(WhyNotSameSender(without, without), NotServed::None);
}

TEST(ReuseRules, WhatAPreloadIsSentWith) {
  // What belongs to one request, one connection or one user is left out.
  EXPECT_EQ(
      HeadersToRepeat("Host: a\r\nAccept: image/*\r\nConnection: close\r\nCookie: a\r\nAuthorization: b\r\n"
                      "If-None-Match: c\r\nsec-fetch-dest: image\r\nCache-Control: no-cache\r\n"),
      "Accept: image/*\r\nsec-fetch-dest: image\r\n\r\n");
  const std::string plugin = "Accept: */*\r\nX-Requested-With: app\r\n\r\n";
  EXPECT_EQ(HeadersToSend(plugin, "", ""), plugin);
  EXPECT_EQ(HeadersToSend(plugin, "Accept: image/*\r\nX-Requested-With: other\r\nOrigin: o\r\n", "a=1"),
            "Accept: image/*\r\nX-Requested-With: app\r\nOrigin: o\r\nCookie: a=1\r\n\r\n");
  EXPECT_EQ(HeadersToSend("Accept: text/css\r\n", "Accept: image/*\r\n", ""), "Accept: text/css\r\n\r\n");
}

TEST(ReuseRules, MethodsThatChangeThings) {
  for (const char* method : {"GET", "HEAD", "OPTIONS", "TRACE"}) EXPECT_FALSE(IsUnsafe(method)) << method;
  for (const char* method : {"POST", "PUT", "DELETE", "PATCH", "PURGE", "get"}) EXPECT_TRUE(IsUnsafe(method));
}

}  // namespace
}  // namespace host
