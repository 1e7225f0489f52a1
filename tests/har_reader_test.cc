// Recordings in every state of repair: what becomes a request, what is skipped, what is refused.
#include "replay/har_reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace replay {
namespace {

using host::ResourceKind;

// --- Samples. A row is the fields of an entry; what a test says comes first and wins over the usual.

constexpr char kUsualRequest[] = R"("request": {"method": "GET", "url": "http://a.test/"})";
constexpr char kUsualResponse[] = R"("response": {"status": 200})";

std::string Log(const std::string& fields) {
  return "{\"log\": {" + fields + "}}";
}

Recording ReadRows(const std::string& rows) {
  return ReadHar(Log("\"entries\": [" + rows + "]"), "test");
}

Request ReadOne(const std::string& fields) {
  const Recording recording = ReadRows("{" + fields + "}");
  if (recording.pages.size() != 1 || recording.pages[0].requests.size() != 1) {
    ADD_FAILURE() << "not one request: " << fields;
    return {};
  }
  return recording.pages[0].requests[0];
}

// A row that started at `time` of a fixed hour ("00:05.250").
std::string RowAt(const std::string& url, const std::string& time, const std::string& more = "") {
  return R"({"startedDateTime": "2020-01-01T00:)" + time + R"(Z", "request": {"url": "http://a.test/)" + url +
         R"("}, "response": {"status": 200})" + more + "}";
}

// The requests of a page by the ends of their URLs, with their starts: "a@0 b@250".
std::string Story(const Page& page) {
  std::string story;
  for (const Request& request : page.requests) {
    if (!story.empty()) story += ' ';
    story += request.url.substr(request.url.rfind('/') + 1) + "@" +
             std::to_string(static_cast<long>(request.startMs + 0.5));
  }
  return story;
}

std::vector<std::string> Stories(const Recording& recording) {
  std::vector<std::string> stories;
  for (const Page& page : recording.pages) stories.push_back(page.id + ": " + Story(page));
  return stories;
}

std::string ErrorOf(const std::string& text) {
  try {
    ReadHar(text, "bad.har");
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "none";
}

// --- Files that are no HAR.

TEST(HarReader, RefusesWhatIsNoHar) {
  const struct {
    std::string text;
    std::string error;
  } cases[] = {
      {"", "line 1, column 1 (byte 0): there is nothing in it"},
      {"callback({\"log\": {\"entries\": []}})", "line 1, column 1 (byte 0): not JSON"},
      {"{\"log\": {\n \"entries\": [{}\n {}]}}", "line 3, column 2 (byte 27): not JSON"},
      {"{\"log\": {\n \"entries\": [{\"time\": 1, 2}]}}", "line 2, column 26 (byte 35): not JSON"},
      {"{\"log\": {\"entries\": [",
       "line 1, column 22 (byte 21): it ends before its objects and arrays are closed"},
      {"{\"log\": {\"entries\": [{\"time\": \"1", "line 1, column 33 (byte 32): it ends inside a string"},
      {"{\"log\": {\n\"a\\\"\": \"b\tc\", \"entries\": []}}",
       "line 2, column 10 (byte 19): a control character inside a string"},
      {"{\"log\": {\"a\xc3\xa9\": \"b\xe9g\"}}", "line 1, column 19 (byte 18): not UTF-8"},
      {"\xef\xbb\xbf{\"log\": {\"a\": \"\xff\"}}", "line 1, column 19 (byte 18): not UTF-8"},
      {"{\"log\": {\"entries\": []}}\n{}",
       "line 2, column 1 (byte 25): there is more after the end of the JSON document"},
      {"[]", "no HAR: the JSON document is not an object"},
      {"7", "no HAR: the JSON document is not an object"},
      {"{\"entries\": []}", "no HAR: it has no log"},
      {"{\"log\": []}", "no HAR: log is not an object"},
      {"{\"log\": {\"pages\": []}}", "no HAR: it has no log.entries"},
      {"{\"log\": {\"entries\": {}}}", "no HAR: log.entries is not an array"},
      {"{\"log\": {\"entries\": null}}", "no HAR: log.entries is not an array"},
  };
  for (const auto& row : cases) EXPECT_EQ(ErrorOf(row.text), "bad.har: " + row.error) << row.text;
}

TEST(HarReader, EveryTruncationIsAnError) {
  const std::string whole =
      Log(R"("creator": {"name": "x\n"}, "entries": [{"time": 1.5, "_initiator": {"stack":
      {"callFrames": [{"url": "http://a.test/"}]}}, "request": {"headers": [{"name": "A", "value": ""}]}}])");
  ASSERT_EQ(ErrorOf(whole), "none");
  for (size_t length = 0; length < whole.size(); ++length) {
    EXPECT_TRUE(ErrorOf(whole.substr(0, length)).starts_with("bad.har: ")) << length;
  }
}

