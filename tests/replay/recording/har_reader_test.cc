// Recordings in every state of repair: what becomes a request, what is skipped, what is refused.
// The samples are JSON with ' for its quotation marks.
#include "replay/recording/har_reader.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/temporary_folder.h"
#include "tests/support/text.h"

namespace replay {
namespace {

using host::ResourceKind;

std::string Json(std::string sample) {
  std::replace(sample.begin(), sample.end(), '\'', '"');
  return sample;
}

Recording ReadRows(const std::string& rows, const std::string& more = "") {
  return ReadHar(Json("{'log': {'entries': [" + rows + "]" + more + "}}"), "test");
}

// `fields` and `request` end with a comma, or are empty.
std::string RowOf(const std::string& fields, const std::string& request = "",
                  const std::string& response = "'status': 200", const std::string& path = "") {
  return "{" + fields + "'request': {" + request + "'url': 'http://a.test/" + path + "'}, 'response': {" +
         response + "}}";
}

Request ReadOne(const std::string& row) {
  const Recording recording = ReadRows(row);
  if (recording.pages.size() == 1 && recording.pages[0].requests.size() == 1) {
    return recording.pages[0].requests[0];
  }
  ADD_FAILURE() << "not one request: " << row;
  return {};
}

// A row that started at a time of a fixed hour ("00:05.250"), or at what is no such time.
struct Start {
  std::string path, time;
  std::string page = "";

  std::string Row() const {
    const std::string date = time[2] == ':' ? "2020-01-01T00:" + time + "Z" : time;
    const std::string pageref = page.empty() ? "" : "'pageref': '" + page + "', ";
    return RowOf("'startedDateTime': '" + date + "', " + pageref, "", "'status': 200", path);
  }
};

// The pages, with the ends of their requests' URLs and the starts of these: "p1: a@0 b@250".
std::vector<std::string> Stories(const Recording& recording) {
  std::vector<std::string> stories;
  for (const Page& page : recording.pages) {
    std::string& story = stories.emplace_back(page.id + ":");
    for (const Request& request : page.requests) {
      story += " " + request.url.substr(request.url.rfind('/') + 1) + "@" +
               std::to_string(static_cast<long>(request.startMs + 0.5));
    }
  }
  return stories;
}

std::string ErrorOf(const std::string& sample) {
  return tests::ErrorOf([&] { ReadHar(Json(sample), "bad.har"); });
}

TEST(HarReader, RefusesWhatIsNoHar) {
  const struct {
    std::string sample, error;
  } cases[] = {
      // clang-format off
      {"", "line 1, column 1 (byte 0): the file is empty"},
      {"callback {'log': {'entries': []}}", "line 1, column 1 (byte 0): not JSON"},
      {"{'log': {\n 'entries': [{}\n {}]}}", "line 3, column 2 (byte 27): not JSON"},
      {"{'log': {\n 'entries': [{'time': 1, 2}]}}", "line 2, column 26 (byte 35): not JSON"},
      {"{'log': {'entries': [", "line 1, column 22 (byte 21): the file ends before its objects and arrays are closed"},
      {"{'log': {'entries': [{'time': '1", "line 1, column 33 (byte 32): the file ends inside a string"},
      {"{'log': {\n'a\\'': 'b\tc', 'entries': []}}",
       "line 2, column 10 (byte 19): a string contains a control character"},
      {"{'log': {'a\xc3\xa9': 'b\xe9g'}}", "line 1, column 19 (byte 18): not UTF-8"},
      {"\xef\xbb\xbf{'log': {'a': '\xff'}}", "line 1, column 19 (byte 18): not UTF-8"},
      {"{'log': {'entries': []}}\n{}",
       "line 2, column 1 (byte 25): there is more text after the end of the JSON document"},
      {"[]", "not a HAR file: the JSON document is not an object"},
      {"{'entry': []}", "not a HAR file: log is missing"},
      {"{'log': []}", "not a HAR file: log is not an object"},
      {"{'log': {'pages': []}}", "not a HAR file: log.entries is missing"},
      {"{'log': {'entries': {}}}", "not a HAR file: log.entries is not an array"},
      // clang-format on
  };
  for (const auto& row : cases) EXPECT_EQ(ErrorOf(row.sample), "bad.har: " + row.error) << row.sample;
}

TEST(HarReader, RefusesNumbersThatNoFigureCanBeMadeOf) {
  const struct {
    std::string number;
    bool refused;
  } cases[] = {{"'nan'", true},  {"'-inf'", true},  {"'1e999'", true}, {"1e999", true},
               {"-1e999", true}, {"nan", true},     {"'1e9x'", false}, {"'200'", false},
               {"''", false},    {"'none'", false}, {"1e300", false},  {"null", false}};
  for (const auto& row : cases) {
    for (const std::string field : {"'status': ", "'bodySize': "}) {
      const std::string before =
          "{'log': {\n'entries': [{'request': {'url': 'http://a.test/'}, 'response': {" + field;
      const std::string place = "line 2, column " + std::to_string(before.size() - 9) + " (byte " +
                                std::to_string(before.size()) + "): not a finite number";
      EXPECT_EQ(ErrorOf(before + row.number + "}}]}}"), row.refused ? "bad.har: " + place : "none")
          << row.number;
    }
  }
}

TEST(HarReader, EveryTruncationIsAnError) {
  const std::string whole =
      R"({'log': {'creator': {'name': 'x\n'}, 'entries': [{'time': 1.5, '_initiator': {'stack': {'callFrames':
         [{'url': 'http://a.test/'}]}}, 'request': {'headers': [{'name': 'A', 'value': ''}]}}]}})";
  ASSERT_EQ(ErrorOf(whole), "none");
  for (size_t length = 0; length < whole.size(); ++length) {
    EXPECT_TRUE(ErrorOf(whole.substr(0, length)).starts_with("bad.har: ")) << length;
  }
}

