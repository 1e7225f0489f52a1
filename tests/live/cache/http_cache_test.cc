// The cache as a browser uses it. Dates are a fixed Sunday in 1994 and its neighbours.
#include "live/cache/http_cache.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/header_lines.h"

namespace live {
namespace {

#define SATURDAY "Sat, 05 Nov 1994 08:49:37 GMT"
#define SUNDAY "Sun, 06 Nov 1994 08:49:37 GMT"
#define MODIFIED "Last-Modified: " SATURDAY "\n"
#define CONTROL "Cache-Control: "

constexpr char kUrl[] = "http://a.test/";
constexpr int64_t kSecond = 1000000;
constexpr int64_t kSunday = 784111777 * kSecond;  // Sun, 06 Nov 1994 08:49:37 GMT

// A cache with a clock, and what a browser does with it. Header lines end with LF.
class CacheStory {
 public:
  explicit CacheStory(const CacheLimits& limits = {})
      : cache(limits,
              [this](const std::string& url, bool held) { heard.push_back((held ? "+" : "-") + url); }) {}

  CacheRequest Request(const std::string& lines = "", const std::string& url = kUrl) const {
    return {.method = method, .url = url, .headers = tests::HeaderText(lines), .partition = partition};
  }

  ExchangeTimes Times() const { return {now, now}; }

  // The headers of an answer that comes at once.
  std::unique_ptr<CacheWriter> Answer(int status, const std::string& lines, const CacheRequest& request) {
    return cache.OnResponse(request, tests::RawBlock(status, lines), Times());
  }

  // A whole answer; whether it is stored.
  bool Fetch(const std::string& lines, const std::string& body = "body", const CacheRequest& request = {},
             int status = 200) {
    const auto writer = Answer(status, lines, request.url.empty() ? Request() : request);
    return writer != nullptr && writer->Append(body) && writer->Commit();
  }

  // "fresh BODY", "stale VALIDATORS", "miss" or "not available".
  std::string Look(const CacheRequest& request) {
    const CacheLookup found = cache.Lookup(request, now);
    switch (found.verdict) {
      case CacheVerdict::Fresh:
        return "fresh " + *found.response.body;
      case CacheVerdict::Stale:
        return "stale " + found.validators;
      case CacheVerdict::Miss:
        return "miss";
      case CacheVerdict::NotAvailable:
        break;
    }
    return "not available";
  }
  std::string Look(const std::string& lines = "") { return Look(Request(lines)); }

