// One page load as each recorder writes it: what is peculiar to its files, cut down to two or three rows.
#include <gtest/gtest.h>

#include "replay/recording/har_reader.h"
#include "replay/recording/recording_check.h"

namespace replay {
namespace {

struct Dialect {
  const char* recorder;
  const char* har;
  std::vector<std::string>
      story;  // URL, start, kind's number, protocol's number, body and initiator of each request
};

std::vector<std::string> StoryOf(const Recording& recording) {
  std::vector<std::string> story;
  for (const Page& page : recording.pages) {
    for (const Request& request : page.requests) {
      story.push_back(request.url + " " + std::to_string(static_cast<int>(request.startMs)) + " kind " +
                      std::to_string(static_cast<int>(request.kind)) + " over " +
                      std::to_string(static_cast<int>(request.protocol)) + " body " +
                      std::to_string(request.bodyBytes) + " by " + request.initiatorUrl);
    }
  }
  return story;
}

const Dialect kDialects[] = {
    {"DevTools: initiators are objects with stacks, and the cache is named",
     R"({"log": {"creator": {"name": "WebInspector", "version": "537.36"}, "pages": [{"id": "page_1", "title": "T",
      "startedDateTime": "2024-05-01T10:00:00.000Z", "pageTimings": {"onContentLoad": 80.5, "onLoad": 120.25}}],
      "entries": [
      {"_initiator": {"type": "other"}, "_priority": "VeryHigh", "_resourceType": "document", "pageref": "page_1",
       "request": {"method": "GET", "url": "https://a.test/", "httpVersion": "h3", "headers": []},
       "response": {"status": 200, "headers": [], "content": {"size": 900, "mimeType": "text/html"},
       "_transferSize": 700, "bodySize": -1, "headersSize": -1, "_error": null},
       "startedDateTime": "2024-05-01T10:00:00.001Z", "time": 50, "timings": {"_blocked_queueing": 1, "wait": 30}},
      {"_fromCache": "memory", "_initiator": {"type": "script", "stack": {"callFrames": [],
       "parent": {"callFrames": [{"url": "https://a.test/x.js"}]}}}, "_resourceType": "image", "pageref": "page_1",
       "request": {"method": "GET", "url": "https://a.test/i", "httpVersion": "", "headers": []},
       "response": {"status": 200, "headers": [], "content": {"size": 10, "mimeType": "image/png"}, "_transferSize": 0},
       "startedDateTime": "2024-05-01T10:00:00.061Z", "time": 0.1, "timings": {}}]}})",
     {"https://a.test/ 0 kind 0 over 2 body 700 by ",
      "https://a.test/i 60 kind 4 over 0 body 10 by https://a.test/x.js"}},
    {"Firefox: times in the recorder's zone, refused rows, and no initiator",
     R"({"log": {"creator": {"name": "Firefox", "version": "128.0"}, "pages": [{"id": "page_1",
      "startedDateTime": "2024-05-01T12:00:00.000+02:00", "pageTimings": {"onContentLoad": -1, "onLoad": 300}}],
      "entries": [
      {"startedDateTime": "2024-05-01T12:00:00.000+02:00", "pageref": "page_1", "request": {"method": "GET",
       "url": "https://a.test/#top", "httpVersion": "HTTP/2", "headers": [{"name": "Sec-Fetch-Dest", "value": "document"}]},
       "response": {"status": 200, "httpVersion": "HTTP/2", "headers": [{"name": "content-length", "value": "70"}],
       "content": {"mimeType": "text/html; charset=utf-8", "size": 200}, "bodySize": 270}, "cache": {}, "time": 90,
       "timings": {"blocked": 0, "dns": 1, "connect": 20, "ssl": 10, "send": 0, "wait": 30, "receive": 1}},
      {"startedDateTime": "2024-05-01T12:00:00.100+02:00", "pageref": "page_1", "request": {"method": "GET",
       "url": "https://ads.test/x.js", "headers": []}, "response": {"status": 0, "content": {}}, "time": 0,
       "_blocked": "ublock"}]}})",
     {"https://a.test/ 0 kind 0 over 1 body 70 by "}},
    {"Safari: what fetched a row is in _fetchType, and protocols are spelled its way",
     R"({"log": {"creator": {"name": "WebKit Web Inspector", "version": "1.0"}, "pages": [{"id": "page_0",
      "startedDateTime": "2024-05-01T10:00:00.000Z", "pageTimings": {}}], "entries": [
      {"pageref": "page_0", "startedDateTime": "2024-05-01T10:00:00.000Z", "time": 80.2, "_fetchType": "Network Load",
       "request": {"method": "GET", "url": "https://a.test/", "httpVersion": "HTTP/2.0", "headers": []},
       "response": {"status": 200, "httpVersion": "HTTP/2.0", "headers": [], "content": {"size": 500,
       "compression": 300, "mimeType": "text/html"}, "headersSize": 100, "bodySize": 200, "_transferSize": 300},
       "timings": {"blocked": -1, "dns": -1, "connect": -1, "ssl": -1, "send": 0.1, "wait": 60, "receive": 20}},
      {"pageref": "page_0", "startedDateTime": "2024-05-01T10:00:00.080Z", "time": 0, "_fetchType": "Disk Cache",
       "request": {"method": "GET", "url": "https://a.test/a.css", "headers": []}, "response": {"status": 200,
       "headers": [], "content": {"mimeType": "text/css", "size": 9}, "bodySize": 0}, "timings": {}}]}})",
     {"https://a.test/ 0 kind 0 over 1 body 200 by ", "https://a.test/a.css 80 kind 1 over 0 body 9 by "}},
    {"WebPageTest: initiators are addresses, sizes and protocol are fields of its own",
     R"({"log": {"creator": {"name": "WebPagetest", "version": "21"}, "pages": [{"id": "page_1_0_1", "title": "Run 1",
      "startedDateTime": "2024-05-01T10:00:00.123+00:00", "pageTimings": {"onLoad": 900, "_startRender": 400}}],
      "entries": [
      {"pageref": "page_1_0_1", "startedDateTime": "2024-05-01T10:00:00.123+00:00", "time": 200, "_protocol": "h2",
       "_bytesIn": 900, "_objectSize": 800, "request": {"method": "GET", "url": "https://a.test/", "httpVersion": "",
       "headers": []}, "response": {"status": 200, "headers": [], "bodySize": 900, "content": {"size": 2000,
       "mimeType": "text/html"}}, "timings": {"blocked": -1, "dns": 10, "wait": 100, "receive": 5}},
      {"pageref": "page_1_0_1", "startedDateTime": "2024-05-01T10:00:00.323+00:00", "time": 50, "_initiator":
       "https://a.test/", "_protocol": "h2", "_objectSize": "70", "request": {"method": "GET",
       "url": "https://a.test/a.js", "headers": []}, "response": {"status": 200, "headers": [], "content": {"mimeType":
       "application/javascript"}}, "timings": {}}]}})",
     {"https://a.test/ 0 kind 0 over 1 body 800 by ",
      "https://a.test/a.js 200 kind 2 over 1 body 70 by https://a.test/"}},
    {"sitespeed.io: the time in the browser's queue is apart, and a row starts after it",
     R"({"log": {"creator": {"name": "Browsertime", "version": "22"}, "pages": [{"id": "page_1",
      "startedDateTime": "2024-05-01T10:00:00.000Z", "_url": "https://a.test/", "pageTimings": {"onLoad": 900}}],
      "entries": [
      {"pageref": "page_1", "startedDateTime": "2024-05-01T10:00:00.010Z", "time": 100, "_requestId": "1",
       "_initiator_type": "other", "request": {"method": "GET", "url": "https://a.test/", "headers": []}, "response":
       {"status": 200, "httpVersion": "h2", "headers": [], "content": {"mimeType": "text/html", "size": 5},
       "_transferSize": 400, "headersSize": 100, "bodySize": 300},
       "timings": {"blocked": 1, "send": 0, "wait": 80, "_queued": 4}},
      {"pageref": "page_1", "startedDateTime": "2024-05-01T10:00:00.200Z", "time": 30, "_initiator":
       "https://a.test/", "request": {"method": "GET", "url": "https://a.test/f.woff2", "headers": []}, "response":
       {"status": 200, "httpVersion": "h2", "headers": [], "content": {"size": 7}}, "timings": {"_queued": 64}}]}})",
     {"https://a.test/ 0 kind 0 over 1 body 300 by ",
      "https://a.test/f.woff2 130 kind 3 over 1 body 7 by https://a.test/"}},
    {"Fiddler: a byte order mark, no pages, tunnels, seven digits of a second",
     "\xef\xbb\xbf"
     R"({"log": {"pages": [], "creator": {"name": "Fiddler", "version": "5"}, "entries": [
      {"startedDateTime": "2024-05-01T12:00:00.0000001+02:00", "time": 5, "request": {"method": "CONNECT",
       "url": "http://a.test:443", "headers": []}, "response": {"status": 200, "headers": []}, "timings": {}},
      {"startedDateTime": "2024-05-01T12:00:00.1000001+02:00", "time": 55, "request": {"method": "GET",
       "url": "https://a.test/", "httpVersion": "HTTP/1.1", "headers": []}, "response": {"status": 200, "headers": [],
       "bodySize": 40, "content": {"mimeType": "text/html", "size": 40}}, "timings": {"dns": -1, "wait": 40}}]}})",
     {"https://a.test/ 0 kind 0 over 0 body 40 by "}},
    {"Charles: no pages, tunnels, a zone without a colon, failed rows",
     R"({"log": {"creator": {"name": "Charles Proxy", "version": "4.6"}, "entries": [
      {"startedDateTime": "2024-05-01T12:00:00.000+0200", "time": 4, "request": {"method": "CONNECT",
       "url": "https://a.test", "headers": []}, "response": {"_charlesStatus": "COMPLETE", "status": 200,
       "headers": [], "content": {"size": 0, "mimeType": null}}, "timings": {"send": 0, "wait": 1, "receive": 1}},
      {"startedDateTime": "2024-05-01T12:00:00.010+0200", "time": 40, "request": {"method": "GET",
       "url": "https://a.test/", "httpVersion": "HTTP/2.0", "headers": [{"name": ":authority", "value": "a.test"}]},
       "response": {"_charlesStatus": "COMPLETE", "status": 200, "httpVersion": "HTTP/2.0", "headers": [],
       "bodySize": 60, "content": {"mimeType": "text/html", "size": 60}}, "timings": {"connect": -1, "wait": 30}},
      {"startedDateTime": "2024-05-01T12:00:00.050+0200", "time": 1, "request": {"method": "GET",
       "url": "https://a.test/lost.js", "headers": []}, "response": {"_charlesStatus": "FAILED", "status": 0}}]}})",
     {"https://a.test/ 0 kind 0 over 1 body 60 by "}},
};

TEST(Dialects, AreReadAsTheyAreMeant) {
  for (const Dialect& dialect : kDialects) {
    EXPECT_EQ(StoryOf(ReadHar(dialect.har, "a.har")), dialect.story) << dialect.recorder;
  }
}

TEST(Dialects, WarnOfResponsesFromTheCache) {
  size_t warned = 0;
  for (const Dialect& dialect : kDialects) {
    for (const std::string& warning : WarningsOf(ReadHar(dialect.har, "a.har"))) {
      EXPECT_TRUE(warning.starts_with("1 of 2 responses came from the browser's cache")) << warning;
      ++warned;
    }
  }
  EXPECT_EQ(warned, 2U) << "those of DevTools and Safari";
  const char* const firefox =
      R"({"log": {"entries": [{"request": {"url": "http://a.test/"}, "response": {"status": 200},
          "cache": {"afterRequest": {"eTag": "x"}}}]}})";
  EXPECT_EQ(ReadHar(firefox, "a.har").fromCache, 1U);
}

}  // namespace
}  // namespace replay