TEST(HarReader, ReadsFilesByPath) {
  const tests::TemporaryFolder folder;
  const std::string path = folder.Write(
      "one.har", "\xef\xbb\xbf" + Json("{'log': {'entries': [" + Start{"x", "00:00"}.Row() + R"(],
      'browser': {'name': 'B'}, 'creator': {'version': '1.0', 'name': 'C'}}})"));
  const Recording recording = ReadHarFile(path);
  EXPECT_EQ(recording.name, "one.har");
  EXPECT_EQ(recording.creator, "C 1.0");
  EXPECT_EQ(recording.browser, "B");
  EXPECT_EQ(recording.pages.size(), 1u);
  for (const std::string& bad : {folder.Write("bad.har", "{"), folder.Path(), folder.File("none.har")}) {
    const std::string error = tests::ErrorOf([&] { ReadHarFile(bad); });
    EXPECT_TRUE(error.starts_with(bad + ": ")) << error;
  }
}

TEST(HarReader, SkipsWhatCannotBeReplayed) {
  const auto withUrl = [](const std::string& url) {
    return "{'request': {'url': '" + url + "'}, 'response': {'status': 200}}";
  };
  const auto withStatus = [](const std::string& status) { return RowOf("", "", "'status': " + status); };
  const std::map<std::string, std::vector<std::string>> cases = {
      // clang-format off
      {"no URL", {withUrl(""), "{'request': {'url': 7}, 'response': {}}",
       "null, 7, [], {'request': null, 'response': []}"}},
      {"data: URL", {withUrl("data:image/png;base64,AAAA")}},
      {"about: URL", {withUrl("about:blank")}},
      {"blob: URL", {withUrl("blob:http://a.test/1")}},
      {"neither http nor https", {withUrl("file:///etc/x.html")}},
      {"no scheme in URL", {withUrl("/images/a:b.png"), withUrl("a.test")}},
      {"no host in URL", {withUrl("http:///x"), withUrl("http://a.test:port/")}},
      {"control character in URL", {withUrl(R"(http://a.test/x\u0000y)")}},
      {"websocket", {withUrl("WSS://a.test/"), RowOf("'_resourceType': 'websocket', "), withStatus("101")}},
      {"status 0 or less", {withStatus("0"), withStatus("-2")}},
      {"no valid status", {withStatus("1e300"), withStatus("99")}},
      {"no response", {RowOf("", "", ""), "{'request': {'url': 'http://a.test/'}, 'response': null}",
                       "{'request': {'url': 'http://a.test/'}}"}},
      {"tunnel of a proxy", {RowOf("", "'method': 'CONNECT', ")}},
      {"no valid method", {RowOf("", "'method': 'GET /', ")}},
      // clang-format on
  };
  for (const auto& [reason, rows] : cases) {
    for (const std::string& row : rows) {
      const Recording recording = ReadRows(row);
      EXPECT_TRUE(recording.pages.empty()) << row;
      EXPECT_EQ(recording.skipped, (std::map<std::string, size_t>{{reason, 1}})) << row;
    }
  }
}