TEST(HarReader, NothingToReplayIsNoError) {
  EXPECT_TRUE(ReadRows("").pages.empty());
  const Recording odd = ReadRows(R"(null, 7, [], {}, {"request": null, "response": []})");
  EXPECT_TRUE(odd.pages.empty());
  EXPECT_EQ(odd.skipped, (std::map<std::string, size_t>{{"no URL", 2}}));
}

TEST(HarReader, NamesTheRecording) {
  const Recording recording = ReadHar("\xef\xbb\xbf" + Log(R"("entries": [], "browser": {"name": "B"},
      "creator": {"version": "1.0", "name": "C"})"),
                                      "some.har");
  EXPECT_EQ(recording.name, "some.har");
  EXPECT_EQ(recording.creator, "C 1.0");
  EXPECT_EQ(recording.browser, "B");
}

TEST(HarReader, ReadsFilesByPath) {
  const std::string folder = ::testing::TempDir() + "har_reader_test";
  std::filesystem::create_directories(folder);
  const std::string path = folder + "/one.har";
  std::ofstream(path) << Log("\"entries\": [" + RowAt("x", "00:00") + "]");
  EXPECT_EQ(ReadHarFile(path).name, "one.har");
  EXPECT_EQ(ReadHarFile(path).pages.size(), 1u);
  std::ofstream(path) << "{";
  for (const std::string& bad : {path, folder, folder + "/none.har"}) {
    try {
      ReadHarFile(bad);
      ADD_FAILURE() << bad;
    } catch (const std::runtime_error& error) {
      EXPECT_TRUE(std::string(error.what()).starts_with(bad + ": ")) << error.what();
    }
  }
  std::filesystem::remove_all(folder);
}

// --- Rows that are left out.

TEST(HarReader, SkipsWhatCannotBeReplayed) {
  const auto withUrl = [](const std::string& url) {
    return R"("request": {"url": ")" + url + R"("}, "response": {"status": 200})";
  };
  const auto withResponse = [](const std::string& response) {
    return std::string(kUsualRequest) + ", \"response\": " + response;
  };
  const struct {
    std::string fields;
    std::string reason;
  } cases[] = {
      {withUrl(""), "no URL"},
      {R"("request": {"url": 7}, "response": {"status": 200})", "no URL"},
      {withUrl("data:image/png;base64,AAAA"), "data: URL"},
      {withUrl("about:blank"), "about: URL"},
      {withUrl("blob:http://a.test/1"), "blob: URL"},
      {withUrl("file:///etc/x.html"), "neither http nor https"},
      {withUrl("/images/a:b.png"), "no scheme in URL"},
      {withUrl("a.test"), "no scheme in URL"},
      {withUrl("http:///x"), "no host in URL"},
      {withUrl("http://a.test:port/"), "no host in URL"},
      {withUrl(R"(http://a.test/x\u0000y)"), "control character in URL"},
      {withUrl("WSS://a.test/"), "websocket"},
      {withUrl("http://a.test/") + R"(, "_resourceType": "websocket")", "websocket"},
      {withResponse(R"({"status": 101})"), "websocket"},
      {withResponse(R"({"status": 0})"), "status 0 or less"},
      {withResponse(R"({"status": -2})"), "status 0 or less"},
      {withResponse(R"({"status": 1e300})"), "no valid status"},
      {withResponse(R"({"status": 99})"), "no valid status"},
      {withResponse("{}"), "no response"},
      {withResponse("null"), "no response"},
      {kUsualRequest, "no response"},
      {R"("request": {"url": "http://a.test/", "method": "GET /"}, "response": {"status": 200})",
       "no valid method"},
  };
  for (const auto& row : cases) {
    const Recording recording = ReadRows("{" + row.fields + "}");
    EXPECT_TRUE(recording.pages.empty()) << row.fields;
    EXPECT_EQ(recording.skipped, (std::map<std::string, size_t>{{row.reason, 1}})) << row.fields;
  }
}

