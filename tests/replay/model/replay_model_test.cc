// The model of the replay against times worked out by hand: the shared link, sockets and round trips, and
// when a page asks for what.
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "replay/model/network_model.h"
#include "replay/model/page_plan.h"
#include "replay/model/parent_choice.h"
#include "replay/model/recorded_network.h"
#include "replay/model/shared_link.h"

namespace replay {
namespace {

using host::Urgency;
using Times = std::vector<std::string>;

constexpr auto kBrowser = Urgency::Browser;
constexpr auto kPreload = Urgency::Preload;

// A link of one byte per microsecond, on which all preloads together get a quarter of a browser transfer.
TEST(SharedLink, TransfersShareIt) {
  enum Act { Add, Become, Remove };
  struct Step {
    int64_t at;
    Act act;
    int id;
    int64_t bytes;  // to transfer, or that had come
    Urgency urgency = kBrowser;
  };
  // clang-format off
  const struct {
    std::vector<Step> steps;
    std::map<int, int64_t> ends;
  } rows[] = {
      {{{0, Add, 1, 1000}, {500, Add, 2, 1000}}, {{1, 1500}, {2, 2000}}},  // alone, then half each
      {{{7, Add, 1, 0}}, {{1, 7}}},                                        // nothing to transfer
      // Two preloads share the fifth; beside two of the browser they have 1/9; alone all of it.
      {{{0, Add, 1, 1000}, {0, Add, 2, 500, kPreload}, {0, Add, 3, 500, kPreload}}, {{1, 1250}, {2, 2000}, {3, 2000}}},
      {{{0, Add, 1, 400}, {0, Add, 2, 400}, {0, Add, 3, 100, kPreload}}, {{1, 900}, {2, 900}, {3, 900}}},
      {{{0, Add, 1, 500, kPreload}, {0, Add, 2, 1000, kPreload}}, {{1, 1000}, {2, 1500}}},
      // Hurried after 100 of its bytes; demoted with 500 and 500 left, at 4/5 and 1/5.
      {{{0, Add, 1, 1000}, {0, Add, 2, 400, kPreload}, {500, Become, 2, 0, kBrowser}}, {{1, 1400}, {2, 1100}}},
      {{{0, Add, 1, 1000}, {0, Add, 2, 1000}, {1000, Become, 2, 0, kPreload}}, {{1, 1625}, {2, 2000}}},
      // The rest of a removed one goes to the other; once gone, it has nothing.
      {{{0, Add, 1, 1000}, {0, Add, 2, 1000}, {500, Remove, 1, 250}, {600, Remove, 1, 0}}, {{2, 1250}}},
  };
  // clang-format on
  for (const auto& row : rows) {
    host::VirtualClock clock;
    SharedLink link(clock, 1, {.preloadShare = 0.25});
    std::map<int, int64_t> ends;
    for (const Step& step : row.steps) {
      clock.PostDelayed(step.at, [&] {
        const auto id = static_cast<uint64_t>(step.id);
        if (step.act == Add) link.Add(id, step.bytes, step.urgency, [&] { ends[step.id] = clock.NowUs(); });
        if (step.act == Become) link.SetUrgency(id, step.urgency);
        EXPECT_TRUE(step.act != Remove || link.Remove(id) == step.bytes) << step.at;
      });
    }
    clock.Run();
    EXPECT_EQ(ends, row.ends) << "row " << &row - rows;
  }
}

// A response block of 17 bytes, with a body that makes it 1000 or `total`.
Request Recorded(const std::string& url, int64_t total = 1000) {
  Request request{.url = url, .method = "GET", .connectMs = 20, .waitMs = 60, .receiveMs = 12, .status = 200};
  request.responseHeaders = std::string("HTTP/1.1 200 OK\0\0", 17);
  request.bodyBytes = total - 17;
  return request;
}

constexpr NetworkCosts kNoCosts = {.certificates = false, .nameLookups = false, .slowStart = false};

// 100 ms and one byte per microsecond, recorded with a round trip of 20 ms, so that the server's own time is
// 40 ms. Everything is said in milliseconds.
struct Network {
  struct Client : host::TransferClient {
    host::TransferReport report;
    int64_t bodyBytes = 0;
    bool done = false;

