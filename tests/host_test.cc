// Corvane's running side with the real plugin, over a network that the test answers by hand: what is ordered
// and when, joins, flushes, and what is never done. The plugin's log tells what it was asked for.
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "android/log.h"
#include "cutils/properties.h"
#include "host/corvane.h"
#include "host/network_stack.h"
#include "host/page_database.h"
#include "host/plugin_functions.h"
#include "net/url_request/url_request_context.h"
#include "replay/virtual_clock.h"

namespace host {
namespace {

using Lines = std::vector<std::string>;
using Properties = std::vector<std::pair<const char*, const char*>>;

constexpr const char* kSwitches[] = {"net.cv.kiv.on",      "net.cv.kiv.cacheen",  "net.cv.kiv.preloaderen",
                                     "net.cv.kiv.prlimit", "net.cv.kiv.bypassen", "net.cv.kiv.bypassdl"};
constexpr const char* kPage = "http://page.test/";

net::HttpResponseHeaders Headers(const std::string& lines) {
  std::string raw = lines + "\n\n";
  std::replace(raw.begin(), raw.end(), '\n', '\0');
  return net::HttpResponseHeaders(raw);
}

net::HttpResponseHeaders Ok(const std::string& lines = "Content-Length: 4") {
  return Headers("HTTP/1.1 200 OK\n" + lines);
}

// Notes what it is asked for. The test answers a transfer by its place in `transfers`.
struct ScriptedTransport : Transport {
  struct Transfer {
    std::string url;
    Urgency urgency;
    TransferClient* client;
  };
  std::vector<Transfer> transfers;

  TransferId Start(const TransferRequest& request, TransferClient& client) override {
    transfers.push_back({request.url, request.urgency, &client});
    return transfers.size();
  }
  void SetUrgency(TransferId id, Urgency urgency) override {
    transfers[static_cast<size_t>(id - 1)].urgency = urgency;
  }
  void Cancel(TransferId id) override { transfers[static_cast<size_t>(id - 1)].client = nullptr; }

  bool IsCancelled(size_t place) const { return transfers[place].client == nullptr; }
  // "p" or "b" by urgency, and the last word of the URL, of each transfer from the given place on.
  std::string Urls(size_t from = 0) const {
    std::string all;
    for (size_t place = from; place < transfers.size(); ++place) {
      const std::string& url = transfers[place].url;
      all += (transfers[place].urgency == Urgency::Preload ? " p:" : " b:") + url.substr(url.rfind('/') + 1);
    }
    return all;
  }
};

struct RecordingClient : LoadClient {
  std::string heard;

  void OnResponse(const net::HttpResponseHeaders& headers) override {
    heard += std::to_string(headers.response_code());
  }
  void OnPreloadedBody(const std::string&, const std::string& body) override { heard += " " + body; }
  void OnDone(int32_t result) override { heard += " done " + std::to_string(result); }
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
    for (const char* name : kSwitches) property_set(name, nullptr);
    for (const auto& [name, value] : properties) property_set(name, value);
    clock.Run();  // the host has to outlive its tasks
    stack.reset();
    corvane.reset();
    transport.transfers.clear();
    library.emplace(KIV_PLUGIN_PATH);
    corvane.emplace(library->Functions(), clock, transport, settings);
    stack.emplace(*corvane, clock, transport);
    corvane->Start();
    if (stackIsUp) corvane->NetworkStackIsUp();
  }

  void Request(const std::string& url = kPage) {
    corvane->PageRequested({.url = url,
                            .method = "GET",
                            .headers = "X: y\r\n",
                            .context = hasContext ? &context : nullptr,
                            .isFresh = [](const std::string& asked) { return asked.ends_with("fresh"); }});
  }
  void See(const std::string& name, ResourceKind kind = ResourceKind::Image,
           const net::HttpResponseHeaders& headers = Ok(), const char* method = "GET") {
    corvane->ResourceSeen(Url(name), kind, method);
    corvane->ResponseSeen(Url(name), headers);
  }
  // A first visit that teaches these, all alike, and the page once more.
  void LearnAndRequest(const Lines& names) {
    Request();
    for (const std::string& name : names) See(name);
    corvane->PageLeft();
    Request();
  }
  static std::string Url(const std::string& name) { return "http://s.test/" + name; }
  PreloadRecord& Record(const std::string& name) { return *corvane->FindRecord(Url(name)); }