TEST(HarReader, TakesRowsThatTellLittle) {
  const Request sized = ReadOne(RowOf("", "", "'bodySize': 5"));
  EXPECT_EQ(sized.status, 200) << "answered, and nothing says otherwise";
  EXPECT_EQ(sized.method, "GET");
  EXPECT_EQ(sized.bodyBytes, 5);
  const std::string path(4096, 'x');
  const Request odd = ReadOne(RowOf("", "'method': 'post', ", "'status': '404'", path + "#part"));
  EXPECT_EQ(odd.status, 404);
  EXPECT_EQ(odd.url, "http://a.test/" + path);
}

TEST(HarReader, TimingsThatCannotBeAreUnknown) {
  const struct {
    std::string fields;
    double durationMs, waitMs;
  } cases[] = {
      // clang-format off
      {"'time': 60, 'timings': {'wait': 20, 'receive': 30}, ", 60, 20},
      {"'timings': {'blocked': 1, 'dns': 2, 'connect': 4, 'ssl': 3, 'send': 8, 'wait': 16, 'receive': 32}, ", 63, 16},
      {"'time': -1, 'timings': {'wait': 20, 'receive': -1}, ", 20, 20},
      {"'time': null, 'timings': {'wait': null, 'receive': 30}, ", 30, 0},
      {"'time': 'soon', 'timings': {'wait': '20', 'receive': []}, ", 20, 20},
      {"'time': 63596250212317, 'timings': {'wait': 20, 'receive': 63596250212317}, ", 20, 20},
      {"'time': 60, 'timings': {}, ", 60, 0},
      {"'timings': [], ", 0, 0},
      // clang-format on
  };
  for (const auto& row : cases) {
    const Request request = ReadOne(RowOf(row.fields));
    EXPECT_DOUBLE_EQ(request.endMs - request.startMs, row.durationMs) << row.fields;
    EXPECT_DOUBLE_EQ(request.waitMs, row.waitMs) << row.fields;
  }
}

TEST(HarReader, PutsRowsIntoPages) {
  const std::string first = "{'id': 'p1', 'startedDateTime': '2020-01-01T00:00:00Z'}";
  const std::string second = "{'id': 'p2', 'startedDateTime': '2020-01-01T00:10:00Z'}";
  const std::string both = first + "," + second;
  const std::string sameName = first + ", {'id': 'p1', 'startedDateTime': '2020-01-01T00:10:00Z'}";
  const std::string no = "SCRUBBED";
  const struct {
    const char* why;
    std::string pages;
    std::vector<Start> rows;
    std::vector<std::string> stories;
  } cases[] = {
      // clang-format off
      {"by name, each from its own first request, in time's order", second + "," + first,
       {{"c", "10:01", "p2"}, {"b", "00:01.250", "p1"}, {"a", "00:01", "p1"}}, {"p1: a@0 b@250", "p2: c@0"}},
      {"rows that name no page go by time", both,
       {{"a", "00:00"}, {"b", "09:59", "gone"}, {"c", "10:00"}}, {"p1: a@0 b@599000", "p2: c@0"}},
      {"a row before every page goes to the first", both, {{"a", "2019-12-31T23:59:59Z"}}, {"p1: a@0"}},
      {"a page begins with its first named row when that is earlier", both,
       {{"a", "00:00", "p1"}, {"b", "09:58", "p2"}, {"c", "09:59"}}, {"p1: a@0", "p2: b@0 c@1000"}},
      {"pages that start together", first + ", {'id': 'p2', 'startedDateTime': '2020-01-01T00:00:00Z'}",
       {{"a", "00:00", "p1"}, {"b", "00:01"}, {"c", "00:02", "p2"}, {"d", "00:03"}, {"e", "00:04", "p1"}, {"f", "00:05"}},
       {"p1: a@0 b@1000 e@4000 f@5000", "p2: c@0 d@1000"}},
      {"one name for two pages", sameName, {{"a", "00:00", "p1"}, {"b", "10:00", "p1"}}, {"p1: a@0", "p1: b@0"}},
      {"pages that only rows know", "", {{"a", "00:00", "x"}, {"b", "10:00", "y"}}, {"x: a@0", "y: b@0"}},
      {"no pages, and zones", "", {{"b", "00:02"}, {"a", "2020-01-01T01:00:01+01:00"}}, {": a@0 b@1000"}},
      {"no dates at all: file order", "{'id': 'p1'}",
       {{"b", no, "p1"}, {"a", no}, {"c", no, "p1"}}, {"p1: b@0 a@0 c@0"}},
      {"an undated row follows the one before it", "",
       {{"a", no}, {"b", "00:05"}, {"c", "00:06"}, {"d", no}, {"e", "00:07"}}, {": a@0 b@0 c@1000 d@1000 e@2000"}},
      {"a date that is years off counts for none", "",
       {{"a", "00:05"}, {"b", "00:06"}, {"c", "1970-01-01T00:00:00Z"}, {"d", "00:07"}},
       {": a@0 b@1000 c@1000 d@2000"}},
      {"nothing to replay", first, {}, {}},
      // clang-format on
  };
  for (const auto& row : cases) {
    std::string rows;
    for (const Start& start : row.rows) rows += (rows.empty() ? "" : ",") + start.Row();
    // The pages come last: an object's fields have no order.
    EXPECT_EQ(Stories(ReadRows(rows, ", 'pages': [" + row.pages + "]")), row.stories) << row.why;
  }
}