    void OnResponse(const net::HttpResponseHeaders&) override {}
    void OnBody(const char*, int32_t count) override { bodyBytes += count; }
    void OnDone(int32_t result, const host::TransferReport& now) override {
      done = result == host::kOk;
      report = now;
    }
  };

  explicit Network(std::vector<Request> requests, NetworkProfile profile = {"test", 100, 8},
                   host::HostSettings settings = {}, NetworkCosts costs = kNoCosts)
      : page{.requests = std::move(requests)},
        recorded(MeasureNetwork({.pages = {page}})),
        model(clock, profile, costs, recorded, settings, [this](const host::TransferRequest& asked) {
          const auto same = [&asked](const Request& row) { return row.url == asked.url; };
          const auto found = std::find_if(page.requests.begin(), page.requests.end(), same);
          return found == page.requests.end() ? nullptr : &*found;
        }) {}

  void Start(int64_t atMs, const std::string& url, Urgency urgency = kBrowser) {
    At(atMs, [this, url, urgency] {
      model.Start({.url = url, .method = "GET", .urgency = urgency}, clients.emplace_back());
    });
  }
  void At(int64_t ms, std::function<void()> task) { clock.PostDelayed(ms * 1000, std::move(task)); }
  // "set-up sent first-byte end" of each transfer, in the order in which they started.
  Times Run() {
    clock.Run();
    Times all;
    for (const Client& client : clients) {
      const host::TransferReport& report = client.report;
      std::string& times = all.emplace_back();
      for (const base::Time time : {report.connect, report.sent, report.firstByte, report.ended})
        times += (times.empty() ? "" : " ") + std::to_string(time.ToInternalValue() / 1000);
    }
    return all;
  }

