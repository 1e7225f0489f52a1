// What the fetcher is told and what it hands over: the request, limits, bodies, final states, and the preload
// slot.
#include "net/http/http_response_headers.h"
#include "tests/support/scripted_host.h"

namespace tests {
namespace {

using FetchCallbacksTest = PluginTest;

constexpr const char* kUrl = "http://a.test:81/1?q#f";

std::string Ok(const std::string& length) {
  return RawHeaders({"HTTP/1.1 200 OK", "Content-Length: " + length});
}
TEST_F(FetchCallbacksTest, TheRequestCarriesWhatTheLaunchWasGiven) {
  host.Learn(kPage);
  host.Order(kUrl, kPage, 512, 0x800000);
  const auto request = host.RequestInfo(kUrl);
  ASSERT_NE(request, nullptr);
  EXPECT_EQ(request->url.spec(), kUrl);
  EXPECT_EQ(request->method, "GET");
  EXPECT_EQ(request->extra_headers.ToString(), "Accept: */*\r\n\r\n");
  EXPECT_EQ(request->load_flags, 0x800000);
  EXPECT_EQ(static_cast<int>(request->priority), 3);
  EXPECT_EQ(static_cast<int>(request->motivation), 0);
}

TEST_F(FetchCallbacksTest, UnknownCookiesAreRefused) {
  host.Launch(kUrl);
  std::vector<void*> cookies = {host.Cookie("http://never.test/")};
  if (sizeof(void*) > 4)
    cookies.push_back(reinterpret_cast<void*>(uintptr_t(host.Cookie(kUrl)) + (1ull << 32)));
  const net::HttpResponseHeaders headers(Ok("1"));
  const CorvaneFetchResponse response = {&headers};
  for (void* cookie : cookies) {
    EXPECT_EQ(host.plugin.FetchGetRequestInfo(cookie), nullptr);
    EXPECT_EQ(host.plugin.FetchStartComplete(cookie, &response), 0);
    EXPECT_EQ(host.plugin.FetchReadComplete(cookie, "x", 1), 0);
    EXPECT_EQ(host.plugin.FetchDone(cookie, 0), 0);
  }
}
TEST_F(FetchCallbacksTest, OnlyASuccessful200WithABodyCanBeServed) {
  const struct {
    int32_t result;
    const char* status;  // null: the response never started
    const char* body;
    bool served;
    const char* why;
  } rows[] = {
      {0, "HTTP/1.1 200 OK", "x", true, "all is well"},
      {0, "HTTP/1.1 200 OK", "", false, "no body"},
      {0, "HTTP/1.1 203 Other", "x", false, "another success is none"},
      {0, "HTTP/1.1 404 Not Found", "x", false, ""},
      {0, nullptr, "x", false, "no status at all"},
      {-1, "HTTP/1.1 200 OK", "x", false, "the fetch failed at its end"},
      {1, "HTTP/1.1 200 OK", "x", false, "anything but 0 is a failure"},
  };
  const std::string url = kUrl;
  for (const auto& row : rows) {
    host.Launch(url);
    host.RequestInfo(url);
    if (row.status != nullptr) {
      EXPECT_EQ(host.StartComplete(url, RawHeaders({row.status, "Content-Length: 1"})), 1);
    }
    host.Read(url, row.body);
    EXPECT_EQ(host.Ask(url).result, 0) << "still running";
    EXPECT_EQ(host.Done(url, row.result), 1);
    EXPECT_EQ(host.Ask(url).result, row.served ? 1 : 0) << row.why;
    host.Take();
    host.plugin.OnFlushDb(0);
    EXPECT_EQ(host.Take().find("Stuck preload: " + url + " (3)") != std::string::npos, row.served) << row.why;
  }
}

TEST_F(FetchCallbacksTest, WithTheCacheOffFetchesRunAndHoldNothing) {
  host.Start({{"cacheen", "0"}});
  host.Launch(kUrl);
  EXPECT_NE(host.RequestInfo(kUrl), nullptr);
  EXPECT_EQ(host.StartComplete(kUrl, Ok("4")), 1);
  EXPECT_EQ(host.Read(kUrl, "body"), 0);
  EXPECT_EQ(host.Done(kUrl), 1);
  host.Start({{"cacheen", "1"}});
  EXPECT_EQ(host.Ask(kUrl).result, 0) << "it had failed for want of a body";
  EXPECT_EQ(host.Read(kUrl, "body"), 1);
  EXPECT_EQ(host.Done(kUrl), 1);
  EXPECT_EQ(host.Ask(kUrl).headers, "") << "none were kept either";
}

// The body comes out whole however it came in, and its buffer has the size that was promised: ten bytes more
// than declared, or than needed. A lent body shows it, because its place changes exactly when it grows.
TEST_F(FetchCallbacksTest, BodiesGrowAsDeclaredOrAsNeeded) {
  const struct {
    std::vector<size_t> before;  // chunk sizes ahead of the response's start
    const char* declared;
    std::vector<size_t> after;
    size_t capacity;
    const char* why;
  } rows[] = {
      {{}, "100", {40, 40, 20}, 110, "allocated once"},
      {{}, "100", {99}, 110, "one byte to come"},
      {{}, "100", {40, 40, 31}, 121, "longer than declared by more than the slack"},
      {{}, "3", {40}, 50, "a first chunk longer than declared"},
      {{}, "0", {7}, 17, "declared empty"},
      {{40, 30}, "0", {}, 80, "ahead of the start it grows with each chunk"},
      {{40}, "100", {20}, 110, "the declared length counts from the start on"},
      {{40}, "100", {5}, 50, "what fits stays in place"},
  };
  for (const auto& row : rows) {
    const std::string url = std::string("http://a.test/") + row.why;
    std::string expected;
    const auto read = [&](size_t count) {
      std::string chunk;
      while (chunk.size() < count) chunk += static_cast<char>(expected.size() + chunk.size());
      EXPECT_EQ(host.Read(url, chunk), 1) << row.why;
      expected += chunk;
    };
    host.Launch(url);
    for (const size_t count : row.before) read(count);
    EXPECT_EQ(host.StartComplete(url, Ok(row.declared)), 1);
    for (const size_t count : row.after) read(count);
    host.Done(url);
    const Answer held = host.Ask(url);
    ASSERT_EQ(held.body(), expected) << row.why;

    read(row.capacity - expected.size());
    const Answer full = host.Ask(url);
    EXPECT_EQ(full.bytes, held.bytes) << row.why << ": there is room for all of it";
    read(1);
    const Answer grown = host.Ask(url);
    EXPECT_NE(grown.bytes, held.bytes) << row.why << ": one byte too many";
    EXPECT_EQ(grown.body(), expected) << row.why;
    EXPECT_EQ(held.body(), expected.substr(0, static_cast<size_t>(held.length)))
        << "the lent body stays readable";
  }
}

TEST_F(FetchCallbacksTest, TheEndGivesTheHostsSlotBackOrReportsAnUnmatchedOne) {
  host.Send<TransactionStarted>({kUrl, 0, 1});  // keeps the host's record alive
  host.Launch(kUrl);
  EXPECT_EQ(host.Done(kUrl), 1);
  EXPECT_EQ(host.Take(), "");
  host.verbosity = 0;
  EXPECT_EQ(host.Done(kUrl), 1);
  EXPECT_EQ(host.Done(kUrl, -1), 1);
  const std::string line = std::string("W Unbalanced preloading: ") + kUrl + "\n";
  EXPECT_EQ(host.Take(), line + line) << "always written";
  host.plugin.OnClearDb(0);
  EXPECT_EQ(host.Done(kUrl), 1);
  EXPECT_EQ(host.Take(), "") << "no record of the host, nobody to tell";
}

}  // namespace
}  // namespace tests
