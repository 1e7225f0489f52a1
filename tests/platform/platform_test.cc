// What the stubs promise in their headers: header texts, URLs, properties, the log.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <utility>

#include "android/log.h"
#include "corvane/api.h"
#include "cutils/properties.h"
#include "net/http/http_request_headers.h"
#include "net/http/http_response_headers.h"
#include "url/gurl.h"

namespace {

TEST(HttpRequestHeadersTest, ReadsLinesAndWritesThemBack) {
  // clang-format off
  const char* const rows[][2] = {
      {"", "\r\n"}, {"A: b", "A: b\r\n\r\n"}, {"A:b\r\nC \t:  d\t \r\n\r\n", "A: b\r\nC: d\r\n\r\n"},
      {"A: b: c\r\n", "A: b: c\r\n\r\n"}, {"A:\r\nB: \r\n", "A:\r\nB:\r\n\r\n"},
      {"no colon\r\n: no name\r\nA: b\r\n", "A: b\r\n\r\n"}, {"Abc: 1\r\nD: 2\r\naBC: 3\r\n", "Abc: 3\r\nD: 2\r\n\r\n"},
      {"A: b\nC: d\r\n", "A: b\nC: d\r\n\r\n"}};  // a line feed alone ends no line
  // clang-format on
  for (const auto& [block, text] : rows) {
    net::HttpRequestHeaders headers;
    headers.AddHeadersFromString(block);
    EXPECT_EQ(headers.ToString(), text) << block;
  }
  net::HttpRequestHeaders headers;
  headers.SetHeader("X-One", "1");
  std::string value = "untouched";
  EXPECT_FALSE(headers.GetHeader("X-On", &value));
  EXPECT_EQ(value, "untouched");
  EXPECT_TRUE(headers.GetHeader("x-ONE", &value));
  EXPECT_EQ(value, "1");
}

TEST(HttpResponseHeadersTest, FindsStatusAndLength) {
  const struct {
    std::string lines;  // '|' for the NUL byte
    int status;
    int64_t length;
  } rows[] = {
      {"HTTP/1.1 200 OK|Content-Length: 5 ||", 200, 5},
      {"http/2   404|content-length:9223372036854775807||", 404, INT64_MAX},
      {"HTTP/1.1 200 OK|Content-Length: 9223372036854775808||", 200, -1},
      {"HTTP/1.1 200 OK|Content-Length: +5||", 200, -1},
      {"HTTP/1.1 200 OK|Content-Length: 5, 5||", 200, -1},
      {"HTTP/1.1 200 OK|Content-Length:||", 200, -1},
      {"HTTP/1.1 200 OK|Content-Length: x|Content-Length: 5||", 200, -1},  // the first one decides
      {"HTTP/1.1 200 OK|X-Content-Length: 5||", 200, -1},
      {"HTTP/1.1 2x0 OK||", -1, -1},
      {"HTTP/1.1||", -1, -1},
      {"ICY 200 OK|Content-Length: 5||", -1, 5},
      {"", -1, -1},
  };
  for (const auto& row : rows) {
    std::string raw = row.lines;
    std::replace(raw.begin(), raw.end(), '|', '\0');
    const net::HttpResponseHeaders headers(raw);
    EXPECT_EQ(headers.raw_headers(), raw);
    EXPECT_EQ(headers.response_code(), row.status) << row.lines;
    EXPECT_EQ(headers.GetContentLength(), row.length) << row.lines;
  }
}

TEST(GurlTest, FindsHostAndPort) {
  const char* const kInvalid = "invalid";
  // clang-format off
  const std::pair<const char*, const char*> rows[] = {
      {"http://a.test/", "a.test:80"}, {"HTTPS://User:pw@A.Test?q", "a.test:443"}, {"ws://a.test#f", "a.test:80"},
      {"wss://a.test\\x", "a.test:443"}, {"http://a.test:8080/x:1", "a.test:8080"}, {"http://a.test:/", "a.test:80"},
      {"http://a.test:65535", "a.test:65535"}, {"http://a.test:65536", kInvalid}, {"http://a.test:8x", kInvalid},
      {"http://[::1]:81/", "[::1]:81"}, {"http://[::1/", kInvalid}, {"http://[::1]x/", kInvalid},
      {"ftp://a.test/", "a.test"}, {"http://", kInvalid}, {"http:a.test", kInvalid}, {"data:,x", ""},
      {"1http://a.test/", kInvalid}, {"", kInvalid}};
  // clang-format on
  for (const auto& [url, hostAndPort] : rows) {
    const bool valid = hostAndPort != kInvalid;
    EXPECT_EQ(GURL(url).is_valid(), valid) << url;
    EXPECT_EQ(GURL(url).spec(), valid ? url : "") << url;
    std::string found = "what was there";
    CorvaneGetHostPortFromUrl(url, found);
    EXPECT_EQ(found, valid ? hostAndPort : "") << url;
  }
}

TEST(PropertiesTest, HoldTextsOfAtMost91Bytes) {
  char value[PROPERTY_VALUE_MAX];
  const std::string longest(91, 'x');
  EXPECT_EQ(property_get("test.p", value, (longest + "yz").c_str()), 91);
  EXPECT_EQ(value, longest) << "a longer fallback is cut";
  EXPECT_EQ(property_set("test.p", longest.c_str()), 0);
  EXPECT_EQ(property_set("test.p", (longest + "y").c_str()), -1);
  EXPECT_EQ(property_get("test.p", value, nullptr), 91) << "refused, the longer one changed nothing";
  EXPECT_EQ(property_set(nullptr, "x"), -1);
}

TEST(LogTest, CutsALineThatIsTooLong) {
  static std::string line;
  android_log::SetSink([](int, int, const char*, const char* text) { line = text; });
  const std::string fits(4095, 'x');
  for (const char* more : {"", "yz"}) {
    EXPECT_EQ(__android_log_buf_print(3, 3, nullptr, "%s%s", fits.c_str(), more), 4095);
    EXPECT_EQ(line, fits);
  }
  android_log::SetSink(nullptr);
}

}  // namespace
