// The engine of the proxy with the real plugin, between a browser that the test plays and a scripted server
// on this machine: what the browser gets, and what the server is asked for.
#include "live/proxy/proxy_engine.h"

#include <gtest/gtest.h>

#include <deque>
#include <mutex>

#include "cutils/properties.h"
#include "host/http/header_block.h"
#include "plugin/properties.h"
#include "tests/live/support/run_until.h"
#include "tests/live/support/scripted_server.h"

namespace live {
namespace {

using host::LoadSource;
using tests::Connection;
using tests::OkResponse;
using tests::RunUntil;

// One load, as the browser sees it.
struct Browser : host::LoadClient {
  host::LoadId id = 0;
  int status = 0;
  std::string block, body;
  int32_t result = 1;  // until the end
  LoadSource source = LoadSource::Network;

  void OnResponse(const host::LoadInfo& info, const net::HttpResponseHeaders& headers) override {
    status = headers.response_code();
    block = headers.raw_headers();
    source = info.source;
  }
  void OnBody(const char* bytes, int32_t count) override { body.append(bytes, static_cast<size_t>(count)); }
  void OnDone(const host::LoadInfo& info, int32_t ended, const host::TransferReport& /*report*/) override {
    source = info.source;
    result = ended;
  }
  std::string Header(const char* name) const {
    return std::string(http::FindHeader(block, name).value_or(""));
  }
};

class ProxyEngineTest : public testing::Test {
 protected:
  using Answer = std::function<std::string(const std::string& path, const std::string& request)>;

  void SetUp() override {
    for (const kiv::Property& row : kiv::property::kAll) property_set(row.name, nullptr);
    settings.tracker.quietUs = 300'000;  // longer than a busy machine lets the test wait between two steps
    settings.mark = true;
  }
  // `answer` runs on the server's threads.
  void Start(Answer answer) {
    server.emplace([this, answer = std::move(answer)](Connection& connection) {
      for (std::string request; !(request = connection.ReadRequest()).empty();) {
        const size_t begin = request.find(' ') + 1;
        const std::string path = request.substr(begin, request.find(' ', begin) - begin);
        {
          const std::lock_guard lock(mutex);
          asked += " " + path;
          requests.push_back(request);
        }
        if (!connection.Write(answer(path, request))) return;
      }
    });
    plugin.emplace(KIV_PLUGIN_PATH);
    StartEngine();
  }
  void StartEngine() {
    engine.reset();
    engine = std::make_unique<ProxyEngine>(
        loop, plugin->Functions(), settings, [this] { return wallClockUs; },
        EngineObserver{.onLoad = [this](const LoadRecord& record) { records.push_back(record); },
                       .onPage = [this](const PageRecord& record) { pages.push_back(record); }});
  }