TEST(HarReader, PageTimingsCountFromTheFirstRequest) {
  const struct {
    std::string started, onLoad;
    double expected;
  } cases[] = {
      {"2020-01-01T00:00:00Z", "5000", 4000},  // a second before the request
      {"2020-01-01T00:00:02Z", "5000", 6000},  // a second after
      {"2020-01-01T00:00:00Z", "500", -1},     // over before it began
      {"2020-01-01T00:30:00Z", "5000", 5000},  // no start of this page
      {"SCRUBBED", "5000", 5000},
      {"2020-01-01T00:00:00Z", "0", -1},
      {"2020-01-01T00:00:00Z", "null", -1},
  };
  for (const auto& row : cases) {
    const Recording recording =
        ReadRows(Start{"a", "00:01", "p"}.Row(),
                 ", 'pages': [{'id': 'p', 'title': 'T', 'startedDateTime': '" + row.started +
                     "', 'pageTimings': {'onLoad': " + row.onLoad + "}}]");
    ASSERT_EQ(recording.pages.size(), 1u);
    EXPECT_EQ(recording.pages[0].onLoadMs, row.expected) << row.started << ' ' << row.onLoad;
    EXPECT_EQ(recording.pages[0].onContentLoadMs, -1);
    EXPECT_EQ(recording.pages[0].title, "T");
  }
}

TEST(HarReader, FirstPaintAndDomContentLoadedByTheirManyNames) {
  const struct {
    std::string timings, page;
    double paintMs, contentLoadedMs;
  } cases[] = {
      {"'onContentLoad': 700, '_firstPaint': 500", "", 500, 700},
      {"'_firstContentfulPaint': 600, '_firstPaint': 500, '_startRender': 400", "", 500, -1},
      {"'_startRender': 400", ", '_firstPaint': 450", 450, -1},  // the better name counts wherever it stands
      {"'_firstPaint': -1", ", '_render': 300", 300, -1},
      {"'_firstPaint': 0", ", '_firstPaint': 'soon'", -1, -1},
      {"'onContentLoad': -1", ", '_domContentLoadedEventStart': 800", -1, 800},
      {"'onContentLoad': 700", ", '_domContentLoadedEventStart': 800", -1, 700},
  };
  for (const auto& row : cases) {
    const Recording recording =
        ReadRows(Start{"a", "00:01", "p"}.Row(),
                 ", 'pages': [{'id': 'p', 'startedDateTime': '2020-01-01T00:00:01Z', 'pageTimings': {" +
                     row.timings + "}" + row.page + "}]");
    ASSERT_EQ(recording.pages.size(), 1u);
    EXPECT_EQ(recording.pages[0].firstPaintMs, row.paintMs) << row.timings << row.page;
    EXPECT_EQ(recording.pages[0].onContentLoadMs, row.contentLoadedMs) << row.timings << row.page;
  }
}