TEST(HarReader, TakesRowsThatTellLittle) {
  const Request sized = ReadOne(R"("request": {"url": "http://a.test/"}, "response": {"bodySize": 5})");
  EXPECT_EQ(sized.status, 200) << "answered, and nothing says otherwise";
  EXPECT_EQ(sized.method, "GET");
  EXPECT_EQ(sized.bodyBytes, 5);
  EXPECT_EQ(
      ReadOne(R"("request": {"url": "http://a.test/", "method": "post"}, "response": {"status": "404"})")
          .status,
      404);
  const std::string path(4096, 'x');
  EXPECT_EQ(
      ReadOne(R"("request": {"url": "http://a.test/)" + path + R"(#part"}, "response": {"status": 200})").url,
      "http://a.test/" + path);
}

// --- Times and pages.

TEST(HarReader, TimingsThatCannotBeAreUnknown) {
  const struct {
    std::string fields;
    double durationMs;
    double waitMs;
  } cases[] = {
      {R"("time": 60, "timings": {"wait": 20, "receive": 30})", 60, 20},
      {R"("timings": {"blocked": 1, "dns": 2, "connect": 4, "ssl": 3, "send": 8, "wait": 16, "receive": 32})",
       63, 16},
      {R"("time": -1, "timings": {"wait": 20, "receive": -1})", 20, 20},
      {R"("time": null, "timings": {"wait": null, "receive": 30})", 30, 0},
      {R"("time": "soon", "timings": {"wait": "20", "receive": []})", 20, 20},
      {R"("time": 63596250212317, "timings": {"wait": 20, "receive": 63596250212317})", 20, 20},
      {R"("time": 1e400, "timings": {"wait": 20})", 20, 20},
      {R"("time": 60, "timings": {})", 60, 0},
      {R"("timings": [])", 0, 0},
  };
  for (const auto& row : cases) {
    const Request request = ReadOne(row.fields + ", " + kUsualRequest + ", " + kUsualResponse);
    EXPECT_DOUBLE_EQ(request.endMs - request.startMs, row.durationMs) << row.fields;
    EXPECT_DOUBLE_EQ(request.waitMs, row.waitMs) << row.fields;
  }
}

TEST(HarReader, PutsRowsIntoPages) {
  const std::string first = R"({"id": "p1", "startedDateTime": "2020-01-01T00:00:00Z"})";
  const std::string second = R"({"id": "p2", "startedDateTime": "2020-01-01T00:10:00Z"})";
  const auto on = [](const std::string& page) { return R"(, "pageref": ")" + page + "\""; };
  const auto undated = [](const std::string& url, const std::string& more = "") {
    return R"({"startedDateTime": "SCRUBBED", "request": {"url": "http://a.test/)" + url +
           R"("}, "response": {"status": 200})" + more + "}";
  };
  const struct {
    const char* why;
    std::string pages;
    std::string rows;
    std::vector<std::string> stories;
  } cases[] = {
      {"by name, each from its own first request, in time's order",
       second + "," + first,
       RowAt("c", "10:01", on("p2")) + "," + RowAt("b", "00:01.250", on("p1")) + "," +
           RowAt("a", "00:01", on("p1")),
       {"p1: a@0 b@250", "p2: c@0"}},
      {"rows that name no page go by time",
       first + "," + second,
       RowAt("a", "00:00") + "," + RowAt("b", "09:59", on("gone")) + "," + RowAt("c", "10:00"),
       {"p1: a@0 b@599000", "p2: c@0"}},
      {"a row before every page goes to the first",
       first + "," + second,
       R"({"startedDateTime": "2019-12-31T23:59:59Z", "request": {"url": "http://a.test/a"},
           "response": {"status": 200}})",
       {"p1: a@0"}},
      {"a page begins with its first named row when that is earlier",
       first + "," + second,
       RowAt("a", "00:00", on("p1")) + "," + RowAt("b", "09:58", on("p2")) + "," + RowAt("c", "09:59"),
       {"p1: a@0", "p2: b@0 c@1000"}},
      {"one name for two pages",
       first + R"(, {"id": "p1", "startedDateTime": "2020-01-01T00:10:00Z"})",
       RowAt("a", "00:00", on("p1")) + "," + RowAt("b", "10:00", on("p1")),
       {"p1: a@0", "p1: b@0"}},
      {"pages that only rows know",
       "",
       RowAt("a", "00:00", on("x")) + "," + RowAt("b", "10:00", on("y")),
       {"x: a@0", "y: b@0"}},
      {"no pages at all", "", RowAt("b", "00:02") + "," + RowAt("a", "00:01"), {": a@0 b@1000"}},
      {"no dates at all: file order",
       R"({"id": "p1"})",
       undated("b", on("p1")) + "," + undated("a") + "," + undated("c", on("p1")),
       {"p1: b@0 a@0 c@0"}},
      {"an undated row follows the one before it",
       "",
       undated("a") + "," + RowAt("b", "00:05") + "," + RowAt("c", "00:06") + "," + undated("d") + "," +
           RowAt("e", "00:07"),
       {": a@0 b@0 c@1000 d@1000 e@2000"}},
      {"a date that is years off counts for none",
       "",
       RowAt("a", "00:05") + "," + RowAt("b", "00:06") +
           R"(, {"startedDateTime": "1970-01-01T00:00:00Z", "request": {"url": "http://a.test/c"},
                 "response": {"status": 200}},)" +
           RowAt("d", "00:07"),
       {": a@0 b@1000 c@1000 d@2000"}},
      {"zones",
       "",
       R"({"startedDateTime": "2020-01-01T01:00:00+01:00", "request": {"url": "http://a.test/a"},
           "response": {"status": 200}},)" +
           RowAt("b", "00:01"),
       {": a@0 b@1000"}},
  };
  for (const auto& row : cases) {
    // The pages come last: an object's fields have no order.
    const std::string text = Log("\"entries\": [" + row.rows + "], \"pages\": [" + row.pages + "]");
    EXPECT_EQ(Stories(ReadHar(text, "test")), row.stories) << row.why;
  }
}