  // The transfer at a place gets this response, these bytes, and its end.
  void Answer(size_t place, const std::string& body = "body",
              const net::HttpResponseHeaders& headers = Ok()) {
    transport.transfers.at(place).client->OnResponse(headers);
    if (!transport.IsCancelled(place)) Finish(place, body);
  }
  void Finish(size_t place, const std::string& body = "body", int32_t result = kOk) {
    TransferClient* const client = transport.transfers.at(place).client;
    if (!body.empty()) client->OnBody(body.data(), static_cast<int32_t>(body.size()));
    if (!transport.IsCancelled(place)) client->OnDone(result);
    clock.Run();
  }
  Load Get(const std::string& name, RecordingClient& client) {
    return stack->Start({.url = Url(name), .method = "GET"}, client);
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
  replay::VirtualClock clock;
  ScriptedTransport transport;
  net::URLRequestContext context;
  bool hasContext = true;
  std::optional<Corvane> corvane;
  std::optional<NetworkStack> stack;
};

TEST_F(HostTest, OrdersWhatIsWorthItByKindThenByPosition) {
  Start();
  using Kind = ResourceKind;
  using Why = NotOrdered;
  // clang-format off
  const struct {
    const char* name;
    Kind kind;
    net::HttpResponseHeaders headers;
    Why why;
    const char* method = "GET";
  } rows[] = {
      {"image", Kind::Image, Ok(), Why::None}, {"data", Kind::Data, Ok(), Why::None}, {"font", Kind::Font, Ok(), Why::None},
      {"post", Kind::Data, Ok(), Why::NotGet, "POST"},
      {"fresh", Kind::Script, Ok(), Why::FreshInDiskCache},
      {"missing", Kind::Image, Headers("HTTP/1.1 404 No\nContent-Length: 4"), Why::StatusNot200},
      {"frame", Kind::Document, Ok("Content-Length: 4\nContent-Type: text/html"), Why::Html},
      {"chunked", Kind::Script, Ok("Transfer-Encoding: chunked"), Why::NoDeclaredLength},
      {"large", Kind::Image, Ok("Content-Length: 2097152"), Why::None},
      {"too-large", Kind::Image, Ok("Content-Length: 2097153"), Why::OverSizeLimit},
      {"sheet", Kind::Stylesheet, Ok(), Why::None}, {"script", Kind::Script, Ok(), Why::None},
  };
  // clang-format on
  Request();
  for (const auto& row : rows) See(row.name, row.kind, row.headers, row.method);
  corvane->PageLeft();
  EXPECT_EQ(Ordered(), "") << "nothing is known on a first visit";
  Request();
  EXPECT_EQ(Ordered(), "font sheet script data image large ");
  for (const auto& row : rows) EXPECT_EQ(Record(row.name).notOrdered, row.why) << row.name;
  See("rare", Kind::Script);  // 1 of 2 visits
  corvane->PageLeft();
  Request();
  EXPECT_EQ(Ordered(), "rare font sheet script data image large ");
  corvane->PageLeft();
  Request();  // 1 of 3; the others 1 of 3 as well
  EXPECT_EQ(Ordered(), "");
  EXPECT_EQ(Record("rare").notOrdered, Why::SeenTooSeldom);
  clock.Run();
  EXPECT_EQ(corvane->UnansweredCount(), 0u);
}

TEST_F(HostTest, OrdersNothingWithoutContextOrWhileSwitchedOff) {
  for (const std::string off : {"net.cv.kiv.on", "net.cv.kiv.cacheen", "net.cv.kiv.preloaderen", ""}) {
    Start({}, off.empty() ? Properties{} : Properties{{off.c_str(), "0"}});
    hasContext = !off.empty();
    LearnAndRequest({"a"});
    EXPECT_EQ(Record("a").notOrdered, hasContext ? NotOrdered::SwitchedOff : NotOrdered::NoContext) << off;
    EXPECT_EQ(Ordered(), "");
  }
}

// They start when the network stack is up. Each end of a fetch frees a slot, and has to be followed by a pass
// that uses it.
TEST_F(HostTest, OnePreloadAfterTheOtherWhateverTheirEnds) {
  for (const bool announce : {true, false}) {
    Start({.announcePreloads = announce}, {{"net.cv.kiv.prlimit", "1"}}, false);
    LearnAndRequest({"ok", "refused", "failed", "empty", "last"});
    clock.Run();
    EXPECT_EQ(transport.Urls(), "");
    corvane->NetworkStackIsUp();
    clock.Run();
    ASSERT_EQ(transport.Urls(), " p:ok");
    Answer(0);
    Answer(1, "", Ok("Transfer-Encoding: chunked"));
    EXPECT_TRUE(transport.IsCancelled(1)) << "nobody waits for it";
    clock.Run();
    Finish(2, "", -7);
    Answer(3, "", Ok("Content-Length: 0"));
    Answer(4);
    EXPECT_EQ(transport.Urls(), " p:ok p:refused p:failed p:empty p:last");
    EXPECT_EQ(Record("last").stage, PreloadStage::Held);
    EXPECT_EQ(Record("refused").stage, PreloadStage::Failed);
    EXPECT_EQ(Record("failed").stage, PreloadStage::Failed);
    RecordingClient client;
    EXPECT_EQ(Get("empty", client).source, LoadSource::Network) << "a body of no bytes is not held";
  }
}

// One request joins before the fetcher has begun, one while it runs, one when the response is there.
TEST_F(HostTest, ARunningPreloadIsJoinedAndHurried) {
  const struct {
    net::HttpResponseHeaders headers;
    LoadSource third;
    const char *first, *others;
  } rows[] = {
      {Ok(), LoadSource::Joined, "200 body done 0", "200 done 0"},    // held, and handed out once
      {Ok("A: b"), LoadSource::Network, "200 done 0", "200 done 0"},  // refused: goes on for those who wait
      {Headers("HTTP/1.1 404 No\nContent-Length: 4"), LoadSource::Joined, "404 done 0", "404 done 0"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.first);
    Start();
    LearnAndRequest({"a", "b"});
    RecordingClient first, second, third;
    EXPECT_EQ(Get("a", first).source, LoadSource::Joined);
    clock.Run();
    EXPECT_EQ(transport.Urls(), " b:a p:b");
    EXPECT_EQ(Get("a", second).source, LoadSource::Joined);
    transport.transfers[0].client->OnResponse(row.headers);
    EXPECT_EQ(first.heard.size(), 3u);
    EXPECT_EQ(Get("a", third).source, row.third);
    EXPECT_EQ(third.heard, "") << "never from inside";
    clock.Run();
    ASSERT_FALSE(transport.IsCancelled(0));
    Finish(0);
    EXPECT_EQ(first.heard, row.first);
    EXPECT_EQ(second.heard, row.others);
    EXPECT_EQ(third.heard, row.third == LoadSource::Joined ? row.others : "");
    EXPECT_EQ(Get("b", second).source, LoadSource::Joined);
    EXPECT_EQ(transport.Urls(1).substr(0, 4), " b:b");
  }
  Start({.joinRunning = false});
  LearnAndRequest({"a"});
  RecordingClient client;
  EXPECT_EQ(Get("a", client).source, LoadSource::Network);
}

// What ran, waited or was held on a page that is left must neither reach the next one nor cost it a slot.
TEST_F(HostTest, AFlushLeavesNothingBehind) {
  for (const int way : {0, 1, 2, 3}) {
    SCOPED_TRACE(way);
    Start({.announcePreloads = way % 2 == 0}, {{"net.cv.kiv.prlimit", "2"}});
    LearnAndRequest({"a", "b", "c", "d"});
    if (way > 1) corvane->CacheStatus(kPage, true);  // then a flush does not forget the page's context
    RecordingClient joined, own, served;
    EXPECT_EQ(Get("own", own).source, LoadSource::Network);
    EXPECT_EQ(Get("a", joined).source, LoadSource::Joined);
    clock.Run();
    ASSERT_EQ(transport.Urls(), " b:own b:a p:b");
    transport.transfers[1].client->OnResponse(Ok());
    log.clear();
    Request();
    EXPECT_EQ(Ordered(), "a b c d ");
    EXPECT_TRUE(transport.IsCancelled(2));
    clock.Run();
    ASSERT_EQ(transport.Urls(3), " p:a p:b");
    Answer(3, "new!");
    Finish(1, "old!");  // the old transfer of the same URL, for the request that waits for it
    for (size_t place = 4; place < transport.transfers.size(); ++place) Answer(place);
    EXPECT_EQ(transport.Urls(3), " p:a p:b p:c p:d");
    EXPECT_EQ(joined.heard, "200 done 0");
    EXPECT_EQ(Get("d", own).source, LoadSource::Served);
    EXPECT_EQ(Get("a", served).source, LoadSource::Served);
    clock.Run();
    EXPECT_EQ(served.heard, "200 new! done 0");
  }
}

TEST_F(HostTest, WithoutAFlushOrdersOnlyWhatIsNotThere) {
  Start({.flushBeforePage = false}, {{"net.cv.kiv.prlimit", "1"}});
  LearnAndRequest({"held", "used", "failed", "running", "waiting"});
  clock.Run();
  Answer(0);
  Answer(1);
  Finish(2, "", -7);
  RecordingClient used, held;
  EXPECT_EQ(Get("used", used).source, LoadSource::Served);
  log.clear();
  Request();
  EXPECT_EQ(Ordered(), "used failed waiting ");
  for (size_t place = 3; place < transport.transfers.size(); ++place) Answer(place);
  EXPECT_EQ(transport.Urls(3), " p:running p:used p:failed p:waiting");
  EXPECT_EQ(Get("held", held).source, LoadSource::Served);
  clock.Run();
}

TEST_F(HostTest, NeverAsksForAUrlThatSharesItsHash) {
  const char *one = "943738.png", *other = "1206106.png";
  Start();
  ASSERT_EQ(CorvaneHash(Url(one).c_str()), CorvaneHash(Url(other).c_str()));
  LearnAndRequest({one, other});
  EXPECT_EQ(Record(other).notOrdered, NotOrdered::SharesHash);
  clock.Run();
  RecordingClient client;
  EXPECT_EQ(Get(other, client).source, LoadSource::Network) << "not joined";
  EXPECT_EQ(transport.Urls(), std::string(" p:") + one + " b:" + other);
  Answer(0);
  EXPECT_EQ(Get(other, client).source, LoadSource::Network) << "not served";
  EXPECT_EQ(Get(one, client).source, LoadSource::Served);
  clock.Run();
}

TEST_F(HostTest, ThePluginsOwnCommandComesBackAfterItsDelay) {
  Start({}, {{"net.cv.kiv.bypassen", "1"}, {"net.cv.kiv.bypassdl", "70"}});
  Request();
  See("frame-fresh");
  corvane->CacheStatus(Url("frame-fresh"), true);  // stays known when the page is left
  corvane->PageLeft();
  clock.Run();
  EXPECT_EQ(clock.NowUs(), 0);
  Request(Url("frame-fresh"));
  const uint64_t before = corvane->CommandCount();
  clock.Run();
  EXPECT_EQ(clock.NowUs(), 70'000);
  EXPECT_EQ(corvane->CommandCount(), before + 1);
  EXPECT_EQ(corvane->UnansweredCount(), 0u);
}

TEST(PageDatabaseTest, RemembersTheLastOrderAndTheBestAnswer) {
  PageDatabase database;
  const auto visit = [&database](const std::vector<std::pair<const char*, std::vector<int>>>& seen) {
    database.BeginVisit(kPage);
    for (const auto& [url, statuses] : seen) {
      database.ResourceSeen(url, ResourceKind::Image, true);
      for (const int status : statuses) {
        const std::string length = "\nContent-Length: " + std::to_string(status + 1);
        database.ResponseSeen(url, Headers("HTTP/1.1 " + std::to_string(status) + " X" + length));
      }
    }
    EXPECT_EQ(database.Find("http://other.test/"), nullptr);
  };
  visit({{"a", {206, 200, 304}}, {"b", {404}}, {kPage, {200}}, {"a", {}}});
  EXPECT_EQ(database.Find(kPage), nullptr) << "known at the end of the visit";
  visit({{"c", {200}}, {"b", {}}});  // ends the first one; b comes from a cache
  database.EndVisit();
  std::string all;
  for (const KnownResource& known : database.Find(kPage)->resources) {
    const int64_t numbers[] = {known.visitsSeen, known.lastVisit, known.status, known.declaredLength};
    all += known.url;
    for (const int64_t number : numbers) all += ":" + std::to_string(number);
    all += " ";
  }
  EXPECT_EQ(all, "c:1:2:200:201 b:2:2:404:405 a:1:1:200:201 ");

  for (int without = 0; without < 10; ++without) visit({});
  database.EndVisit();
  ASSERT_EQ(database.Find(kPage)->resources.size(), 2u)
      << "a was last seen eleven visits ago, the others ten";
}

}  // namespace
}  // namespace host