TEST(HarReader, TheDocumentIsTheFirstHtmlThatCame) {
  const auto row = [](const std::string& status, const std::string& type) {
    return RowOf("", "", "'status': " + status + ", 'content': {'mimeType': '" + type + "'}");
  };
  const std::string came = row("200", "TEXT/HTML; charset=utf-8") + "," + row("200", "text/html");
  const Page page = ReadRows(row("302", "") + "," + row("404", "text/html") + "," + came).pages.at(0);
  EXPECT_EQ(page.document, 2u);
  EXPECT_EQ(page.requests[0].kind, ResourceKind::Document) << "it leads there";
  EXPECT_EQ(ReadRows(row("204", "") + "," + came).pages.at(0).document, 1u) << "not the page's own";
  std::string many;
  for (int rows = 0; rows < 11; ++rows) many += row("200", "image/png") + ",";
  EXPECT_EQ(ReadRows(many + came).pages.at(0).document, 0u) << "a frame far down the page";
  const Page none = ReadRows(row("302", "text/html") + "," + row("200", "image/png")).pages.at(0);
  EXPECT_EQ(none.document, 0u);
  EXPECT_EQ(none.requests[0].kind, ResourceKind::Other);
}

TEST(HarReader, TheDocumentIsWhereTheNavigationEnds) {
  const std::string html = "'status': 200, 'content': {'mimeType': 'text/html'}";
  const auto to = [](const std::string& location) {
    return "'status': 302, 'headers': [{'name': 'Location', 'value': '" + location + "'}]";
  };
  const auto by = [](const std::string& header, const std::string& path) {
    return "'headers': [{'name': '" + header + "', 'value': 'http://a.test/" + path + "'}], ";
  };
  const std::string image = RowOf("", "", "'status': 200, 'content': {'mimeType': 'image/png'}", "image");
  const struct {
    std::vector<std::string> rows;
    size_t document;
    const char* why;
  } cases[] = {
      {{RowOf("", "", to("/b")), image, RowOf("", "", to("http://a.test/c"), "b"), RowOf("", "", html, "c")},
       3,
       "redirects lead to it"},
      {{RowOf("", "", "'status': 304", "page"), RowOf("", by("Referer", "page"), html, "frame")},
       0,
       "it was revalidated, and has a frame"},
      {{RowOf("", "", to("/b")), RowOf("", "", "'status': 304", "b"),
        RowOf("", by("Referer", "b"), html, "frame")},
       1,
       "both"},
      {{image, RowOf("", by("Referer", "elsewhere"), html, "page")}, 1, "a link led to it"},
      {{RowOf("", "", to("/page")), RowOf("", "", to("/page"), "other"),
        RowOf("", by("Referer", ""), html, "page")},
       2,
       "a redirect is no page that calls for a frame"},
  };
  for (const auto& row : cases) {
    std::string rows;
    for (const std::string& one : row.rows) rows += (rows.empty() ? "" : ",") + one;
    EXPECT_EQ(ReadRows(rows).pages.at(0).document, row.document) << row.why;
  }
}

TEST(HarReader, TellsProtocols) {
  const struct {
    std::string entry, requestVersion, responseVersion;
    Protocol protocol;
    std::string headers = "";
  } cases[] = {
      // clang-format off
      {"", "HTTP/1.1", "HTTP/1.1", Protocol::Http1}, {"", "", "http/1.0", Protocol::Http1},
      {"", "", "h2", Protocol::Http2}, {"", "", "HTTP/2.0", Protocol::Http2}, {"", "", "spdy", Protocol::Http2},
      {"", "", "http/2.0+quic/46", Protocol::Http3}, {"", "", "h3-29", Protocol::Http3},
      {"", "h2", "unknown", Protocol::Http2}, {"", "me:", "us:", Protocol::Http1},
      {"'_protocol': 'h3', ", "HTTP/1.1", "HTTP/1.1", Protocol::Http3},
      {"'_protocol': 'TCP', ", "h2", "", Protocol::Http2}, {"'_protocol': 2, ", "", "", Protocol::Http1},
      {"", "", "HTTP/1.1", Protocol::Http2, "{'name': ':method', 'value': 'GET'}"},
      // clang-format on
  };
  for (const auto& row : cases) {
    const std::string request =
        "'httpVersion': '" + row.requestVersion + "', 'headers': [" + row.headers + "], ";
    const std::string response = "'status': 200, 'httpVersion': '" + row.responseVersion + "'";
    EXPECT_EQ(ReadOne(RowOf(row.entry, request, response)).protocol, row.protocol)
        << row.entry << request << response;
  }
}

