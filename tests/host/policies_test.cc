// The host's decisions, each a pure function: what to order, and how preloads share connections and the link;
// and what the page database remembers for them.
#include <gtest/gtest.h>

#include <tuple>

#include "host/connection_group.h"
#include "host/link_policy.h"
#include "host/order_policy.h"
#include "host/page_database.h"
#include "host/preconnect_policy.h"
#include "host/volatile_address.h"
#include "tests/support/scripted_transport.h"

namespace host {
namespace {

using tests::Ok;
using tests::ResponseHeaders;
using Kind = ResourceKind;

TEST(OrderPolicy, OrdersWhatIsWorthItByKindThenByPosition) {
  const struct {
    KnownResource resource;
    NotServed why;
  } rows[] = {
      {{.url = "image", .kind = Kind::Image}, NotServed::None},
      {{.url = "data", .kind = Kind::Data}, NotServed::None},
      {{.url = "font", .kind = Kind::Font}, NotServed::None},
      {{.url = "post", .get = false}, NotServed::NotGet},
      {{.url = "fresh", .kind = Kind::Script}, NotServed::FreshInDiskCache},
      {{.url = "missing", .status = 404}, NotServed::StatusNot200},
      {{.url = "never answered", .status = -1}, NotServed::StatusNot200},
      {{.url = "frame", .kind = Kind::Document, .html = true}, NotServed::Html},
      {{.url = "chunked", .declaredLength = -1}, NotServed::NoDeclaredLength},
      {{.url = "empty", .declaredLength = 0}, NotServed::EmptyBody},
      {{.url = "large", .kind = Kind::Image, .declaredLength = 1000}, NotServed::None},
      {{.url = "too large", .declaredLength = 1001}, NotServed::OverSizeLimit},
      {{.url = "sheet", .kind = Kind::Stylesheet}, NotServed::None},
      {{.url = "most", .kind = Kind::Script, .visitsSeen = 3}, NotServed::None},
      {{.url = "half", .kind = Kind::Script, .visitsSeen = 2}, NotServed::SeenTooSeldom},
      {{.url = "late", .kind = Kind::Script, .afterLoad = true}, NotServed::AfterLoad},
      {{.url = "often?1700000000", .kind = Kind::Data}, NotServed::None},
  };
  KnownPage page{.visits = 4};
  std::map<std::string, NotServed> expected;
  for (const auto& row : rows) {
    KnownResource resource = row.resource;
    if (resource.visitsSeen == 0) resource.visitsSeen = 4;
    if (resource.status == -1 && resource.url != "never answered") resource.status = 200;
    if (resource.declaredLength == -1 && resource.url != "chunked") resource.declaredLength = 4;
    page.resources.push_back(resource);
    expected[resource.url] = row.why;
  }
  OrderFacts facts{.sizeLimit = 1000, .isFresh = [](const std::string& url) { return url == "fresh"; }};
  std::string order;
  for (const OrderDecision& decision : DecideOrders(page, facts, {})) {
    const std::string& url = page.resources[decision.resource].url;
    EXPECT_EQ(decision.why, expected.at(url)) << url;
    if (decision.why == NotServed::None) order += url + " ";
  }
  EXPECT_EQ(order, "font sheet most data often?1700000000 image large ");

  for (const NotServed why : {NotServed::SwitchedOff, NotServed::NoContext}) {
    facts.pluginTakesOrders = why != NotServed::SwitchedOff;
    facts.hasContext = why != NotServed::NoContext;
    EXPECT_EQ(DecideOrders(page, facts, {}).front().why, why);
  }
}

TEST(OrderPolicy, WhatLooksNewOnEveryLoadMustHaveComeTwice) {
  const std::pair<const char*, bool> rows[] = {
      {"http://a.test/x?t=170000000", false},  // nine digits
      {"http://a.test/x?t=1700000000", true},
      {"http://a.test/17000.00000", false},
      {"http://a.test/app.3f9a12bc.js", false},
      {"http://a.test/id/3f9a12bc3f9a12b", false},  // fifteen
      {"http://a.test/id/3f9a12bc3f9a12bc", true},
      {"http://a.test/id/3F9A12BC-3f9a-12bc", false},
      {"http://a.test/effacedfacadefaced", false},  // a word
      {"", false},
  };
  for (const auto& [url, isVolatile] : rows) {
    EXPECT_EQ(LooksVolatile(url), isVolatile) << url;
    const OrderFacts facts{.sizeLimit = 1000, .isFresh = [](const std::string&) { return false; }};
    KnownPage page{.visits = 1,
                   .resources = {{.url = url, .visitsSeen = 1, .status = 200, .declaredLength = 4}}};
    EXPECT_EQ(DecideOrders(page, facts, {}).front().why, isVolatile ? NotServed::Volatile : NotServed::None);
    page.resources[0].kind = ResourceKind::Stylesheet;
    EXPECT_EQ(DecideOrders(page, facts, {}).front().why, NotServed::None) << "has a version";
    page.resources[0].kind = ResourceKind::Other;
    page.visits = page.resources[0].visitsSeen = 2;
    EXPECT_EQ(DecideOrders(page, facts, {}).front().why, NotServed::None) << "twice is no accident";
  }
  const KnownPage page{.visits = 2};
  EXPECT_FALSE(IsSeenOften(page, 1, {})) << "one of two";
  EXPECT_TRUE(IsSeenOften(page, 2, {}));
}

TEST(LinkPolicy, PreloadsYield) {
  const HostSettings settings{.preloadShare = 0.25};
  EXPECT_EQ(PreloadsShareOfLink(settings, 0), 1);
  EXPECT_EQ(PreloadsShareOfLink(settings, 1), 0.2);
  EXPECT_EQ(PreloadsShareOfLink(settings, 2), 0.25 / 2.25);

  constexpr Urgency kBrowser = Urgency::Browser, kPreload = Urgency::Preload;
  const struct {
    size_t waiting, connecting;
    std::vector<Urgency> running;
    std::vector<size_t> hurried;
  } rows[] = {
      {0, 0, {kPreload}, {}},
      {1, 1, {kPreload}, {}},  // a connection is on its way for it
      {1, 0, {kBrowser, kPreload, kPreload}, {1}},
      {3, 1, {kPreload, kBrowser, kPreload, kPreload}, {0, 2}},
      {9, 0, {kBrowser, kPreload}, {1}},
      {1, 5, {kPreload}, {}},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(PreloadsToHurry({}, row.waiting, row.connecting, row.running), row.hurried) << &row - rows;
    EXPECT_TRUE(PreloadsToHurry({.hurryBlockingPreloads = false}, row.waiting, 0, row.running).empty());
  }
}

TEST(ConnectionGroup, IsSchemeHostAndPort) {
  const std::pair<const char*, const char*> rows[] = {
      {"http://a.test/x?y", "http://a.test:80"},      {"HTTPS://A.Test:443/", "https://a.test:443"},
      {"https://a.test:8443", "https://a.test:8443"}, {"http://[::1]/", "http://[::1]:80"},
      {"http://a.test:80", "http://a.test:80"},
  };
  for (const auto& [url, group] : rows) EXPECT_EQ(ConnectionGroup(url), group);
}

TEST(PreconnectPolicy, OpensWhatThePageWillNeedShortlyBeforeItDoes) {
  struct Row {
    KnownResource resource;
    bool covered = false;
  };
  const auto seen = [](const char* url, int64_t askedMs, int64_t waitedMs, uint32_t visitsSeen = 4,
                       uint32_t lastVisit = 4) {
    return Row{{.url = std::string("http://") + url,
                .askedUs = askedMs * 1000,
                .waitedUs = waitedMs * 1000,
                .visitsSeen = visitsSeen,
                .lastVisit = lastVisit}};
  };
  const auto covered = [](Row row) { return row.covered = true, row; };
  const auto late = [](Row row) { return row.resource.afterLoad = true, row; };
  const struct {
    std::vector<Row> resources;
    const char* needs;  // "milliseconds:url*count"
    const char* why;
  } rows[] = {
      {{}, "", "nothing is known"},
      {{seen("a/1", 2500, 100), seen("b/1", 1200, 100)}, "200:http://b/1*1 1500:http://a/1*1 ", "by time"},
      {{seen("a/1", 500, 100)}, "0:http://a/1*1 ", "needed before the lead has passed"},
      {{seen("a/1", 700, 100), seen("a/2", 600, 100)}, "0:http://a/2*1 ", "one after the other"},
      {{seen("a/1", 700, 100), seen("a/2", 600, 101), seen("a/3", 650, 10)},
       "0:http://a/2*2 ",
       "two at a time"},
      {{seen("a/1", 9, 9), seen("a/2", 9, 9), seen("a/3", 9, 9)}, "0:http://a/1*2 ", "not more than two"},
      {{seen("a/1", 9, 0), seen("a/2", 9, 0)}, "0:http://a/1*2 ", "at the same time, never answered"},
      {{covered(seen("a/1", 9, 9)), covered(seen("a/2", 9, 9))}, "", "preloaded or fresh"},
      {{covered(seen("a/1", 9, 9)), seen("a/2", 1209, 9)}, "209:http://a/2*1 ", "the other one needs it"},
      {{late(seen("a/1", 9, 9))}, "", "after the load event nobody is kept waiting"},
      {{seen("a/old", 9, 9, 2, 3), seen("a/most", 1500, 9, 3, 3)},
       "500:http://a/most*1 ",
       "gone, most likely"},
      {{seen("a/new", 1500, 9, 1, 4)}, "500:http://a/new*1 ", "its like came on every visit"},
      {{seen("seldom/1", 9, 9, 1, 4)}, "", "two visits in four"},
      {{seen("unknown/1", 9, 9)}, "", "no visit is known to have used it"},
  };
  for (const auto& row : rows) {
    KnownPage page{.visits = 4,
                   .groups = {{"http://a:80", {.visitsSeen = 4, .lastVisit = 4}},
                              {"http://b:80", {.visitsSeen = 3, .lastVisit = 4}},
                              {"http://seldom:80", {.visitsSeen = 2, .lastVisit = 4}}}};
    std::vector<bool> isCovered;
    for (const Row& resource : row.resources) {
      page.resources.push_back(resource.resource);
      isCovered.push_back(resource.covered);
    }
    std::string needs;
    for (const ConnectionNeed& need : DecidePreconnects(page, isCovered, {.preconnectLeadMs = 1000})) {
      needs += std::to_string(need.atUs / 1000) + ":" + need.url + "*" + std::to_string(need.count) + " ";
    }
    EXPECT_EQ(needs, row.needs) << row.why;
  }
}

TEST(PreconnectPolicy, APageThatRedirectsToAnotherServerNeedsItsConnectionAtOnce) {
  const std::tuple<const char*, const char*, const char*> rows[] = {
      {"http://a.test/", "HTTP/1.1 301 X\nLocation: https://www.a.test/", "0:https://www.a.test/*1"},
      {"http://a.test/", "HTTP/1.1 302 X\nLocation: //b.test/x", "0:http://b.test/x*1"},
      {"http://a.test/", "HTTP/1.1 302 X\nLocation: /x", ""},
      {"http://a.test/", "HTTP/1.1 302 X\nLocation: intent://b.test/", ""},
      {"http://a.test/", "HTTP/1.1 200 X\nLocation: https://b.test/", ""},
      {"http://other.test/", "HTTP/1.1 301 X\nLocation: https://b.test/", ""},
  };
  for (const auto& [url, response, expected] : rows) {
    PageDatabase database({});
    PageVisit visit("http://a.test/", {});
    visit.ResponseSeen(url, ResponseHeaders(response));
    database.Remember(std::move(visit));
    std::string needs;
    for (const ConnectionNeed& need : DecidePreconnects(*database.Find("http://a.test/"), {}, {})) {
      needs += std::to_string(need.atUs) + ":" + need.url + "*" + std::to_string(need.count);
    }
    EXPECT_EQ(needs, expected) << response;
  }
}

class PageDatabaseTest : public testing::Test {
 protected:
  void Visit(const std::string& page, const std::vector<std::pair<const char*, std::vector<int>>>& seen) {
    PageVisit visit(page, settings);
    for (const auto& [url, statuses] : seen) {
      visit.ResourceSeen({.url = url, .kind = Kind::Image});
      for (const int status : statuses) {
        const std::string length = "\nContent-Length: " + std::to_string(status + 1);
        visit.ResponseSeen(url, ResponseHeaders("HTTP/1.1 " + std::to_string(status) + " X" + length));
      }
    }
    database.Remember(std::move(visit));
  }
  std::string Known(const std::string& page) const {
    std::string all;
    for (const KnownResource& known : database.Find(page)->resources) {
      all += known.url;
      for (const int64_t number : {int64_t{known.visitsSeen}, int64_t{known.lastVisit}, int64_t{known.status},
                                   known.declaredLength}) {
        all += ":" + std::to_string(number);
      }
      all += " ";
    }
    return all;
  }