  int64_t now = kSunday;
  std::string method = "GET";
  std::string partition;
  std::vector<std::string> heard;
  HttpCache cache;
};

// The block with '|' for NUL.
std::string Shown(std::string block) {
  std::replace(block.begin(), block.end(), '\0', '|');
  return block;
}

TEST(HttpCache, StoresWhatAPrivateCacheMay) {
  const struct {
    bool stored;
    const char* response;
    const char* why;
    int status = 200;
    const char* request = "";
    const char* method = "GET";
  } rows[] = {
      {true, CONTROL "private\nSet-Cookie: a=b\n", "for this cache", 200, "Authorization: x\nCookie: c=d\n"},
      {true, "Content-Length: 4\n", "complete"},
      {false, "Content-Length: 5\n", "incomplete"},
      {false, "Content-Length: 4, 4\n", "who knows how long it should be"},
      {true, "Transfer-Encoding: chunked\nContent-Length: 5\n", "chunks end by themselves"},
      {true, "Expires: 0\n", "it says when it expires", 302},
      {false, "", "it says nothing, and its status forbids to guess", 302},
      {false, CONTROL "max-age=60\n", "a part", 206},
      {false, CONTROL "max-age=60\n", "the client does not want it", 200, CONTROL "no-store\n"},
      {false, CONTROL "max-age=60\nVary: A, *\n", "it would match no request"},
      {true, CONTROL "max-age=60\n", "all of it in spite of the range", 200, "Range: bytes=0-1\n"},
      {false, CONTROL "max-age=60\n", "an answer to the range", 404, "Range: bytes=0-1\n"},
      {false, CONTROL "max-age=60\n", "not a GET", 200, "", "HEAD"},
  };
  for (const auto& row : rows) {
    CacheStory story;
    story.method = row.method;
    const CacheRequest request = story.Request(row.request);
    EXPECT_EQ(story.Fetch(row.response, "body", request, row.status), row.stored) << row.why;
    EXPECT_EQ(story.cache.Holds(kUrl), row.stored) << row.why;
  }
}

TEST(HttpCache, ServesWhileBothSidesAllow) {
  constexpr const char* kAsk = "stale If-None-Match: \"a\"\r\n";
  constexpr const char* kServe = "fresh body";
  const struct {
    int64_t afterS;
    const char* response;  // of Cache-Control
    const char* request;   // of Cache-Control
    const char* found;
    const char* why;
    const char* requestLines = "";
  } rows[] = {
      {59, "max-age=60", "", kServe, "one second left"},
      {60, "max-age=60", "", kAsk, "as old as it may get"},
      {-5, "max-age=60", "", kServe, "a clock that was set back"},
      {0, "max-age=60, no-cache", "", kAsk, "the server wants to be asked"},
      {0, "stale-while-revalidate=60", "", kAsk, "nothing stale is served unasked"},
      {0, "max-age=60", "no-cache", kAsk, "the client wants to ask"},
      {10, "max-age=60", "max-age=10", kServe, "young enough for the client"},
      {11, "max-age=60", "max-age=10", kAsk, "too old for it"},
      {11, "max-age=60, immutable", "max-age=0", kServe, "reloading changes nothing"},
      {60, "max-age=60, immutable", "max-age=0", kAsk, "when it is stale it may"},
      {11, "max-age=60, immutable", "no-cache", kAsk, "the client insists"},
      {50, "max-age=60", "min-fresh=10", kServe, "fresh for long enough"},
      {51, "max-age=60", "min-fresh=10", kAsk, "not for long enough"},
      {70, "max-age=60", "max-stale=10", kServe, "not too stale"},
      {71, "max-age=60", "max-stale=10", kAsk, "too stale"},
      {999999, "max-age=60", "max-stale", kServe, "never too stale"},
      {70, "max-age=60, must-revalidate", "max-stale", kAsk, "the server forbids it"},
      {70, "max-age=60", "max-stale, max-age=69", kAsk, "stale or not, too old"},
      {61, "max-age=60", "max-stale=x", kAsk, "what does not parse accepts least"},
      {1, "max-age=60", "max-age=x", kAsk, "here too"},
      {0, "max-age=60", "min-fresh=x", kAsk, "and here"},
      {59, "max-age=60", "only-if-cached", kServe, "it is"},
      {60, "max-age=60", "only-if-cached", "not available", "not any more"},
      {0, "max-age=60", "only-if-cached", "not available", "not in parts", "Range: bytes=0-\n"},
      {0, "max-age=60", "", "miss", "parts come from the server", "Range: bytes=0-\n"},
      {0, "max-age=60", "", "miss", "the server decides", "If-Match: \"a\"\n"},
      {0, "max-age=60", "", "fresh ", "the client has it: no body", "If-None-Match: \"a\"\n"},
      {0, "max-age=60", "", kServe, "the client has another one", "If-None-Match: \"b\"\n"},
      {60, "max-age=60", "", "miss", "the client's own question goes through", "If-None-Match: \"a\"\n"},
  };
  for (const auto& row : rows) {
    CacheStory story;
    ASSERT_TRUE(story.Fetch(std::string(CONTROL) + row.response + "\nETag: \"a\"\n")) << row.why;
    story.now += row.afterS * kSecond;
    EXPECT_EQ(story.Look(std::string(CONTROL) + row.request + "\n" + row.requestLines), row.found) << row.why;
  }
  CacheStory story;
  EXPECT_EQ(story.Look(CONTROL "only-if-cached\n"), "not available") << "it never was";
  ASSERT_TRUE(story.Fetch(CONTROL "no-cache\nETag: a\"b\n"));
  EXPECT_EQ(story.Look(), "miss") << "nothing to ask with";
  ASSERT_TRUE(story.Fetch("ETag: W/\"a\"\nLast-Modified: " SATURDAY "\nExpires: 0\n"));
  EXPECT_EQ(story.Look(), "stale If-None-Match: W/\"a\"\r\nIf-Modified-Since: " SATURDAY "\r\n");
}

TEST(HttpCache, ServesTheHeadersThatItWasGivenWithAnAge) {
  CacheStory story;
  const char kKept[] = CONTROL "max-age=60\nETag: \"a\"\nDate: " SUNDAY "\nX: y\nX: z\nContent-Length: 4\n";
  const char kDropped[] =
      "Age: 7\nSet-Cookie: a=b\nConnection: close, Hop\nHop: 1\nKeep-Alive: x\nTrailer: T\nUpgrade: h2c\n";
  const CacheRequest request = story.Request();
  const auto writer = story.cache.OnResponse(request, tests::RawBlock(200, std::string(kKept) + kDropped),
                                             {story.now - 2 * kSecond, story.now});
  ASSERT_TRUE(writer->Append("bo") && writer->Append("dy") && writer->Commit());
  story.now += 3 * kSecond + 999999;
  const CacheLookup whole = story.cache.Lookup(request, story.now);
  EXPECT_EQ(whole.response.block, tests::RawBlock(200, std::string(kKept) + "Age: 12\n"));
  EXPECT_EQ(*whole.response.body, "body");
  const CacheLookup condition = story.cache.Lookup(story.Request("If-None-Match: \"a\"\n"), story.now);
  EXPECT_EQ(Shown(condition.response.block),
            "HTTP/1.1 304 Not Modified|Cache-Control: max-age=60|ETag: \"a\"|Date: " SUNDAY
            "|X: y|X: z|Age: 12||");
  ASSERT_TRUE(story.Fetch(CONTROL "max-age=60\nDate: 0\nDate: 1\n"));
  story.now -= kSecond;
  EXPECT_EQ(Shown(story.cache.Lookup(request, story.now).response.block),
            "HTTP/1.1 200|Date: Sun, 06 Nov 1994 08:49:40 GMT|Cache-Control: max-age=60|Age: 0||");
  story.method = "HEAD";
  EXPECT_EQ(story.Look(), "fresh ");
  story.now += 70 * kSecond;
  EXPECT_EQ(story.Look(), "miss") << "a HEAD is no occasion to validate";
}

TEST(HttpCache, ComparesWhatVaryNamesAsLists) {
  CacheStory story;
  const char kVaried[] = CONTROL "max-age=60\nVary: Accept-Language\n";
  ASSERT_TRUE(story.Fetch(kVaried, "english", story.Request("Accept-Language: en, *\nAccept: a\n")));
  EXPECT_EQ(story.Look("accept-language: en,*\nAccept: b\n"), "fresh english");
  EXPECT_EQ(story.Look(), "miss");
}

TEST(HttpCache, TakesOverTheHeadersOfTheRenewal) {
  CacheStory story;
  ASSERT_TRUE(story.Fetch("Date: " SATURDAY
                          "\nAge: 500\nX: 1\nX: 2\nY: 3\nETag: \"a\"\nContent-Encoding: br\n"
                          "Content-Length: 4\nCache-Control: max-age=5\nVary: A\n",
                          "body", story.Request("A: 1\n")));
  const CacheRequest request = story.Request("A: 1\nB: 1\n");
  const CacheLookup stale = story.cache.Lookup(request, story.now);
  const std::string answer =
      tests::RawBlock(304, "Date: " SUNDAY
                           "\nx: 4\nSet-Cookie: a=b\nETag: \"a\"\nContent-Encoding: gzip\n"
                           "Content-Length: 0\nCache-Control: max-age=60\nVary: B\nConnection: close\n");
  const auto served = story.cache.Renew(request, stale.stored, answer, {story.now - kSecond, story.now});
  const std::string renewed = "HTTP/1.1 200|Y: 3|Content-Encoding: br|Content-Length: 4|Date: " SUNDAY
                              "|x: 4|ETag: \"a\"|Cache-Control: max-age=60|Vary: B|Age: 1|";
  EXPECT_EQ(Shown(served->block), renewed + "Set-Cookie: a=b||")
      << "this client sets the cookie, no later one";
  EXPECT_EQ(*served->body, "body");
  EXPECT_EQ(Shown(story.cache.Lookup(request, story.now).response.block), renewed + "|");
  story.now += 58 * kSecond;
  EXPECT_EQ(story.Look("B: 1\n"), "fresh body") << "it varies by what the renewal names";
  EXPECT_EQ(story.Look("A: 1\nB: 2\n"), "miss");
  EXPECT_EQ(story.cache.Entries(), 1U);
}

TEST(HttpCache, StoresNoRenewalOfWhatIsGone) {
  const struct {
    void (*meanwhile)(CacheStory& story);
    const char* found;
    const char* answer = CONTROL "max-age=60\n";
  } rows[] = {
      {[](CacheStory& story) { story.cache.Remove("http://a.test/#part"); }, "miss"},
      {[](CacheStory& story) { story.Fetch(CONTROL "max-age=60\n", "newer"); }, "fresh newer"},
      {[](CacheStory&) {}, "miss", CONTROL "no-store\n"},
  };
  for (const auto& row : rows) {
    CacheStory story;
    ASSERT_TRUE(story.Fetch("ETag: \"a\"\nCache-Control: no-cache\n"));
    const CacheLookup stale = story.cache.Lookup(story.Request(), story.now);
    row.meanwhile(story);
    const auto served =
        story.cache.Renew(story.Request(), stale.stored, tests::RawBlock(304, row.answer), story.Times());
    EXPECT_EQ(*served->body, "body") << "the client has it all the same";
    EXPECT_EQ(story.Look(), row.found);
  }
}

TEST(HttpCache, DropsWhatAnAnswerProvesOutdated) {
  const struct {
    const char* method;
    int status;
    const char* answer;
    bool kept;
    const char* why;
    const char* request = "";
    const char* url = kUrl;
  } rows[] = {
      {"GET", 200, CONTROL "no-store\n", false, "another response"},
      {"GET", 200, "Content-Length: 99999999999999\n", false, "another one, too large"},
      {"GET", 200, CONTROL "no-store\n", true, "another variant", "V: 2\n"},
      {"GET", 500, "", true, "a failure of the server proves nothing"},
      {"GET", 416, "", true, "nor does a range that cannot be had", "Range: bytes=9-\n"},
      {"HEAD", 200, "Content-Length: 5\n", false, "another length"},
      {"HEAD", 404, "Content-Length: 5\n", true, "not about the same"},
      {"BREW", 200, "", false, "nobody knows what it does", "V: 2\n"},
      {"DELETE", 400, "", true, "refused"},
      {"OPTIONS", 200, "", true, "changes nothing"},
      {"POST", 200, "Content-Location: http://a.test:80/#x\n", false, "as changed", "", "http://a.test/make"},
      {"POST", 201, "Location: http://a.test/\n", true, "of another origin", "", "http://b.test/make"},
  };
  for (const auto& row : rows) {
    CacheStory story;
    ASSERT_TRUE(story.Fetch(CONTROL "max-age=60\nETag: \"a\"\nVary: V\n"));
    story.method = row.method;
    story.Answer(row.status, row.answer, story.Request(row.request, row.url));
    EXPECT_EQ(story.cache.Holds(kUrl), row.kept) << row.method << ": " << row.why;
  }
}

TEST(HttpCache, AWriterEndsWithItsCommitAndWithItsCache) {
  const std::string lines = CONTROL "max-age=60\n";
  std::unique_ptr<CacheWriter> orphan;
  {
    CacheStory story;
    const auto first = story.Answer(200, lines, story.Request());
    EXPECT_TRUE(first->Append("first") && first->Commit());
    EXPECT_FALSE(first->Append("more"));
    EXPECT_FALSE(first->Commit());
    EXPECT_EQ(story.Look(), "fresh first");
    orphan = story.Answer(200, lines, story.Request());
  }
  EXPECT_FALSE(orphan->Append("x"));
  EXPECT_FALSE(orphan->Commit());
}

TEST(HttpCache, StaysWithinItsBoundsOfBytesAndVariants) {
  const std::string lines = CONTROL "max-age=60\n";
  const auto url = [](size_t number) { return "http://a.test/" + std::to_string(number); };
  const auto store = [&](CacheStory& story, size_t number, const std::string& body) {
    return story.Fetch(lines, body, story.Request("", url(number)));
  };

  CacheStory small({.bytes = 10000, .responseBytes = 5000});
  for (size_t number = 0; number < 50; ++number) {
    const size_t size = 100 * number;
    EXPECT_EQ(store(small, number, std::string(size, 'x')), size <= 4300) << size;
    EXPECT_LE(small.cache.Bytes(), 10000U);
    EXPECT_GE(small.cache.Bytes(), size <= 4300 ? size : 0);
  }
  EXPECT_GE(small.cache.Entries(), 2U);
  const CacheLookup last = small.cache.Lookup(small.Request("", url(43)), small.now);
  small.cache.Clear();
  EXPECT_EQ(small.cache.Bytes(), 0U);
  EXPECT_EQ(small.cache.Entries(), 0U);
  EXPECT_EQ(last.response.body->size(), 4300U) << "a reader keeps the body";

  CacheStory varied;
  for (int number = 0; number < 40; ++number) {
    varied.Fetch(lines + "Vary: A\n", "body", varied.Request("A: " + std::to_string(number) + "\n"));
  }
  EXPECT_EQ(varied.cache.Entries(), 16U);
  EXPECT_EQ(varied.Look("A: 23\n"), "miss");
  EXPECT_EQ(varied.Look("A: 24\n"), "fresh body");
}

TEST(HttpCache, TellsWhatIsHeldEvenToAnObserverThatChangesIt) {
  std::vector<std::string> heard;
  HttpCache* cache = nullptr;
  HttpCache observed({.entries = 2}, [&](const std::string& url, bool held) {
    heard.push_back((held ? "+" : "-") + url);
    if (url == "http://a.test/unwanted" && held) cache->Remove(url);
    EXPECT_EQ(cache->Holds(url), held && url != "http://a.test/unwanted");
  });
  cache = &observed;
  const std::string block = tests::RawBlock(200, CONTROL "max-age=60\n");
  for (const char* path : {"a", "b", "b", "unwanted", "c"}) {
    const auto writer = observed.OnResponse({.url = std::string("http://a.test/") + path}, block, {});
    ASSERT_TRUE(writer->Commit());
  }
  observed.Clear();
  EXPECT_EQ(heard, (std::vector<std::string>{"+http://a.test/a", "+http://a.test/b", "-http://a.test/a",
                                             "+http://a.test/unwanted", "-http://a.test/unwanted",
                                             "+http://a.test/c", "-http://a.test/b", "-http://a.test/c"}));
}

}  // namespace
}  // namespace live