TEST(HarReader, PageTimingsCountFromTheFirstRequest) {
  const struct {
    const char* started;
    const char* onLoad;
    double expected;
  } cases[] = {
      {"2020-01-01T00:00:00Z", "5000", 4000},  // a second before the request
      {"2020-01-01T00:00:02Z", "5000", 6000},  // a second after
      {"2020-01-01T00:00:00Z", "500", -1},     // over before it began
      {"2020-01-01T00:30:00Z", "5000", 5000},  // no start of this page
      {"SCRUBBED", "5000", 5000},
      {"2020-01-01T00:00:00Z", "-1", -1},
      {"2020-01-01T00:00:00Z", "0", -1},
      {"2020-01-01T00:00:00Z", "null", -1},
  };
  for (const auto& row : cases) {
    const std::string page = std::string(R"({"id": "p", "title": "T", "startedDateTime": ")") + row.started +
                             R"(", "pageTimings": {"onLoad": )" + row.onLoad + "}}";
    const Recording recording = ReadHar(
        Log("\"pages\": [" + page + "], \"entries\": [" + RowAt("a", "00:01", R"(, "pageref": "p")") + "]"),
        "test");
    ASSERT_EQ(recording.pages.size(), 1u);
    EXPECT_EQ(recording.pages[0].onLoadMs, row.expected) << row.started << ' ' << row.onLoad;
    EXPECT_EQ(recording.pages[0].onContentLoadMs, -1);
    EXPECT_EQ(recording.pages[0].title, "T");
  }
}