  HostSettings settings{.maxPages = 3, .maxResourcesPerPage = 4};
  PageDatabase database{settings};
};

TEST_F(PageDatabaseTest, RemembersTheLastOrderAndTheBestAnswer) {
  Visit("page", {{"a", {206, 200, 304, 404}}, {"b", {404}}, {"page", {200}}, {"a", {}}});
  EXPECT_EQ(Known("page"), "a:1:1:200:201 b:1:1:404:405 ");
  Visit("page", {{"c", {200}}, {"b", {304}}});  // b was confirmed by the server
  EXPECT_EQ(Known("page"), "c:1:2:200:201 b:2:2:404:405 a:1:1:200:201 ");
  for (int without = 0; without < 9; ++without) Visit("page", {});
  EXPECT_EQ(database.Find("page")->resources.size(), 3u);
  Visit("page", {});
  EXPECT_EQ(database.Find("page")->resources.size(), 2u)
      << "a was last seen eleven visits ago, the others ten";
}

TEST_F(PageDatabaseTest, IsBoundedInPagesAndResources) {
  Visit("page", {{"a", {}}, {"b", {}}, {"c", {}}, {"d", {}}, {"e", {}}});
  EXPECT_EQ(database.Find("page")->resources.size(), 4u) << "the first ones";
  Visit("page", {{"f", {}}});
  EXPECT_EQ(Known("page"), "f:1:2:-1:-1 a:1:1:-1:-1 b:1:1:-1:-1 c:1:1:-1:-1 ");
  Visit("second", {});
  Visit("third", {});
  Visit("page", {});
  Visit("fourth", {});
  EXPECT_EQ(database.Find("second"), nullptr) << "the least recently visited one";
  EXPECT_NE(database.Find("page"), nullptr);
  for (int i = 0; i < 1000; ++i) Visit(std::to_string(i), {});
  EXPECT_EQ(database.PageCount(), 3u);
}

TEST_F(PageDatabaseTest, KnowsWhenAResourceWasAskedForAndHow) {
  PageVisit visit("page", settings);
  visit.ResourceSeen({.url = "sheet", .headers = "Accept: text/css\r\nCookie: secret\r\n"});
  visit.FirstPaint();
  visit.ResourceSeen({.url = "image", .headers = "X: " + std::string(5000, 'x'), .withCredentials = false});
  visit.LoadEvent();
  visit.ResourceSeen({.url = "beacon", .method = "POST"});
  database.Remember(std::move(visit));
  const auto& known = database.Find("page")->resources;
  EXPECT_TRUE(known[0].beforePaint && !known[0].afterLoad && known[0].withCredentials);
  EXPECT_EQ(known[0].headersToRepeat, "Accept: text/css\r\n\r\n");
  EXPECT_TRUE(!known[1].beforePaint && !known[1].afterLoad && !known[1].withCredentials);
  EXPECT_EQ(known[1].headersToRepeat, "") << "too long to be kept";
  EXPECT_TRUE(known[2].afterLoad && !known[2].get);
}

TEST_F(PageDatabaseTest, KnowsWhenConnectionsAreNeededAndHowLong) {
  const auto load = [this](const char* url, int64_t asked, int64_t answered) {
    PageVisit visit("page", settings);
    visit.ResourceSeen({.url = url}, asked);
    if (answered >= 0) visit.ResponseSeen(url, Ok(), answered);
    database.Remember(std::move(visit));
    const KnownPage& page = *database.Find("page");
    const KnownResource& known = page.resources.front();
    return known.url + " " + std::to_string(known.askedUs) + "+" + std::to_string(known.waitedUs);
  };
  EXPECT_EQ(load("http://a.test/1", 500, 700), "http://a.test/1 500+200");
  EXPECT_EQ(load("http://a.test/1", 400, -1), "http://a.test/1 400+200") << "it came from a cache";
  EXPECT_EQ(load("http://a.test/2", 300, -1), "http://a.test/2 300+0");
  const auto& groups = database.Find("page")->groups;
  EXPECT_EQ(groups.at("http://a.test:80").visitsSeen, 3u) << "whatever the addresses";
  for (int visits = 0; visits < 10; ++visits) load("http://b.test/", 0, 0);
  EXPECT_EQ(groups.size(), 2u);
  load("http://b.test/", 0, 0);
  EXPECT_EQ(groups.size(), 1u) << "a was last seen eleven visits ago";
  for (const char* url : {"http://c/", "http://d/", "http://e/", "http://f/"}) load(url, 0, 0);
  EXPECT_EQ(groups.size(), 1u) << "more than there may be: those of the last visit";
}

}  // namespace
}  // namespace host