  host::VirtualClock clock;
  Page page;
  RecordedNetwork recorded;
  NetworkModel model;
  std::deque<Client> clients;
};

TEST(NetworkModel, ANewConnectionCostsItsRoundTripsAndAWarmOneNone) {
  const struct {
    const char* scheme;
    Protocol protocol;
    NetworkProfile profile;
    Times times;
  } rows[] = {
      {"http", Protocol::Http1, {"", 100, 8}, {"0 100 240 241", "1000 1000 1140 1141"}},
      {"https", Protocol::Http1, {"", 100, 8}, {"0 200 340 341", "1000 1000 1140 1141"}},
      {"https", Protocol::Http2, {"", 100, 8}, {"0 200 340 341", "1000 1000 1140 1141"}},
      {"https", Protocol::Http3, {"", 100, 8}, {"0 100 240 241", "1000 1000 1140 1141"}},
      // As recorded: set-up 5 + 20 + 30, wait 60, receive 12.
      {"https", Protocol::Http1, {"", {}, {}}, {"0 55 115 127", "1000 1000 1060 1072"}},
      {"https", Protocol::Http1, {"", {}, 8}, {"0 55 115 116", "1000 1000 1060 1061"}},
  };
  for (const auto& row : rows) {
    Request request = Recorded(std::string(row.scheme) + "://a.test/");
    request.protocol = row.protocol;
    request.dnsMs = 5;
    if (request.url.starts_with("https")) request.connectMs += request.sslMs = 30;
    Network network({request}, row.profile);
    network.Start(0, request.url);
    network.Start(1000, request.url);
    EXPECT_EQ(network.Run(), row.times) << row.scheme << " " << static_cast<int>(row.protocol);
    for (const Network::Client& client : network.clients) EXPECT_TRUE(client.done && client.bodyBytes == 983);
  }
}

TEST(NetworkModel, SixSocketsPerGroupOrOneConnectionOfStreams) {
  for (const bool streams : {false, true}) {
    Request request = Recorded("http://a.test/", 2000);
    request.protocol = streams ? Protocol::Http2 : Protocol::Http1;
    Request elsewhere = request;
    elsewhere.url = "http://a.test:8080/";
    Network network({request, elsewhere});
    for (int transfer = 0; transfer < 7; ++transfer) network.Start(0, request.url);
    network.Start(300, elsewhere.url);
    // Six times two milliseconds of bytes, and the seventh alone after that; or seven times two together, on
    // a connection that the first one had opened. Elsewhere is a group of its own.
    Times expected(8, streams ? "100 100 240 254" : "0 100 240 252");
    if (streams) expected[0] = "0 100 240 254";
    if (!streams) expected[6] = "252 252 392 394";
    expected[7] = "300 400 540 542";
    EXPECT_EQ(network.Run(), expected);
  }
}

TEST(NetworkModel, TheBrowserComesBeforePreloadsAndHurriesTheOneInItsWay) {
  const std::vector<Request> requests = {Recorded("http://a.test/", 100'000),
                                         Recorded("http://b.test/", 300'000)};
  for (const bool hurry : {true, false}) {
    Network network(requests, {"", 100, 8},
                    {.socketsPerGroup = 1, .preloadShare = 0.25, .hurryBlockingPreloads = hurry});
    network.Start(0, "http://b.test/");            // shares the link with the first of these:
    network.Start(0, "http://a.test/", kPreload);  // has the only socket
    network.Start(1, "http://a.test/", kPreload);
    network.Start(2, "http://a.test/", kPreload);
    network.Start(250, "http://a.test/");
    network.At(500, [&network] { network.model.SetUrgency(4, kBrowser); });
    const Times times = network.Run();
    // From 240 on 10 ms at a fifth leave 98,000 of its bytes, which take 196 ms at a half. Without hurry the
    // 300,000 of the browser come first, at 4/5, and leave it 25,000.
    EXPECT_EQ(times[1], hurry ? "0 100 240 446" : "0 100 240 640");
    EXPECT_EQ(times[4].substr(0, 7), hurry ? "446 446" : "640 640") << "before the preloads that wait longer";
    EXPECT_EQ(times[3].substr(0, 7), hurry ? "740 740" : "880 880") << "became urgent while it waited";
  }
}

TEST(NetworkModel, PreloadsLeaveSocketsAndTheWindowToTheBrowser) {
  Network sockets({Recorded("http://a.test/")}, {"", 100, 8}, {.socketsPerGroup = 3, .reservedSockets = 1});
  for (int preload = 0; preload < 3; ++preload) sockets.Start(0, "http://a.test/", kPreload);
  sockets.Start(120, "http://a.test/");
  EXPECT_EQ(sockets.Run(), (Times{"0 100 240 242", "0 100 240 242", "242 242 382 383", "120 220 360 361"}));

  // A document's window is not shared with a preload, which comes at a quarter of its rate.
  Request streamed = Recorded("http://a.test/", 14'600);
  streamed.protocol = Protocol::Http2;
  Network window({streamed}, {"", 100, 8}, {.preloadShare = 0.25},
                 {.certificates = false, .nameLookups = false});
  window.Start(0, streamed.url);
  window.Start(0, streamed.url, kPreload);
  EXPECT_EQ(window.Run()[0], "0 100 240 258");
}

TEST(NetworkModel, ACancelledTransferIsSilentAndCostsAnHttp1Connection) {
  const struct {
    Protocol protocol;
    int64_t cancelMs;
    int64_t came;      // of 100,000 bytes
    const char* next;  // what a transfer at 400 finds
  } rows[] = {
      {Protocol::Http1, 50, 0, "400 400 540 640"},   // its set-up goes on, for the next one
      {Protocol::Http1, 200, 0, "400 500 640 740"},  // sent
      {Protocol::Http1, 270, 30'000, "400 500 640 740"},  {Protocol::Http2, 270, 30'000, "400 400 540 640"},
      {Protocol::Http1, 370, 100'000, "400 400 540 640"},  // too late
  };
  for (const auto& row : rows) {
    Request request = Recorded("http://a.test/", 100'000);
    request.protocol = row.protocol;
    Network network({request});
    network.Start(0, request.url);
    int64_t came = 0;
    network.At(row.cancelMs, [&] { came = network.model.Cancel(1).bodyBytes; });
    network.Start(400, request.url);
    EXPECT_EQ(network.Run()[1], row.next) << row.cancelMs;
    const auto headers = static_cast<int64_t>(request.responseHeaders.size());
    const bool isDone = network.clients[0].done;
    EXPECT_EQ(isDone ? network.clients[0].report.bodyBytes : came, std::max<int64_t>(row.came - headers, 0));
    EXPECT_EQ(isDone, row.came == 100'000) << row.cancelMs;
  }
}

// Once more the times of a new connection, with each cost by itself.
TEST(NetworkModel, WhatARealNetworkCostsBesides) {
  constexpr NetworkCosts kCertificates = {.nameLookups = false, .slowStart = false};
  constexpr NetworkCosts kLookups = {.certificates = false, .slowStart = false};
  constexpr NetworkCosts kSlowStart = {.certificates = false, .nameLookups = false};
  const NetworkProfile modelled = {"", 100, 8}, recorded = {"", {}, {}};
  const struct {
    const char* why;
    NetworkCosts costs;
    NetworkProfile profile;
    std::string scheme;
    int64_t bytes;
    Protocol protocol;
    std::string transfers;  // when, and to which host
    Times times;
  } rows[] = {
      // clang-format off
      // 4000 bytes take four milliseconds; two together take eight, and a later connection has a session.
      {"certificates", kCertificates, modelled, "https", 1000, Protocol::Http1, "0 a 0 a 500 a",
       {"0 208 348 350", "0 208 348 350", "500 500 640 641"}},
      {"one connection, one set-up", kCertificates, modelled, "https", 1000, Protocol::Http2, "0 a 0 a",
       {"0 204 344 346", "204 204 344 346"}},
      {"without TLS none", kCertificates, modelled, "http", 1000, Protocol::Http1, "0 a", {"0 100 240 241"}},
      {"as recorded", {}, recorded, "https", 1000, Protocol::Http1, "0 a", {"0 20 80 92"}},
      // One lookup for all connections to a name, whoever waits for it.
      {"lookups", kLookups, modelled, "http", 1000, Protocol::Http1, "0 a 50 a 200 b 900 a",
       {"0 200 340 342", "50 200 340 342", "200 400 540 541", "900 900 1040 1041"}},
      // 100 kB fit the link in a round trip. Windows of 14.6, 29.2, 58.4 and then all of it; the next
      // response finds the window wide.
      {"slow start", kSlowStart, modelled, "http", 150'000, Protocol::Http1, "0 a 1000 a",
       {"0 100 240 587", "1000 1000 1140 1290"}},
      {"within the first window", kSlowStart, modelled, "http", 14'600, Protocol::Http1, "0 a", {"0 100 240 254"}},
      {"two streams share it", kSlowStart, modelled, "http", 14'600, Protocol::Http2, "0 a 0 a",
       {"0 100 240 354", "100 100 240 354"}},
      // clang-format on
  };
  for (const auto& row : rows) {
    Request a = Recorded(row.scheme + "://a.test/", row.bytes);
    a.protocol = row.protocol;
    Request b = a;
    b.url[b.url.find('a', 5)] = 'b';
    Network network({a, b}, row.profile, {}, row.costs);
    std::istringstream transfers(row.transfers);
    int64_t atMs = 0;
    for (std::string host; transfers >> atMs >> host;)
      network.Start(atMs, row.scheme + "://" + host + ".test/");
    EXPECT_EQ(network.Run(), row.times) << row.why;
  }
}

TEST(NetworkModel, ConnectionsThatNobodyWaitsForYieldAndAreFewAtATime) {
  std::vector<Request> requests;
  for (const char host : {'a', 'b', 'c', 'd'}) {
    requests.push_back(Recorded(std::string("https://") + host + ".test/", 100'000));
  }
  constexpr NetworkCosts kCertificates = {.nameLookups = false, .slowStart = false};
  // From 344 on, a's bytes have the link: a preload's share of it is one fifth.
  for (const bool wanted : {false, true}) {
    Network network(requests, {"", 100, 8}, {.preloadShare = 0.25, .maxPreconnects = 1}, kCertificates);
    network.Start(0, requests[0].url);
    network.At(150, [&] { network.model.Preconnect(requests[1].url, 1, nullptr); });
    if (wanted) network.Start(160, requests[1].url);
    const Times times = network.Run();
    EXPECT_EQ(network.model.UnusedConnections(), wanted ? 0u : 1u);
    EXPECT_EQ(times[0], wanted ? "0 204 344 448" : "0 204 344 448") << "4000 bytes of b come in between";
    EXPECT_TRUE(!wanted || times[1].starts_with("160 358")) << times[1];  // at half of the link
  }
  Network network(requests, {"", 100, 8}, {.maxPreconnects = 2}, kNoCosts);
  std::string opened;
  for (size_t host = 0; host < 4; ++host)
    network.model.Preconnect(requests[host].url, host == 0 ? 2 : 1, nullptr);
  for (const int64_t atMs : {1, 201, 401}) {
    network.At(atMs, [&] { opened += std::to_string(network.model.UnusedConnections()) + " "; });
  }
  network.Start(601, requests[0].url);
  EXPECT_EQ(network.Run(), Times{"601 601 741 841"});
  EXPECT_EQ(opened, "2 4 5 ") << "two at a time";
}

TEST(PagePlan, ARequestFollowsWhatInitiatedIt) {
  struct Row {
    Request request;
    size_t parent;
    bool fromFirstByte;
    int64_t thinkMs;
    bool blocksLoad = true;
  };
  const auto row = [](const char* url, double start, double end, Request rest = {}) {
    rest.url = std::string("http://a.test/") + url;
    rest.startMs = start;
    rest.endMs = end;
    if (rest.status == 0) rest.status = 200;
    if (!rest.initiatorUrl.empty()) rest.initiatorUrl = "http://a.test/" + rest.initiatorUrl;
    return rest;
  };
  const auto to = [](const char* location) {
    const std::string block = std::string("HTTP/1.1 302 Found\0location:  ", 30) + location;
    return Request{.status = 302, .responseHeaders = block + std::string(2, '\0')};
  };
  const auto by = [](const char* url) { return Request{.initiatorUrl = url}; };
  const auto document = [](double receiveMs) {
    return Request{.receiveMs = receiveMs, .kind = host::ResourceKind::Document};
  };
  const Request both{.initiatorUrl = "early.css", .referer = "http://a.test/late.js"};
  // clang-format off
  const struct {
    size_t document;
    double onLoadMs;
    int64_t restMs;
    std::vector<Row> rows;
  } pages[] = {
      // Initiators, with the document's bytes coming from 100 to 200.
      {0, 700, 50,
       {{row("", 5, 200, document(100)), kPageStart, false, 5}, {row("early.css", 130, 300), 0, true, 30},
        {row("late.js", 260, 400), 0, false, 60}, {row("font", 320, 450, by("early.css")), 1, false, 20},
        {row("by-referer", 460, 500, {.referer = "http://a.test/late.js"}), 2, false, 60},
        {row("by-both", 470, 500, both), 1, false, 170},
        {row("unknown", 480, 500, by("of-another-page")), 0, false, 280},
        {row("frame", 480, 600, document(50)), 0, false, 280}, {row("in-frame", 560, 650, by("frame")), 7, true, 10},
        {row("after-load", 700, 900), 0, false, 500, false}}},
      // What cannot have come from its initiator comes from the document; a script does not stream.
      {0, -1, 0,
       {{row("", 0, 200, document(100)), kPageStart, false, 0},
        {row("script", 150, 400, {.receiveMs = 50}), 0, true, 50},
        {row("before-its-bytes", 300, 500, by("script")), 0, false, 100},
        {row("while-they-come", 360, 500, by("script")), 1, false, 0},
        {row("before-the-document", 50, 90), 0, false, 0}, {row("itself", 600, 700, by("itself")), 0, false, 400}}},
      // What ended more than 50 ms after the load event did not hold it up.
      {0, 700, 0,
       {{row("", 0, 200, document(100)), kPageStart, false, 0}, {row("last", 650, 750), 0, false, 450},
        {row("beacon", 650, 751), 0, false, 450, false}}},
      {0, 100, 0, {{row("", 0, 200, document(100)), kPageStart, false, 0}}},  // but the document did
      // Redirects to the document, and to a picture.
      {2, -1, 0,
       {{row("old", 0, 100, to("/older")), kPageStart, false, 0},
        {row("older", 110, 200, to("//a.test/new")), 0, false, 10},
        {row("new", 230, 400, document(100)), 1, false, 30},
        {row("cover", 450, 500, to("http://a.test/cover.png")), 2, false, 50},
        {row("cover.png", 505, 600, by("new")), 3, false, 5}}},
      // Rows before the document that overlap start with the page.
      {1, 100, 0,
       {{row("ping", 0, 300), kPageStart, false, 0}, {row("doc", 20, 90, document(20)), kPageStart, false, 20}}},
  };
  // clang-format on
  for (const auto& page : pages) {
    Page recorded{.onLoadMs = page.onLoadMs, .document = page.document};
    for (const Row& expected : page.rows) recorded.requests.push_back(expected.request);
    const PagePlan plan = MakePlan(recorded, ParentRule::Recorded);
    ASSERT_EQ(plan.requests.size(), page.rows.size());
    for (size_t index = 0; index < page.rows.size(); ++index) {
      const Row& expected = page.rows[index];
      SCOPED_TRACE(expected.request.url);
      EXPECT_EQ(plan.requests[index].parent, expected.parent);
      EXPECT_EQ(plan.requests[index].fromFirstByte, expected.fromFirstByte);
      EXPECT_EQ(plan.requests[index].thinkUs, expected.thinkMs * 1000);
      EXPECT_EQ(plan.requests[index].blocksLoad, expected.blocksLoad);
    }
    EXPECT_EQ(plan.restUs, page.restMs * 1000) << "page " << &page - pages;
  }
}

// Two loads of a page, the second with everything later. The script asks for the picture, whatever the
// recording says; the late one waits for a timer of the document's.
TEST(PagePlan, ALateRequestWaitsForWhatEndedJustBefore) {
  using Kind = host::ResourceKind;
  const auto row = [](const char* url, double start, double end, Kind kind = Kind::Image) {
    return Request{.url = std::string("http://a.test/") + url,
                   .startMs = start,
                   .receiveMs = 10,
                   .endMs = end,
                   .status = 200,
                   .kind = kind};
  };
  const Page first = {.requests = {row("", 0, 100, Kind::Document), row("script", 120, 500, Kind::Script),
                                   row("image", 130, 590), row("picture", 590, 700), row("gap", 601, 650),
                                   row("timer", 1100, 1200)}};
  Page second = first;
  second.requests[1].endMs = 900;
  second.requests[2].endMs = 910;
  second.requests[3].startMs = 990;
  second.requests[4].startMs = 1001;
  const PagePlan plan = MakePlan(first, ParentRule::Inferred);
  const std::pair<size_t, int64_t> expected[] = {{kPageStart, 0}, {0, 20'000},  {0, 30'000},
                                                 {1, 90'000},     {0, 501'000}, {0, 1'000'000}};
  for (size_t index = 0; index < 6; ++index) {
    EXPECT_EQ(plan.requests[index].parent, expected[index].first) << index;
    EXPECT_EQ(plan.requests[index].thinkUs, expected[index].second) << index;
  }

  // The picture alone is told apart: the recorded parent is 400 ms off, the inferred one not at all.
  const StartErrors errors = CompareRules({&first, &second});
  EXPECT_EQ(errors.recordedMs, std::vector<double>(2, 400));
  EXPECT_EQ(errors.inferredMs, std::vector<double>(2, 0));
  const auto ruleOf = [](const Page& a, const Page& b, std::optional<ParentRule> rule) {
    return ChooseParents({.pages = {a, b}}, rule).rules.at("http://a.test/");
  };
  EXPECT_EQ(ruleOf(first, second, {}), ParentRule::Inferred);
  EXPECT_EQ(ruleOf(first, second, ParentRule::Recorded), ParentRule::Recorded);
  // Here the picture comes when it came, though the script is later.
  second.requests[3].startMs = 590;
  second.requests[1].endMs = 580;
  EXPECT_EQ(ruleOf(first, second, {}), ParentRule::Recorded);
  EXPECT_EQ(ruleOf(first, first, {}), ParentRule::Recorded) << "equally good: as recorded";
  EXPECT_EQ(ChooseParents({.pages = {first}}, {}).rules.at("http://a.test/"), ParentRule::Recorded);
}

}  // namespace
}  // namespace replay