TEST(HarReader, TheDocumentIsTheFirstHtmlThatCame) {
  const auto row = [](int status, const std::string& type) {
    return R"({"request": {"url": "http://a.test/"}, "response": {"status": )" + std::to_string(status) +
           R"(, "content": {"mimeType": ")" + type + "\"}}}";
  };
  const Recording redirected = ReadRows(row(302, "") + "," + row(404, "text/html") + "," +
                                        row(200, "TEXT/HTML; charset=utf-8") + "," + row(200, "text/html"));
  EXPECT_EQ(redirected.pages.at(0).document, 2u);
  EXPECT_EQ(redirected.pages.at(0).requests[0].kind, ResourceKind::Document) << "it leads there";
  const Recording none = ReadRows(row(302, "text/html") + "," + row(200, "image/png"));
  EXPECT_EQ(none.pages.at(0).document, 0u);
  EXPECT_EQ(none.pages.at(0).requests[0].kind, ResourceKind::Other);
}

// --- The fields of a request.

TEST(HarReader, TellsProtocols) {
  const struct {
    std::string fields;  // of the entry
    std::string requestVersion;
    std::string responseVersion;
    Protocol protocol;
  } cases[] = {
      {"", "HTTP/1.1", "HTTP/1.1", Protocol::Http1},
      {"", "", "http/1.0", Protocol::Http1},
      {"", "", "h2", Protocol::Http2},
      {"", "", "HTTP/2.0", Protocol::Http2},
      {"", "", "spdy", Protocol::Http2},
      {"", "", "http/2.0+quic/46", Protocol::Http3},
      {"", "", "h3-29", Protocol::Http3},
      {"", "h2", "unknown", Protocol::Http2},
      {"", "me:", "us:", Protocol::Http1},
      {R"("_protocol": "h3", )", "HTTP/1.1", "HTTP/1.1", Protocol::Http3},
      {R"("_protocol": "TCP", )", "h2", "", Protocol::Http2},
      {R"("_protocol": 2, )", "", "", Protocol::Http1},
  };
  for (const auto& row : cases) {
    const Request request =
        ReadOne(row.fields + R"("request": {"url": "http://a.test/", "httpVersion": ")" + row.requestVersion +
                R"("}, "response": {"status": 200, "httpVersion": ")" + row.responseVersion + "\"}");
    EXPECT_EQ(request.protocol, row.protocol)
        << row.fields << row.requestVersion << ' ' << row.responseVersion;
  }
  EXPECT_EQ(
      ReadOne(R"("response": {"status": 200, "httpVersion": "HTTP/1.1"}, "request": {"url": "http://a.test/",
                       "headers": [{"name": ":method", "value": "GET"}]})")
          .protocol,
      Protocol::Http2)
      << "pseudo headers tell more than the version";
}