TEST(HarReader, TellsKinds) {
  using enum ResourceKind;
  const std::string empty = "{'name': 'Sec-Fetch-Dest', 'value': 'empty'}";
  const std::string iframe = "{'name': 'Sec-Fetch-Dest', 'value': 'iframe'}";
  const std::string wantsHtml = "{'name': 'accept', 'value': 'text/html,*/*'}";
  const std::string wantsJson = "{'name': 'accept', 'value': 'application/json, */*'}";
  const struct {
    std::string type, headers, path, status, mimeType;
    ResourceKind kind;
  } cases[] = {
      // clang-format off
      {"Stylesheet", "", "x.js", "200", "image/png", Stylesheet}, {"other", "", "x", "200", "image/x-icon", Image},
      {"", empty, "x", "200", "text/html", Data}, {"", iframe, "x", "200", "text/plain", Document},
      {"", "", "x", "200", "text/html; charset=x", Document}, {"", wantsHtml, "x", "200", "text/html", Document},
      {"", wantsJson, "x", "200", "text/html", Data}, {"", "", "x.gif?y.js", "404", "text/html", Image},
      {"", "", "x", "204", "text/html", Other}, {"", "", "x", "200", "application/x-javascript", Script},
      {"", "", "x", "200", "image/svg+xml", Image}, {"", "", "x", "200", "application/font-woff2", Font},
      {"", "", "x", "200", "audio/ogg", Media}, {"", "", "x", "200", "application/rss+xml", Data},
      {"", "", "a/b.WOFF2?v=1.2", "200", "application/octet-stream", Font}, {"", "", "v1.js/x", "200", "", Other},
      // clang-format on
  };
  for (const auto& row : cases) {
    // Not the first HTML row: that one is the document.
    const Recording recording = ReadRows(
        RowOf("", "", "'status': 200, 'content': {'mimeType': 'text/html'}") + "," +
        RowOf(row.type.empty() ? "" : "'_resourceType': '" + row.type + "', ",
              "'headers': [" + row.headers + "], ",
              "'status': " + row.status + ", 'content': {'mimeType': '" + row.mimeType + "'}", row.path));
    EXPECT_EQ(recording.pages.at(0).requests.at(1).kind, row.kind) << row.path << ' ' << row.mimeType;
  }
}

TEST(HarReader, TheWireSizeIsTheBestThatTheRowTells) {
  const auto length = [](const std::string& value) {
    return "'status': 200, 'headers': [{'name': 'content-length', 'value': '" + value + "'}], ";
  };
  const struct {
    std::string entry, response;
    int64_t bytes;
  } cases[] = {
      {"'_objectSize': 20, ", length("10") + "'bodySize': 40", 10},
      {"'_objectSize': '20', '_bytesIn': 25, ", "'bodySize': 40", 20},
      {"", "'_transferSize': 130, 'headersSize': 100, 'bodySize': 40", 30},
      {"", "'_transferSize': 30, 'headersSize': -1, 'bodySize': 40", 30},
      {"", "'_transferSize': 90, 'headersSize': 100, 'bodySize': 40", 40},
      {"'_bytesIn': 135, ", "'headersSize': 100, 'bodySize': 40", 35},
      {"", "'status': 200, 'bodySize': -1, 'content': {'size': 50}", 50},
      {"", "'status': 200, 'bodySize': 1e18, 'content': {'size': null}", 0},
      {"", length("9000000000000000000") + "'content': {'size': 50}", 50},
      {"", length("0") + "'content': {'size': 50}", 0},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(ReadOne(RowOf(row.entry, "", row.response)).bodyBytes, row.bytes) << row.entry << row.response;
  }
  const Request renewed =
      ReadOne(RowOf("", "", "'status': 304, 'headers': [{'name': 'Content-Length', 'value': '10'}]"));
  EXPECT_EQ(renewed.bodyBytes, 0);
  EXPECT_EQ(renewed.declaredLength, 10) << "declared, though not sent";
}