  Browser& Ask(const std::string& path, const std::string& headers, const std::string& method = "GET") {
    Browser& browser = browsers.emplace_back();
    browser.id = engine->Start({.method = method, .url = server->Url(path), .headers = headers}, browser);
    return browser;
  }
  Browser& Get(const std::string& path, const std::string& headers, const std::string& method = "GET") {
    Browser& browser = Ask(path, headers, method);
    RunUntil(loop, [&] { return browser.result != 1; });
    return browser;
  }
  Browser& OpenPage(const std::string& more = "", const std::string& path = "/") {
    return Get(path, "Sec-Fetch-Dest: document\r\nSec-Fetch-Site: none\r\n" + more);
  }
  Browser& Resource(const std::string& path, const std::string& more = "") {
    return Get(path, "Sec-Fetch-Dest: image\r\nReferer: " + server->Url("/") + "\r\n" + more);
  }
  void Settle() {
    const size_t before = pages.size();
    RunUntil(loop, [&] { return pages.size() > before; });
  }
  // Opens the page again, and waits until the server is asked ahead for as many resources.
  Browser& OpenPageAgain(size_t preloads, const std::string& more = "") {
    const size_t before = RequestCount();
    Browser& browser = OpenPage(more);
    RunUntil(loop, [&] { return RequestCount() >= before + 1 + preloads; });
    Wait(20'000);  // so that the answers are there as well, most of the time; and for what must not come
    return browser;
  }
  void Wait(int64_t us) {
    bool over = false;
    loop.PostDelayed(us, [&] { over = true; });
    RunUntil(loop, [&] { return over; });
  }
  size_t RequestCount() {
    const std::lock_guard lock(mutex);
    return requests.size();
  }
  std::string TakeAsked() {
    const std::lock_guard lock(mutex);
    return std::exchange(asked, "");
  }
  std::string LastRequestFor(const std::string& path) {
    const std::lock_guard lock(mutex);
    const auto found = std::find_if(requests.rbegin(), requests.rend(), [&path](const std::string& request) {
      return request.find(" " + path + " ") != std::string::npos;
    });
    return found != requests.rend() ? *found : "";
  }

  std::mutex mutex;  // for the next two
  std::string asked;
  std::vector<std::string> requests;

  EngineSettings settings;
  int64_t wallClockUs = 1'700'000'000'000'000;
  std::optional<host::LoadedPlugin> plugin;
  EventLoop loop;
  std::optional<tests::ScriptedServer> server;
  std::deque<Browser> browsers;
  std::vector<LoadRecord> records;
  std::vector<PageRecord> pages;
  std::unique_ptr<ProxyEngine> engine;
};

std::string Plain(const std::string& path, const std::string& /*request*/) {
  return OkResponse("Content-Type: image/png\r\nCache-Control: no-store\r\n", "body of " + path);
}

TEST_F(ProxyEngineTest, ARepeatVisitIsServedFromPreloads) {
  Start(Plain);
  OpenPage();
  for (const char* const path : {"/1", "/2"}) {
    const Browser& first = Resource(path);
    EXPECT_EQ(first.Header("Server-Timing"), "preload;desc=\"network: not known yet\"");
  }
  Settle();
  TakeAsked();

  OpenPageAgain(2);
  const std::string preloaded = TakeAsked();  // in any order: each has a connection of its own
  for (const char* const path : {" /", " /1", " /2"})
    EXPECT_NE((preloaded + " ").find(std::string(path) + " "), preloaded.npos);
  EXPECT_EQ(preloaded.size(), 8u) << preloaded;
  for (const char* const path : {"/1", "/2"}) {
    const Browser& again = Resource(path);
    EXPECT_EQ(again.body, std::string("body of ") + path);
    EXPECT_NE(again.source, LoadSource::Network);
    EXPECT_EQ(again.Header("Server-Timing"),
              again.source == LoadSource::Served ? "preload;desc=\"served\"" : "preload;desc=\"joined\"");
    EXPECT_EQ(again.Header("Content-Type"), "image/png");
  }
  EXPECT_EQ(TakeAsked(), "") << "the server is asked once";
  Settle();
  const PageRecord& page = pages.back();
  EXPECT_EQ(page.url, server->Url("/"));
  EXPECT_EQ(page.served + page.joined, 2u);
  EXPECT_EQ(page.fetched, 0u);
  EXPECT_EQ(page.preloads, 2u);
  EXPECT_EQ(page.unusedPreloads, 0u);
  EXPECT_EQ(records.size(), 6u);

  settings.preload = false;
  StartEngine();
  OpenPage();
  Resource("/1");
  Settle();
  OpenPageAgain(0);
  EXPECT_EQ(TakeAsked(), " / /1 /") << "switched off";
}

TEST_F(ProxyEngineTest, WhatTheOwnCacheHoldsIsValidatedAheadAndGivenWhole) {
  Start([](const std::string& path, const std::string& request) -> std::string {
    if (path == "/") return Plain(path, request);
    if (request.find("If-None-Match: \"v1\"") != std::string::npos) {
      return "HTTP/1.1 304 Not Modified\r\nETag: \"v1\"\r\nCache-Control: max-age=60\r\n\r\n";
    }
    return OkResponse("ETag: \"v1\"\r\nCache-Control: max-age=60\r\nContent-Type: image/png\r\n", "picture");
  });
  OpenPage();
  Resource("/1");
  Settle();
  wallClockUs += 61'000'000;  // it is stale in both caches

  const struct {
    const char* asksWith;
    int status;
    const char* body;
  } rows[] = {{"", 200, "picture"}, {"If-None-Match: \"v1\"\r\n", 304, ""}};
  for (const auto& row : rows) {
    OpenPageAgain(1);
    EXPECT_NE(LastRequestFor("/1").find("If-None-Match: \"v1\""), std::string::npos) << "asked for ahead";
    const size_t before = RequestCount();
    const Browser& browser = Resource("/1", row.asksWith);
    EXPECT_EQ(browser.status, row.status);
    EXPECT_EQ(browser.body, row.body);
    EXPECT_NE(browser.source, LoadSource::Network);
    EXPECT_EQ(RequestCount(), before);
    Settle();
    wallClockUs += 61'000'000;
  }

  OpenPageAgain(1);
  Resource("/1", "If-None-Match: \"v1\"\r\n");
  Settle();
  TakeAsked();
  OpenPageAgain(0);
  EXPECT_EQ(TakeAsked(), " /") << "what the browser's own cache can answer is not asked for";
}

TEST_F(ProxyEngineTest, NobodyGetsWhatWasMeantForOtherCookies) {
  Start([](const std::string& path, const std::string& request) -> std::string {
    if (path == "/") return Plain(path, request);
    const size_t cookie = request.find("Cookie: ");
    return OkResponse("Cache-Control: no-store\r\n",
                      cookie == std::string::npos ? "nobody" : request.substr(cookie + 8, 4));
  });
  OpenPage();
  EXPECT_EQ(Resource("/mine", "Cookie: me=1\r\n").body, "me=1");
  Settle();

  OpenPageAgain(1, "Cookie: me=1\r\n");
  const Browser& same = Resource("/mine", "Cookie: me=1\r\n");
  EXPECT_EQ(same.body, "me=1");
  EXPECT_NE(same.source, LoadSource::Network);
  Settle();

  OpenPageAgain(1);
  const Browser& other = Resource("/mine", "Cookie: me=2\r\n");
  EXPECT_EQ(other.body, "me=2");
  EXPECT_EQ(other.source, LoadSource::Network);
  EXPECT_EQ(other.Header("Server-Timing"), "preload;desc=\"network: other cookies\"");
  Settle();

  OpenPageAgain(1);
  EXPECT_NE(LastRequestFor("/mine").find("me=2"), std::string::npos) << "the newest ones";
  EXPECT_EQ(Resource("/mine").body, "nobody") << "logged out by a script";
}

TEST_F(ProxyEngineTest, APageIsOfTheSiteThatItsRedirectsLeadTo) {
  Start([this](const std::string& path, const std::string& request) {
    const std::string there =
        "HTTP/1.1 302 Found\r\nContent-Length: 0\r\nLocation: " + server->Url("/") + "\r\n\r\n";
    return path == "/start" ? there : Plain(path, request);
  });
  const auto begin = [&] {
    Browser& browser = browsers.emplace_back();
    engine->Start({.method = "GET",
                   .url = "http://localhost:" + std::to_string(server->Port()) + "/start",
                   .headers = "Sec-Fetch-Dest: document\r\nSec-Fetch-Site: none\r\n",
                   .body = nullptr},
                  browser);
    RunUntil(loop, [&] { return browser.result != 1; });
  };
  begin();
  OpenPage();
  Resource("/mine", "Cookie: me=1\r\n");
  Settle();
  TakeAsked();
  begin();
  RunUntil(loop, [&] { return RequestCount() == 5; });
  EXPECT_NE(LastRequestFor("/mine").find("Cookie: me=1"), std::string::npos) << TakeAsked();
  OpenPage();
  EXPECT_NE(Resource("/mine", "Cookie: me=1\r\n").source, LoadSource::Network);
}

TEST_F(ProxyEngineTest, PrivateAddressesAreForPagesFromThere) {
  Start(Plain);
  const std::string own = server->Url("/");
  const struct {
    std::string headers;
    bool allowed;
  } rows[] = {
      {"Sec-Fetch-Site: none\r\nSec-Fetch-Dest: document\r\n", true},
      {"Accept: text/html\r\nUpgrade-Insecure-Requests: 1\r\n", true},
      {"Accept: text/html\r\n", false},  // as a script can ask as well
      {"Sec-Fetch-Site: cross-site\r\nSec-Fetch-Dest: image\r\n", false},
      {"Origin: https://public.test\r\nSec-Fetch-Dest: empty\r\n", false},
      {"Origin: " + own.substr(0, own.size() - 1) + "\r\nSec-Fetch-Dest: empty\r\n", true},
      {"Referer: " + own + "page\r\n", true},
      {"Referer: http://public.test/page\r\n", false},
  };
  for (const bool allow : {false, true}) {
    settings.allowPrivate = allow;
    for (const auto& row : rows) {
      StartEngine();
      TakeAsked();
      const Browser& browser = Get("/x", row.headers);
      EXPECT_EQ(browser.result == host::kOk, row.allowed || allow) << row.headers;
      EXPECT_EQ(TakeAsked(), row.allowed || allow ? " /x" : "") << row.headers;
      if (row.headers.find("text/html") != std::string::npos) continue;  // no tunnel is a navigation
      StartEngine();
      const AddressRule rule =
          engine->AddressesFor({.method = "GET", .url = server->Url("/x"), .headers = row.headers});
      EXPECT_EQ(rule("127.0.0.1"), row.allowed || allow) << row.headers;
      EXPECT_TRUE(rule("8.8.8.8"));
    }
  }
}

TEST_F(ProxyEngineTest, WhatGoesAwayInTheMiddleHarmsNobody) {
  Start([](const std::string& path, const std::string& request) {
    return path == "/cut" ? "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nbegin" : Plain(path, request);
  });
  for (int visit = 0; visit < 2; ++visit) {
    OpenPage();
    Ask("/1", "Sec-Fetch-Dest: image\r\nReferer: " + server->Url("/") + "\r\n");
    engine->Cancel(browsers.back().id);
    engine->Cancel(browsers.back().id);
    engine->SetReading(browsers.back().id, true);
    Resource("/2");
    EXPECT_EQ(browsers[browsers.size() - 2].result, 1) << "nothing is heard after it was cancelled";
    Settle();
  }
  EXPECT_EQ(pages.back().served + pages.back().joined, 1u);
  OpenPage();
  Browser& open = Ask("/1", "Sec-Fetch-Dest: image\r\nReferer: " + server->Url("/") + "\r\n");
  engine.reset();
  EXPECT_EQ(open.result, 1);
  EXPECT_EQ(pages.size(), 3u) << "what the open page has taught is not lost";
  StartEngine();
  EXPECT_EQ(OpenPage().body, "body of /");
}

}  // namespace
}  // namespace live