TEST(HarReader, TellsKinds) {
  const std::string kDocument =
      R"({"request": {"url": "http://a.test/"}, "response": {"status": 200, "content":
      {"mimeType": "text/html"}}})";
  const struct {
    std::string entry;
    std::string requestHeaders;
    std::string url;
    int status;
    std::string mimeType;
    ResourceKind kind;
  } cases[] = {
      {R"("_resourceType": "Stylesheet", )", "", "x.js", 200, "image/png", ResourceKind::Stylesheet},
      {R"("_resourceType": "other", )", "", "x", 200, "image/x-icon", ResourceKind::Image},
      {"", R"({"name": "Sec-Fetch-Dest", "value": "empty"})", "x", 200, "text/html", ResourceKind::Data},
      {"", R"({"name": "Sec-Fetch-Dest", "value": "iframe"})", "x", 200, "text/plain",
       ResourceKind::Document},
      {"", "", "x", 200, "text/html; charset=x", ResourceKind::Document},
      {"", R"({"name": "accept", "value": "text/html,*/*"})", "x", 200, "text/html", ResourceKind::Document},
      {"", R"({"name": "accept", "value": "application/json, */*"})", "x", 200, "text/html",
       ResourceKind::Data},
      {"", "", "x.gif?y.js", 404, "text/html", ResourceKind::Image},
      {"", "", "x", 204, "text/html", ResourceKind::Other},
      {"", "", "x", 200, "application/x-javascript", ResourceKind::Script},
      {"", "", "x", 200, "image/svg+xml", ResourceKind::Image},
      {"", "", "x", 200, "application/font-woff2", ResourceKind::Font},
      {"", "", "x", 200, "audio/ogg", ResourceKind::Media},
      {"", "", "x", 200, "application/rss+xml", ResourceKind::Data},
      {"", "", "a/b.WOFF2?v=1.2", 200, "application/octet-stream", ResourceKind::Font},
      {"", "", "v1.js/x", 200, "", ResourceKind::Other},
  };
  for (const auto& row : cases) {
    // Not the first HTML row: that one is the document.
    const Recording recording =
        ReadRows(kDocument + ", {" + row.entry + R"("request": {"url": "http://a.test/)" + row.url +
                 R"(", "headers": [)" + row.requestHeaders + R"(]}, "response": {"status": )" +
                 std::to_string(row.status) + R"(, "content": {"mimeType": ")" + row.mimeType + "\"}}}");
    EXPECT_EQ(recording.pages.at(0).requests.at(1).kind, row.kind) << row.url << ' ' << row.mimeType;
  }
}

TEST(HarReader, TheWireSizeIsTheBestThatTheRowTells) {
  const std::string length = R"("headers": [{"name": "content-length", "value": "10"}], )";
  const struct {
    std::string entry;
    std::string response;
    int64_t bytes;
  } cases[] = {
      {R"("_objectSize": 20, )", length + R"("status": 200, "bodySize": 40)", 10},
      {R"("_objectSize": "20", "_bytesIn": 25, )", R"("status": 200, "bodySize": 40)", 20},
      {"", R"("status": 200, "_transferSize": 130, "headersSize": 100, "bodySize": 40)", 30},
      {"", R"("status": 200, "_transferSize": 30, "headersSize": -1, "bodySize": 40)", 30},
      {"", R"("status": 200, "_transferSize": 90, "headersSize": 100, "bodySize": 40)", 40},
      {R"("_bytesIn": 135, )", R"("status": 200, "headersSize": 100, "bodySize": 40)", 35},
      {"", R"("status": 200, "bodySize": -1, "content": {"size": 50})", 50},
      {"", R"("status": 200, "bodySize": 1e18, "content": {"size": null})", 0},
      {"", R"("status": 200, "headers": [{"name": "Content-Length", "value": "9000000000000000000"}],
              "content": {"size": 50})",
       50},
      {"", R"("status": 200, "headers": [{"name": "Content-Length", "value": "0"}], "content": {"size": 50})",
       0},
      {"", length + R"("status": 304)", 0},
  };
  for (const auto& row : cases) {
    const Request request = ReadOne(row.entry + kUsualRequest + R"(, "response": {)" + row.response + "}");
    EXPECT_EQ(request.bodyBytes, row.bytes) << row.entry << row.response;
  }
  const Request renewed =
      ReadOne(std::string(kUsualRequest) + R"(, "response": {)" + length + R"("status": 304})");
  EXPECT_EQ(renewed.declaredLength, 10) << "declared, though not sent";
}