TEST(HarReader, CleansHeaders) {
  const Request request = ReadOne(RowOf("", R"('headers': [
        {'name': ':method', 'value': 'GET'}, {'name': 'Host', 'value': ' a.test '}, {'name': 'Referer',
        'value': 'http://b.test/#top'}, {'name': 'X', 'value': '1\r\nForged: 2\u0000'}, {'value': 'nameless'},
        {'name': 'Bad name', 'value': 'x'}, {'name': 'cookie', 'value': 'a=1'}, {'name': 'Cookie', 'value': 'b=2'},
        {'name': 'x', 'value': '3'}, {'name': 'Empty'}, {'name': 'Odd', 'value': '\u00e9\ud800'}, 7], )",
                                        R"('status': 200, 'statusText': 'O\nK', 'headers': [
        {'name': ':status', 'value': '200'}, {'name': 'Cache-Control', 'value': 'max-age=60\nprivate'},
        {'name': 'A:b', 'value': 'x'}, {'name': 'Set-Cookie', 'value': 'a'},
        {'name': 'Set-Cookie', 'value': 'b\u0000c\r'},
        {'name': 'Content-Type', 'value': 'text/CSS ; charset=x'}, {'name': 'Content-Length', 'value': '12'}],
        'content': {'mimeType': 'x-unknown'})"));
  EXPECT_EQ(request.requestHeaders,
            "Host: a.test\r\nReferer: http://b.test/#top\r\nX: 1  Forged: 2, 3\r\ncookie: a=1; b=2\r\n"
            "Empty:\r\nOdd: \\u00e9\\ud800\r\n\r\n");
  EXPECT_EQ(request.referer, "http://b.test/");
  std::string lines = request.responseHeaders;
  std::replace(lines.begin(), lines.end(), '\0', '|');
  EXPECT_EQ(lines,
            "HTTP/1.1 200 OK|Cache-Control: max-age=60|Cache-Control: private|Set-Cookie: a|Set-Cookie: bc|"
            "Content-Type: text/CSS ; charset=x|Content-Length: 12||");
  EXPECT_EQ(request.declaredLength, 12);
  EXPECT_EQ(request.freshForMs, 60e3);
  EXPECT_EQ(request.mimeType, "text/css") << "the row tells none";
  EXPECT_EQ(ReadOne(RowOf("", "", "'content': {'mimeType': 'Content-Type: Application/JSON'}, 'status': 200"))
                .mimeType,
            "application/json");
}

TEST(HarReader, FindsTheInitiator) {
  const std::string deep = R"({'callFrames': [{'url': ''}, {'url': 'native'}, {'url': 'http://a.test/top.js'},
                                              {'url': 'http://a.test/caller.js'}]})";
  std::string nested = deep, bottomless = deep;
  for (int level = 0; level < 3; ++level) nested = "{'parent': " + nested + ", 'callFrames': [{'url': ''}]}";
  for (int level = 0; level < 5000; ++level) bottomless = "{'parent': " + bottomless + "}";
  const struct {
    std::string initiator, url;
  } cases[] = {
      {R"('http:\/\/a.test/page#x')", "http://a.test/page"},
      {"'Parser / Other'", ""},
      {"{'type': 'parser', 'url': 'http://a.test/page', 'lineNumber': 3}", "http://a.test/page"},
      {"{'type': 'script', 'stack': " + deep + "}", "http://a.test/top.js"},
      {"{'type': 'script', 'stack': " + nested + ", 'url': 7}", "http://a.test/top.js"},
      {"{'stack': " + bottomless + "}", ""},
      {"{'type': 'other'}", ""},
      {"'http://a.test/'", ""},  // itself
      {"null", ""},
      {"['http://a.test/page']", ""},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(ReadOne(RowOf("'_initiator': " + row.initiator + ", ")).initiatorUrl, row.url)
        << row.initiator.substr(0, 200);
  }
}

}  // namespace
}  // namespace replay
