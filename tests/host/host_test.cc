// Corvane's running side with the real plugin, over a network that the test answers by hand: what is ordered
// and when, who gets what, what outlives what, and what is never done. The plugin's log tells what it was
// asked for.
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "android/log.h"
#include "cutils/properties.h"
#include "host/corvane_runtime.h"
#include "host/network_stack.h"
#include "host/virtual_clock.h"
#include "net/url_request/url_request_context.h"
#include "plugin/properties.h"
#include "tests/support/scripted_transport.h"

namespace host {
namespace {

using tests::Ok;
using tests::ResponseHeaders;
using Lines = std::vector<std::string>;
using Properties = std::vector<std::pair<const char*, const char*>>;

constexpr const char* kPage = "http://page.test/";
constexpr TabId kTab = 1;

// Writes down what it hears, and then does what the test wants it to do.
struct RecordingClient : LoadClient {
  std::string heard;
  LoadInfo info;
  std::function<void()> onResponse, onBody, onDone;

  void OnResponse(const LoadInfo& now, const net::HttpResponseHeaders& headers) override {
    info = now;
    heard += std::to_string(headers.response_code());
    if (onResponse) onResponse();
  }
  void OnBody(const char* bytes, int32_t count) override {
    heard += " " + std::string(bytes, static_cast<size_t>(count));
    if (onBody) onBody();
  }
  void OnDone(const LoadInfo& now, int32_t result, const TransferReport& /*report*/) override {
    info = now;
    heard += " done " + std::to_string(result);
    if (onDone) onDone();
  }
};

struct Cookies : net::URLRequestContext {
  std::string cookies;

  std::string CookiesFor(const std::string& /*url*/) override { return cookies; }
};

class HostTest : public testing::Test {
 protected:
  HostTest() {
    log.clear();
    android_log::SetSink([](int, int priority, const char*, const char* text) {
      EXPECT_LT(priority, int{ANDROID_LOG_WARN}) << text;
      log.push_back(std::string(text).substr(std::string_view("netstack: KIV_PROC - ").size()));
      EXPECT_EQ(log.back().find("bad cookie"), std::string::npos) << "a fetch outlived its preload";
    });
  }
  ~HostTest() override { android_log::SetSink(nullptr); }

  // The library anew, with a host around it.
  void Start(HostSettings settings = {}, const Properties& properties = {}, bool stackIsUp = true) {
    settings.verboseLevel = 4;
    for (const kiv::Property& row : kiv::property::kAll) property_set(row.name, nullptr);
    for (const auto& [name, value] : properties) property_set(name, value);
    stack.reset();
    corvane.reset();
    transport.transfers.clear();
    library.emplace(KIV_PLUGIN_PATH);
    corvane.emplace(library->Functions(), clock, transport, settings);
    stack.emplace(*corvane, clock, transport);
    corvane->Start();
    if (stackIsUp) corvane->NetworkStackIsUp();
    log.clear();
  }

  void Request(const std::string& url = kPage, TabId tab = kTab) {
    corvane->PageRequested({.tab = tab,
                            .url = url,
                            .headers = "X: y\r\n",
                            .context = hasContext ? &context : nullptr,
                            .isFresh = [](const std::string& asked) { return asked.ends_with("fresh"); }});
  }
  void See(const std::string& name, ResourceKind kind = ResourceKind::Image,
           const net::HttpResponseHeaders& headers = Ok(), const char* method = "GET", TabId tab = kTab) {
    corvane->ResourceSeen(tab, {.url = Url(name), .kind = kind, .method = method, .headers = repeated});
    corvane->ResponseSeen(tab, Url(name), headers);
  }
  // A first visit that teaches these, all alike, and the page once more. Runs what is due at once, so that
  // the preloads are sent.
  void LearnAndRequest(const Lines& names, const std::string& page = kPage, TabId tab = kTab) {
    Request(page, tab);
    for (const std::string& name : names) See(name, ResourceKind::Image, Ok(), "GET", tab);
    corvane->PageLeft(tab);
    Request(page, tab);
    clock.RunFor(0);
  }
  static std::string Url(const std::string& name) { return "http://s.test/" + name; }
  const PreloadRecord& Record(const std::string& name) { return corvane->Ledger(kTab).at(Url(name)); }

