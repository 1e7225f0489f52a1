// What the stand-ins promise to whoever reads their headers: header texts, URLs, properties, times, hashes,
// the log.
#include <gtest/gtest.h>

#include <climits>

#include "android/log.h"
#include "corvane/host.h"
#include "cutils/properties.h"
#include "net/http/http_request_headers.h"
#include "net/http/http_response_headers.h"
#include "url/gurl.h"

namespace {

TEST(HttpRequestHeadersTest, ReadsLinesAndWritesThemBack) {
  const struct {
    const char* block;
    const char* text;
    const char* why;
  } rows[] = {
      {"", "\r\n", "nothing"},
      {"A: b\r\nC: d\r\n\r\n", "A: b\r\nC: d\r\n\r\n", "as written"},
      {"A: b", "A: b\r\n\r\n", "the last line may lack its end"},
      {"A:b\r\nC \t:  d\t \r\n", "A: b\r\nC: d\r\n\r\n", "blanks around name and value go"},
      {"A: b: c\r\n", "A: b: c\r\n\r\n", "the first colon divides"},
      {"A:\r\nB: \r\n", "A:\r\nB:\r\n\r\n", "empty values"},
      {"no colon\r\n: no name\r\nA: b\r\n", "A: b\r\n\r\n", "lines that say nothing"},
      {"Abc: 1\r\nD: 2\r\naBC: 3\r\n", "Abc: 3\r\nD: 2\r\n\r\n",
       "one header, its first place and spelling, its last value"},
      {"A: b\nC: d\r\n", "A: b\nC: d\r\n\r\n", "a line feed alone ends no line"},
  };
  for (const auto& row : rows) {
    net::HttpRequestHeaders headers;
    headers.AddHeadersFromString(row.block);
    EXPECT_EQ(headers.ToString(), row.text) << row.why;
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
    const char* why;
  } rows[] = {
      {"HTTP/1.1 200 OK|Content-Length: 5||", 200, 5, ""},
      {"http/2   404|content-length:5||", 404, 5, "no reason, other case, no blank"},
      {"HTTP/1.1 200 OK|Content-Length: 5 ||", 200, 5, "a blank after it"},
      {"HTTP/1.1 200 OK|Content-Length: 9223372036854775807||", 200, INT64_MAX, "largest"},
      {"HTTP/1.1 200 OK|Content-Length: 9223372036854775808||", 200, -1, "one more does not fit"},
      {"HTTP/1.1 200 OK|Content-Length: +5||", 200, -1, "a sign"},
      {"HTTP/1.1 200 OK|Content-Length: 5, 5||", 200, -1, "a list"},
      {"HTTP/1.1 200 OK|Content-Length:||", 200, -1, "empty"},
      {"HTTP/1.1 200 OK|Content-Length: x|Content-Length: 5||", 200, -1, "the first one decides"},
      {"HTTP/1.1 200 OK|X-Content-Length: 5||", 200, -1, "another name"},
      {"HTTP/1.1 200 OK||", 200, -1, "none"},
      {"HTTP/1.1 2x0 OK||", -1, -1, "no number"},
      {"HTTP/1.1||", -1, -1, "no status"},
      {"ICY 200 OK|Content-Length: 5||", -1, 5, "no status line"},
      {"", -1, -1, "nothing"},
  };
  for (const auto& row : rows) {
    std::string raw = row.lines;
    for (char& c : raw) c = c == '|' ? '\0' : c;
    const net::HttpResponseHeaders headers(raw);
    EXPECT_EQ(headers.raw_headers(), raw);
    EXPECT_EQ(headers.response_code(), row.status) << row.lines << row.why;
    EXPECT_EQ(headers.GetContentLength(), row.length) << row.lines << row.why;
  }
}

TEST(GurlTest, FindsHostAndPort) {
  const struct {
    const char* url;
    const char* hostPort;  // as the host function gives it
    bool valid;
  } rows[] = {
      {"http://a.test/", "a.test:80", true},
      {"HTTPS://User:pw@A.Test?q", "a.test:443", true},
      {"ws://a.test#f", "a.test:80", true},
      {"wss://a.test\\x", "a.test:443", true},
      {"http://a.test:8080/x:1", "a.test:8080", true},
      {"http://a.test:/", "a.test:80", true},
      {"http://a.test:65535", "a.test:65535", true},
      {"http://a.test:65536", "", false},
      {"http://a.test:-1", "", false},
      {"http://a.test:8x", "", false},
      {"http://[::1]:81/", "[::1]:81", true},
      {"http://[::1/", "", false},
      {"http://[::1]x/", "", false},
      {"ftp://a.test/", "a.test", true},
      {"http://", "", false},
      {"http:a.test", "", false},
      {"data:,x", "", true},
      {"1http://a.test/", "", false},
      {"", "", false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(GURL(row.url).is_valid(), row.valid) << row.url;
    EXPECT_EQ(GURL(row.url).spec(), row.valid ? row.url : "") << row.url;
    std::string hostPort = "what was there";
    CorvaneGetHostPortFromUrl(row.url, hostPort);
    EXPECT_EQ(hostPort, row.hostPort) << row.url;
  }
}

TEST(PropertiesTest, HoldTextsOfAtMost91Bytes) {
  char value[PROPERTY_VALUE_MAX];
  const std::string longest(91, 'x');
  EXPECT_EQ(property_get("test.p", value, "fallback"), 8);
  EXPECT_STREQ(value, "fallback");
  EXPECT_EQ(property_get("test.p", value, nullptr), 0);
  EXPECT_STREQ(value, "");
  EXPECT_EQ(property_get("test.p", value, (longest + "yz").c_str()), 91);
  EXPECT_EQ(value, longest) << "a longer fallback is cut";
  EXPECT_EQ(property_set("test.p", longest.c_str()), 0);
  EXPECT_EQ(property_set("test.p", (longest + "y").c_str()), -1);
  EXPECT_EQ(property_get("test.p", value, "fallback"), 91);
  EXPECT_EQ(value, longest) << "refused, the longer one changed nothing";
  EXPECT_EQ(property_set("test.p", ""), 0);
  EXPECT_EQ(property_get("test.p", value, "fallback"), 8) << "empty is unset";
  EXPECT_EQ(property_set("", "x"), -1);
  EXPECT_EQ(property_set(nullptr, "x"), -1);
}

TEST(TimeTest, DeltasAreWholeMillisecondsAndSaturate) {
  const struct {
    int64_t from, to;  // in microseconds
    int ms;
  } rows[] = {
      {0, 1999, 1},
      {1000, 0, -1},
      {5, 120000005, 120000},
      {0, INT64_C(2147483647999), INT_MAX},
      {0, INT64_C(2147483648000), INT_MAX},
      {INT64_C(9000000000000), 0, INT_MIN},
      {INT64_MIN, INT64_MAX, INT_MAX},
      {INT64_MAX, INT64_MIN, INT_MIN},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(CorvaneGetTimeDeltaInMs(base::Time::FromInternalValue(row.from),
                                      base::Time::FromInternalValue(row.to)),
              row.ms);
  }
}

TEST(HashTest, IsFnv1a) {
  EXPECT_EQ(CorvaneHash(""), 0x811C9DC5u);
  EXPECT_EQ(CorvaneHash("a"), 0xE40C292Cu);
  EXPECT_EQ(CorvaneHash("foobar"), 0xBF9CF968u);
}

std::string g_line;

TEST(LogTest, CutsALineThatIsTooLong) {
  android_log::SetSink([](int, int, const char*, const char* text) { g_line = text; });
  const std::string fits(4095, 'x');
  EXPECT_EQ(__android_log_buf_print(3, 3, nullptr, "%s", fits.c_str()), 4095);
  EXPECT_EQ(g_line, fits);
  EXPECT_EQ(__android_log_buf_print(3, 3, nullptr, "%s", (fits + "yz").c_str()), 4095);
  EXPECT_EQ(g_line, fits);
  android_log::SetSink(nullptr);
}

}  // namespace