TEST(HarReader, CleansHeaders) {
  const Request request = ReadOne(R"(
      "request": {"url": "http://a.test/", "headers": [
        {"name": ":method", "value": "GET"}, {"name": "Host", "value": " a.test "}, {"name": "Referer",
        "value": "http://b.test/#top"}, {"name": "X", "value": "1\r\nForged: 2\u0000"}, {"value": "nameless"},
        {"name": "Bad name", "value": "x"}, {"name": "cookie", "value": "a=1"}, {"name": "Cookie", "value": "b=2"},
        {"name": "x", "value": "3"}, {"name": "Empty"}, {"name": "Odd", "value": "\u00e9\ud800"}, 7]},
      "response": {"status": 200, "statusText": "O\nK", "headers": [
        {"name": ":status", "value": "200"}, {"name": "Cache-Control", "value": "max-age=60\nprivate"},
        {"name": "A:b", "value": "x"}, {"name": "Set-Cookie", "value": "a"}, {"name": "Set-Cookie", "value": "b\u0000c\r"},
        {"name": "Content-Length", "value": "12"}]})");
  EXPECT_EQ(
      request.requestHeaders,
      "Host: a.test\r\nReferer: http://b.test/#top\r\nX: 1  Forged: 2, 3\r\ncookie: a=1; b=2\r\nEmpty:\r\n"
      "Odd: \\u00e9\\ud800\r\n\r\n");
  EXPECT_EQ(request.referer, "http://b.test/");
  std::string lines = request.responseHeaders;
  std::replace(lines.begin(), lines.end(), '\0', '|');
  EXPECT_EQ(lines,
            "HTTP/1.1 200 OK|Cache-Control: max-age=60|Cache-Control: private|Set-Cookie: a|Set-Cookie: bc|"
            "Content-Length: 12||");
  EXPECT_EQ(request.declaredLength, 12);
  EXPECT_EQ(request.freshForMs, 60e3);
}

TEST(HarReader, MimeTypesComeFromTheHeaderWhenTheRowHasNone) {
  const std::string header = R"("headers": [{"name": "Content-Type", "value": "text/CSS ; charset=x"}])";
  EXPECT_EQ(
      ReadOne(kUsualRequest +
              (R"(, "response": {"status": 200, "content": {"mimeType": "x-unknown"}, )" + header + "}"))
          .mimeType,
      "text/css");
  EXPECT_EQ(ReadOne(kUsualRequest + std::string(R"(, "response": {"status": 200, "content": {"mimeType":
                                                   "Content-Type: Application/JSON"}})"))
                .mimeType,
            "application/json");
}

TEST(HarReader, FindsTheInitiator) {
  const std::string deep = R"({"callFrames": [{"url": ""}, {"url": "native"}, {"url": "http://a.test/top.js"},
                                              {"url": "http://a.test/caller.js"}]})";
  std::string nested = deep;
  for (int level = 0; level < 3; ++level)
    nested = R"({"parent": )" + nested + R"(, "callFrames": [{"url": ""}]})";
  std::string bottomless = deep;
  for (int level = 0; level < 5000; ++level) bottomless = R"({"parent": )" + bottomless + "}";
  const struct {
    std::string initiator;
    std::string url;
  } cases[] = {
      {R"("http://a.test/page#x")", "http://a.test/page"},
      {R"("http:\/\/a.test\/page")", "http://a.test/page"},
      {R"("Parser / Other")", ""},
      {R"({"type": "parser", "url": "http://a.test/page", "lineNumber": 3})", "http://a.test/page"},
      {R"({"type": "script", "stack": )" + deep + "}", "http://a.test/top.js"},
      {R"({"type": "script", "stack": )" + nested + R"(, "url": 7})", "http://a.test/top.js"},
      {R"({"stack": )" + bottomless + "}", ""},
      {R"({"type": "other"})", ""},
      {R"("http://a.test/")", ""},  // itself
      {"null", ""},
      {R"(["http://a.test/page"])", ""},
  };
  for (const auto& row : cases) {
    const Request request =
        ReadOne("\"_initiator\": " + row.initiator + ", " + kUsualRequest + ", " + kUsualResponse);
    EXPECT_EQ(request.initiatorUrl, row.url) << row.initiator.substr(0, 200);
  }
}

}  // namespace
}  // namespace replay