  // The transfer at a place gets this answer, and what follows from it happens.
  void Answer(size_t place, const std::string& body = "body",
              const net::HttpResponseHeaders& headers = Ok()) {
    transport.Answer(place, body, headers);
    clock.RunFor(0);
  }
  LoadInfo Get(const std::string& name, RecordingClient& client, const std::string& headers = "",
               TabId tab = kTab) {
    return stack->Start({.tab = tab, .url = Url(name), .headers = headers}, client);
  }
  // Asks, and answers what goes to the network; what the client heard.
  std::string Fetched(const std::string& name, const std::string& headers = "") {
    RecordingClient client;
    const size_t before = transport.transfers.size();
    client.info = Get(name, client, headers);
    clock.RunFor(0);
    if (transport.transfers.size() > before) Answer(before, "network", Ok("Content-Length: 7"));
    return client.heard;
  }
  static std::string Ordered() {  // since the last call
    std::string all;
    for (const std::string& line : std::exchange(log, {})) {
      if (line.starts_with("Set For Preload")) all += line.substr(line.rfind('/') + 1);  // ends with a blank
    }
    return all;
  }

  static inline Lines log;
  std::optional<LoadedPlugin> library;
  VirtualClock clock;
  tests::ScriptedTransport transport;
  Cookies context;
  bool hasContext = true;
  std::string repeated;  // headers of the requests that See sees
  std::optional<CorvaneRuntime> corvane;
  std::optional<NetworkStack> stack;
};

// --- Orders

TEST_F(HostTest, OrdersNothingWithoutContextOrWhileSwitchedOff) {
  for (const std::string off : {"net.cv.kiv.on", "net.cv.kiv.cacheen", "net.cv.kiv.preloaderen", ""}) {
    Start({}, off.empty() ? Properties{} : Properties{{off.c_str(), "0"}});
    hasContext = !off.empty();
    LearnAndRequest({"a"});
    EXPECT_EQ(Record("a").notOrdered, hasContext ? NotServed::SwitchedOff : NotServed::NoContext) << off;
    EXPECT_EQ(Ordered(), "");
  }
}

TEST_F(HostTest, ReadsTheSizeLimitAsThePluginDoes) {
  for (const auto& [limit, held] :
       {std::pair("4294967296", true), {"-1", true}, {"3", false}, {"x", false}}) {
    Start({}, {{"net.cv.kiv.cslimit", limit}});
    LearnAndRequest({"a"});
    EXPECT_EQ(Record("a").notOrdered, held ? NotServed::None : NotServed::OverSizeLimit) << limit;
  }
}

// They start when the network stack is up. Each end of a fetch frees a slot, and has to be followed by a pass
// that uses it. No warning comes, so every fetch was announced and balanced.
TEST_F(HostTest, OnePreloadAfterTheOtherWhateverTheirEnds) {
  Start({}, {{"net.cv.kiv.prlimit", "1"}}, false);
  LearnAndRequest({"ok", "refused", "failed", "empty", "last"});
  EXPECT_EQ(transport.Urls(), "");
  EXPECT_EQ(Ordered(), "");
  corvane->NetworkStackIsUp();
  clock.RunFor(0);
  ASSERT_EQ(transport.Urls(), " p:ok");
  Answer(0);
  Answer(1, "", Ok("Transfer-Encoding: chunked"));
  transport.Done(2, kFailed);
  clock.RunFor(0);
  Answer(3, "", Ok("Content-Length: 0"));
  Answer(4);
  EXPECT_EQ(transport.Urls(), " p:ok xp:refused p:failed p:empty p:last")
      << "nobody waits for the refused one";
  EXPECT_EQ(Record("last").stage, PreloadStage::Held);
  EXPECT_EQ(Record("refused").stage, PreloadStage::Failed);
  EXPECT_EQ(Record("failed").stage, PreloadStage::Failed);
  EXPECT_EQ(Fetched("empty"), "200 network done 0") << "a body of no bytes is not held";
}

TEST_F(HostTest, APreloadIsSentAsThePageWouldSendIt) {
  Start({.minSeenShare = 0.4});
  context.cookies = "c=1";
  repeated = "Accept: image/*\r\nOrigin: http://page.test\r\nCookie: old\r\nRange: bytes=0-\r\n\r\n";
  LearnAndRequest({"a"});
  const TransferRequest& sent = transport.transfers.at(0).request;
  EXPECT_EQ(sent.headers, "Accept: image/*\r\nOrigin: http://page.test\r\nCookie: c=1\r\n\r\n");
  EXPECT_EQ(sent.method, "GET");
  EXPECT_EQ(sent.context, &context);
  EXPECT_EQ(sent.loadFlags, 0x800000);
  EXPECT_EQ(sent.priority, net::LOWEST);
  EXPECT_EQ(sent.motivation, net::HttpRequestInfo::PREFETCH_MOTIVATED);

  corvane->ResourceSeen(kTab, {.url = Url("anonymous"), .withCredentials = false});
  corvane->ResponseSeen(kTab, Url("anonymous"), Ok());
  corvane->PageLeft(kTab);
  Request();
  clock.RunFor(0);
  ASSERT_EQ(transport.transfers.at(1).request.url, Url("anonymous"));
  EXPECT_EQ(transport.transfers.at(1).request.headers, "Accept: */*\r\n\r\n");
}

TEST_F(HostTest, NeverAsksForAUrlThatSharesItsHash) {
  const char *one = "943738.png", *other = "1206106.png";
  Start();
  ASSERT_EQ(CorvaneHash(Url(one).c_str()), CorvaneHash(Url(other).c_str()));
  LearnAndRequest({one, other});
  EXPECT_EQ(Record(other).notOrdered, NotServed::SharesHash);
  EXPECT_EQ(Fetched(other), "200 network done 0") << "not joined";
  Answer(0);
  EXPECT_EQ(Fetched(other), "200 network done 0") << "not served";
  EXPECT_EQ(Fetched(one), "200 body done 0");
}

// It posts one for a page that it knows and of which it has seen no request.
TEST_F(HostTest, ThePluginsOwnCommandComesBackAfterItsDelay) {
  Start({.maxToldResources = 0}, {{"net.cv.kiv.bypassen", "1"}, {"net.cv.kiv.bypassdl", "70"}});
  LearnAndRequest({"frame"});
  Answer(0);
  Request(Url("frame"), 2);
  const uint64_t before = corvane->CommandCount();
  clock.Run();
  EXPECT_EQ(clock.NowUs(), 70'000);
  EXPECT_EQ(corvane->CommandCount(), before + 1);
  EXPECT_EQ(corvane->UnansweredCount(), 0u);
}

// --- Loads

// One load joins before the fetcher has begun, one while it runs, one in the middle of the body. The plugin
// takes the first response, and refuses the others.
TEST_F(HostTest, EveryLoadGetsTheWholeResponseHoweverItGetsIt) {
  const struct {
    net::HttpResponseHeaders headers;
    const char* first;
    LoadSource third;
  } rows[] = {
      {Ok(), "200 bo dy done 0", LoadSource::Joined},
      {Ok("A: b"), "200 bo dy done 0", LoadSource::Network},  // it cannot be joined any more
      {Ok("Content-Type: text/html\nContent-Length: 4"), "200 bo dy done 0", LoadSource::Joined},
      {ResponseHeaders("HTTP/1.1 404 No\nContent-Length: 4"), "404 bo dy done 0", LoadSource::Joined},
  };
  for (const auto& row : rows) {
    Start();
    Request();
    See("a"), See("b");
    corvane->PageLeft(kTab);
    Request();
    RecordingClient first, second, third;
    EXPECT_EQ(Get("a", first).source, LoadSource::Joined);
    clock.RunFor(0);
    EXPECT_EQ(transport.Urls(), " b:a p:b");
    EXPECT_EQ(Get("a", second).source, LoadSource::Joined);
    transport.Respond(0, row.headers);
    transport.Body(0, "bo");
    EXPECT_EQ(first.heard, std::string(row.first).substr(0, 6)) << "as it comes";
    EXPECT_EQ(Get("a", third).source, row.third);
    EXPECT_EQ(third.heard, "") << "never from inside";
    clock.RunFor(0);
    transport.Body(0, "dy");
    transport.Done(0);
    clock.RunFor(0);
    EXPECT_EQ(first.heard, row.first);
    EXPECT_EQ(second.heard, row.first);
    EXPECT_EQ(third.heard, row.third == LoadSource::Joined ? row.first : "");
    EXPECT_EQ(Fetched("a"), "200 network done 0") << "a preload is used by those who were there";
    EXPECT_EQ(Get("b", second).source, LoadSource::Joined);
    EXPECT_EQ(transport.Urls(1).substr(0, 4), " b:b");
  }
  Start({.joinRunning = false});
  LearnAndRequest({"a"});
  RecordingClient client;
  EXPECT_EQ(Get("a", client).why, NotServed::StillRunning);
  EXPECT_EQ(client.info.source, LoadSource::Network);
}

TEST_F(HostTest, ALengthOtherThanTheDeclaredOneIsNoSuccess) {
  const struct {
    Lines chunks;
    bool cut;
    const char* joined;
  } rows[] = {
      {{"bod"}, false, "200 bod done -354"},
      {{"body", "!"}, true, "200 body done -354"},
      {{"bo", "dy, and a million more"}, true, "200 bo dy done -354"},
      {{}, false, "200 done -354"},
  };
  for (const auto& row : rows) {
    Start();
    LearnAndRequest({"a"});
    RecordingClient joined;
    Get("a", joined);
    clock.RunFor(0);
    transport.Respond(0, Ok());
    for (const std::string& chunk : row.chunks) transport.Body(0, chunk);
    EXPECT_EQ(transport.transfers[0].cancelled, row.cut);
    transport.Done(0);
    clock.RunFor(0);
    EXPECT_EQ(joined.heard, row.joined);
    EXPECT_EQ(Record("a").stage, PreloadStage::Failed);
    EXPECT_EQ(Fetched("a"), "200 network done 0") << "never served";
  }
}

// An error is no answer to the question whether a copy is still good.
TEST_F(HostTest, AJoinerThatHasACopyHearsOfAnError) {
  Start();
  LearnAndRequest({"a"});
  RecordingClient client;
  Get("a", client, "If-None-Match: \"v1\"\r\n");
  clock.RunFor(0);
  Answer(0, "gone", ResponseHeaders("HTTP/1.1 404 No\nContent-Length: 4\nETag: \"v1\""));
  EXPECT_EQ(client.heard, "404 gone done 0");
}

// What is held goes to the request that it stands for, and to no other. The table of the rules themselves is
// with the rules.
TEST_F(HostTest, AHeldResponseAnswersOnlyTheRequestThatItStandsFor) {
  const std::string vary = "Content-Length: 4\nVary: Accept-Language\nETag: \"v1\"";
  const struct {
    const char* headers;
    const char* heard;
    NotServed why;
  } rows[] = {
      {"Accept-Language: de\r\nCookie: c=1\r\n", "200 body done 0", NotServed::None},
      {"Accept-Language: de\r\nCookie: c=1\r\nIf-None-Match: \"v1\"\r\n", "304 done 0", NotServed::None},
      {"Accept-Language: de\r\nCookie: c=1\r\nIf-None-Match: \"v0\"\r\n", "200 body done 0", NotServed::None},
      {"Accept-Language: de\r\nCookie: c=1\r\nRange: bytes=0-1\r\n", "200 network done 0", NotServed::Range},
      {"Accept-Language: de\r\nCookie: c=2\r\n", "200 network done 0", NotServed::OtherCookies},
      {"Accept-Language: fr\r\nCookie: c=1\r\n", "200 network done 0", NotServed::OtherVariant},
  };
  for (const bool running : {false, true}) {
    for (const auto& row : rows) {
      SCOPED_TRACE(row.headers);
      Start();
      context.cookies = "c=1";
      repeated = "Accept-Language: de\r\n";
      LearnAndRequest({"a"});
      if (!running) Answer(0, "body", Ok(vary));
      RecordingClient client;
      client.info = Get("a", client, row.headers);
      if (running) {
        // Cookies are compared at once, the variant when the response is there.
        clock.RunFor(0);
        Answer(0, "body", Ok(vary));
      }
      if (transport.transfers.size() > 1) Answer(1, "network", Ok("Content-Length: 7"));
      clock.RunFor(0);
      EXPECT_EQ(client.heard, row.heard);
      if (client.info.source != LoadSource::Joined) {
        EXPECT_EQ(client.info.why, row.why);
      }
    }
  }
}

TEST_F(HostTest, AChangeMakesWhatIsHeldForItOutOfDate) {
  Start();
  LearnAndRequest({"held", "running", "list", "bystander"});
  Answer(0);
  Answer(2);
  Answer(3);
  RecordingClient before, post;
  Get("running", before);
  clock.RunFor(0);
  const auto change = [&](const char* name, const char* status) {
    stack->Start({.tab = kTab, .url = Url(name), .method = "POST"}, post);
    Answer(transport.transfers.size() - 1, "",
           ResponseHeaders(std::string(status) + "\nLocation: /list\nContent-Location: running"));
  };
  change("held", "HTTP/1.1 403 No");
  EXPECT_EQ(Record("held").stage, PreloadStage::Held);
  change("held", "HTTP/1.1 303 See Other");
  for (const char* name : {"held", "running", "list"}) {
    RecordingClient client;
    EXPECT_EQ(Get(name, client).why, NotServed::Invalidated) << name;
    stack->Cancel(client.info.id);
  }
  EXPECT_EQ(Fetched("bystander"), "200 body done 0");
  Answer(1, "old!");
  EXPECT_EQ(before.heard, "200 old! done 0") << "it had joined before the change";
}

// --- Clients that act inside their callbacks, and ends at any moment

TEST_F(HostTest, NothingIsHeardOfAfterItsEnd) {
  enum class Gone { Client, Stack, Host };
  for (const Gone gone : {Gone::Client, Gone::Stack, Gone::Host}) {
    for (const bool inside : {false, true}) {
      Start();
      LearnAndRequest({"held", "running", "queued"});
      Answer(0);
      RecordingClient served, joined, sent;
      const LoadId ids[] = {Get("held", served).id, Get("running", joined).id, Get("own", sent).id};
      const auto end = [&] {
        if (gone == Gone::Client) {
          for (const LoadId id : ids) stack->Cancel(id);
        }
        if (gone != Gone::Client) stack.reset();
        if (gone == Gone::Host) corvane.reset();
      };
      if (inside) {
        served.onResponse = end;
      } else {
        end();
      }
      clock.RunFor(0);
      for (size_t place = 0; place < transport.transfers.size(); ++place) Answer(place);
      clock.Run();
      EXPECT_EQ(served.heard, inside ? "200" : "");
      EXPECT_EQ(joined.heard + sent.heard, "");
      EXPECT_EQ(log.back() == "OnClearDb", gone == Gone::Host) << log.back();
      const auto done = std::count_if(log.begin(), log.end(), [](const std::string& line) {
        return line.starts_with("NET trans") && line.ends_with("/own");
      });
      EXPECT_EQ(done, 1) << "the plugin hears of the end of each transaction";
      const bool preloadsGoOn = gone != Gone::Host;
      EXPECT_EQ(transport.Urls(), std::string(" p:held") +
                                      (preloadsGoOn ? " p:running p:queued" : " xp:running xp:queued") +
                                      " xb:own");
    }
  }
}

TEST_F(HostTest, AJoinerDoesNotWaitForAStalledPreload) {
  Start({.joinPatienceMs = 1000, .fetchPatienceMs = 3000});
  LearnAndRequest({"a", "b", "c"});
  RecordingClient waiting, hearing;
  Get("a", waiting);
  Get("b", hearing);
  clock.RunFor(0);
  transport.Respond(1, Ok());
  clock.RunFor(900'000);
  transport.Body(1, "bo");
  clock.RunFor(200'000);
  EXPECT_EQ(transport.Urls(), " p:a b:b p:c b:a") << "on its own, and the preload goes on for others";
  Answer(3);
  EXPECT_EQ(waiting.heard, "200 body done 0");
  EXPECT_EQ(waiting.info.why, NotServed::Stalled);
  clock.RunFor(2'700'000);
  EXPECT_EQ(hearing.heard, "200 bo") << "3 s after its last byte are not over";
  clock.RunFor(200'000);
  EXPECT_EQ(hearing.heard, "200 bo done -7");
  EXPECT_EQ(transport.Urls(), " xp:a xb:b xp:c b:a");
  EXPECT_EQ(Get("a", waiting).why, NotServed::Failed) << "waiting for it was no use of it";
  clock.Run();
}

TEST_F(HostTest, AJoinerOfAPreloadThatFailsGoesOnItsOwnUnlessItHasHeardOfTheResponse) {
  Start();
  LearnAndRequest({"a", "b", "c"});
  RecordingClient unheard, heard, silent;
  Get("a", unheard);
  Get("b", heard);
  Get("c", silent);
  clock.RunFor(0);
  transport.Respond(1, Ok());
  transport.Done(0, kConnectionFailed);
  transport.Done(1, kConnectionClosed);
  transport.Done(2);  // without a response
  EXPECT_EQ(transport.Urls(), " b:a b:b b:c b:a b:c");
  Answer(3);
  EXPECT_EQ(unheard.heard, "200 body done 0");
  Answer(4);
  EXPECT_EQ(silent.heard, "200 body done 0");
  EXPECT_EQ(unheard.info.why, NotServed::Failed);
  EXPECT_EQ(heard.heard, "200 done -100");
}

TEST_F(HostTest, AJoinerThatDoesNotReadSlowsDownWhatThePluginDoesNotBound) {
  const std::string chunk(100'000, 'x');
  Start();
  LearnAndRequest({"a"});
  RecordingClient fast, slow;
  const LoadId slowId = Get("a", slow).id;
  Get("a", fast);
  clock.RunFor(0);
  stack->SetReading(slowId, false);
  transport.Respond(0, Ok("Transfer-Encoding: chunked"));
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(transport.transfers[0].reading) << i;
    transport.Body(0, chunk);
  }
  EXPECT_FALSE(transport.transfers[0].reading);
  EXPECT_EQ(fast.heard.size(), 3 + 3 * (1 + chunk.size()));
  EXPECT_EQ(slow.heard, "200");
  clock.RunFor(100'000'000);
  EXPECT_FALSE(transport.transfers[0].cancelled) << "it makes no progress because it must not";
  clock.RunFor(29'000'000);
  stack->SetReading(slowId, true);
  clock.RunFor(2'000'000);
  EXPECT_TRUE(transport.transfers[0].reading);
  EXPECT_FALSE(transport.transfers[0].cancelled) << "nor did it have the time since";
  EXPECT_EQ(slow.heard, fast.heard);
  transport.Done(0);
  EXPECT_EQ(slow.heard, fast.heard);
  EXPECT_TRUE(slow.heard.ends_with(" done 0"));
}

// --- Connections ahead of their use

TEST_F(HostTest, OpensConnectionsForWhatIsNeitherOrderedNorFresh) {
  const auto visit = [this](const std::string& late) {
    Request();
    corvane->ResourceSeen(kTab, {.url = "http://held.test/a"});
    corvane->ResponseSeen(kTab, "http://held.test/a", Ok());
    clock.RunFor(300'000);
    corvane->ResourceSeen(kTab, {.url = "http://early.test/", .method = "POST"});
    corvane->ResourceSeen(kTab, {.url = "http://early.test/fresh"});
    corvane->ResourceSeen(kTab, {.url = "http://fresh.test/fresh"});
    clock.RunFor(2'000'000);
    corvane->ResourceSeen(kTab, {.url = "http://late.test/?" + late});
    corvane->LoadEvent(kTab);
    corvane->ResourceSeen(kTab, {.url = "http://after.test/", .method = "POST"});
  };
  const std::string early = " http://early.test/*1", late = " http://late.test/?1700000000*1";
  const struct {
    HostSettings settings;
    Properties properties;
    int64_t runUs;
    std::string opened;
  } rows[] = {
      {{}, {}, 299'999, early},
      {{}, {}, 300'000, early + late},  // two seconds before its time
      {{.preconnectLeadMs = 0}, {}, 299'999, ""},
      {{.preconnectLeadMs = 0}, {}, 300'000, early},
      {{.preconnect = false}, {}, 5'000'000, ""},
      {{}, {{"net.cv.kiv.on", "0"}}, 5'000'000, ""},
  };
  for (const auto& row : rows) {
    for (const bool leave : {false, true}) {
      SCOPED_TRACE(&row - rows);
      Start(row.settings, row.properties);
      visit("1700000000");
      EXPECT_EQ(transport.preconnects, "") << "nothing was known yet";
      corvane->PageLeft(kTab);
      Request();
      clock.RunFor(row.runUs);
      if (leave) corvane->PageLeft(kTab);
      EXPECT_EQ(std::exchange(transport.preconnects, ""), row.opened);
      clock.RunFor(10'000'000);
      EXPECT_TRUE(!leave || transport.preconnects.empty()) << "the page is left";
      transport.preconnects.clear();
    }
  }
}

// --- Pages and tabs

// What ran, waited or was held on a page that is left must neither reach the next one nor cost it a slot.
TEST_F(HostTest, AFlushLeavesNothingBehind) {
  for (const bool pageIsCached : {false, true}) {
    SCOPED_TRACE(pageIsCached);
    Start({.minSeenShare = 0.4}, {{"net.cv.kiv.prlimit", "2"}});
    LearnAndRequest({"a", "b", "c", "d"});
    if (pageIsCached) corvane->CacheStatus(kPage, true);  // then a flush does not forget the page's context
    RecordingClient joined, own, served;
    EXPECT_EQ(Get("own", own).source, LoadSource::Network);
    EXPECT_EQ(Get("a", joined).source, LoadSource::Joined);
    clock.RunFor(0);
    ASSERT_EQ(transport.Urls(), " b:a p:b b:own");
    transport.Respond(0, Ok());
    log.clear();
    Request();
    EXPECT_EQ(Ordered(), "a b c d ");
    EXPECT_TRUE(transport.transfers[1].cancelled);
    clock.RunFor(0);
    ASSERT_EQ(transport.Urls(3), " p:a p:b");
    Answer(3, "new!");
    transport.Body(0, "old!");  // the old transfer of the same URL, for the load that waits for it
    transport.Done(0);
    for (size_t place = 4; place < transport.transfers.size(); ++place) Answer(place);
    EXPECT_EQ(transport.Urls(3), " p:a p:b p:c p:d");
    EXPECT_EQ(joined.heard, "200 old! done 0");
    EXPECT_EQ(Get("a", served).source, LoadSource::Served);
    clock.RunFor(0);
    EXPECT_EQ(served.heard, "200 new! done 0");
  }
}

TEST_F(HostTest, TabsKeepApartWhatTheyLearnAndOrder) {
  const std::string otherPage = "http://other.test/";
  Start({.minSeenShare = 0.4});
  Request(kPage, 1);
  Request(otherPage, 2);
  See("one", ResourceKind::Image, Ok(), "GET", 1);
  See("two", ResourceKind::Image, Ok(), "GET", 2);
  See("both", ResourceKind::Image, Ok(), "GET", 1);
  See("both", ResourceKind::Image, Ok(), "GET", 2);
  corvane->PageLeft(1);
  corvane->TabClosed(2);
  corvane->ResourceSeen(2, {.url = Url("late")});
  Ordered();
  Request(kPage, 1);
  EXPECT_EQ(Ordered(), "one both ");
  Request(otherPage, 2);
  EXPECT_EQ(Ordered(), "two ");
  EXPECT_EQ(corvane->Ledger(2).at(Url("both")).notOrdered, NotServed::OtherPage);
  clock.RunFor(0);
  ASSERT_EQ(transport.Urls(), " p:one p:both p:two");
  for (const size_t place : {0, 1, 2}) Answer(place);

  RecordingClient client, served;
  EXPECT_EQ(Get("one", client, "", 2).why, NotServed::NotKnownYet) << "the other tab has ordered it";
  corvane->TabClosed(1);
  const bool flushed = std::any_of(log.begin(), log.end(),
                                   [](const std::string& line) { return line.starts_with("OnFlushDb"); });
  EXPECT_FALSE(flushed) << "the second tab is loading";
  EXPECT_EQ(Get("two", served, "", 2).source, LoadSource::Served);
  Request(kPage, 3);
  clock.RunFor(0);
  EXPECT_EQ(transport.Urls(3), " b:one p:one p:both") << "what the closed tab had is ordered anew";
  clock.Run();
}

// A load may end long after the preload that it joined, when another page has ordered the URL for itself.
TEST_F(HostTest, ALateJoinerTakesNothingFromAnotherTab) {
  Start();
  LearnAndRequest({"a"});
  RecordingClient late, served, other;
  const LoadId id = Get("a", late).id;
  stack->SetReading(id, false);
  clock.RunFor(0);
  Answer(0);
  EXPECT_EQ(Get("a", served).source, LoadSource::Served);
  LearnAndRequest({"a"}, "http://other.test/", 2);
  ASSERT_EQ(transport.Urls(), " b:a p:a");
  stack->SetReading(id, true);
  clock.RunFor(0);
  EXPECT_EQ(late.heard, "200 body done 0");
  EXPECT_EQ(Get("a", other, "", 2).source, LoadSource::Joined);
  Answer(1, "new!");
  EXPECT_EQ(other.heard, "200 new! done 0");
}

// The plugin knows one context and one set of headers for a page, whoever shows it.
TEST_F(HostTest, TwoTabsOnOnePageHaveAContextEach) {
  Start({}, {{"net.cv.kiv.prlimit", "1"}});
  context.cookies = "c=1";
  LearnAndRequest({"a", "b"});
  {
    Cookies other;
    other.cookies = "c=2";
    corvane->PageRequested(
        {.tab = 2, .url = kPage, .context = &other, .isFresh = [](const std::string&) { return false; }});
    corvane->TabClosed(2);
  }
  Answer(0);
  ASSERT_EQ(transport.Urls(), " p:a p:b");
  EXPECT_EQ(transport.transfers[1].request.context, &context);
  EXPECT_EQ(transport.transfers[1].request.headers, "Accept: */*\r\nCookie: c=1\r\n\r\n");
}

// Queued preloads get their context from what the plugin knows of the page.
TEST_F(HostTest, AnOpenPageStaysKnownToThePlugin) {
  Start({.maxToldResources = 0}, {{"net.cv.kiv.prlimit", "1"}}, false);
  LearnAndRequest({"a", "b", "c"});
  Request("http://other.test/", 2);
  corvane->TabClosed(2);
  corvane->NetworkStackIsUp();
  clock.RunFor(0);
  ASSERT_EQ(transport.Urls(), " p:a") << "the flush was not for a page that has yet to order";
  corvane->CacheStatus(kPage, true);
  corvane->CacheStatus(kPage, false);
  Answer(0);
  EXPECT_EQ(transport.Urls(), " p:a p:b") << "nor does it go with its place in the disk cache";
  Request("http://other.test/", 2);
  corvane->ResourceSeen(2, {.url = kPage});
  Answer(1);
  EXPECT_EQ(transport.Urls(), " p:a p:b p:c") << "nor because another page shows it in a frame";

  const std::string forgotten = std::string("Set Cache Status: ") + kPage + "(0)";
  EXPECT_EQ(std::count(log.begin(), log.end(), forgotten), 0);
  corvane->PageLeft(kTab);
  EXPECT_EQ(std::count(log.begin(), log.end(), forgotten), 1) << "but then, or it would be known for good";
}

// The plugin would keep a frame as a resource of the page that it was first seen on, without the context that
// the frame's own preloads need.
TEST_F(HostTest, AFrameThatIsOpenedByItselfIsAPage) {
  for (const char* name : {"frame", "frame-fresh"}) {
    const std::string frame = Url(name);
    Start();
    Request();
    See(name, ResourceKind::Document);
    corvane->CacheStatus(frame, true);  // so that it stays known
    corvane->PageLeft(kTab);
    LearnAndRequest({"a"}, frame);
    EXPECT_EQ(transport.Urls(), " p:a") << name;
  }
}

TEST_F(HostTest, AnIdlePageLosesItsPreloads) {
  Start({.minSeenShare = 0.4, .settleAfterMs = 1000});
  LearnAndRequest({"a", "b"});
  Answer(0);
  clock.RunFor(900'000);
  corvane->ResourceSeen(kTab, {.url = Url("more")});
  clock.RunFor(900'000);
  corvane->SettleIdlePages();
  EXPECT_EQ(Record("a").stage, PreloadStage::Held) << "it has asked for something meanwhile";
  clock.RunFor(200'000);
  corvane->SettleIdlePages();
  RecordingClient client;
  EXPECT_EQ(Get("a", client).why, NotServed::Dropped);
  EXPECT_EQ(transport.Urls(), " p:a xp:b b:a");

  corvane->PageLeft(kTab);
  Request();
  clock.RunFor(1'100'000);
  Request("http://other.test/", 2);
  EXPECT_EQ(Record("b").stage, PreloadStage::Dropped) << "another page is a reason to look";
}

// The plugin keeps what the disk cache holds for good, so the host takes the oldest of it back.
TEST_F(HostTest, TheUrlsThatThePluginIsToldOfAreBounded) {
  Start({.maxToldResources = 2});
  Request();
  for (const char* name : {"a", "b", "a", "c"}) {
    See(name);
    corvane->CacheStatus(Url(name), true);
  }
  Lines dropped;
  for (const std::string& line : log) {
    if (line.ends_with("(0)") && line.starts_with("Set Cache Status")) dropped.push_back(line);
  }
  EXPECT_EQ(dropped, Lines{"Set Cache Status: " + Url("b") + "(0)"});
}

}  // namespace
}  // namespace host
