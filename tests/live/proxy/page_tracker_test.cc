// Requests as browsers send them, and the pages that they are placed at.
#include "live/proxy/page_tracker.h"

#include <gtest/gtest.h>

namespace live {
namespace {

constexpr int64_t kSecond = 1'000'000;

class PageTrackerTest : public testing::Test {
 protected:
  // "page 1", "resource 1 script"
  std::string Place(const std::string& url, const std::string& headers, const std::string& method = "GET") {
    const Placement placed = tracker.Place(method, url, headers, now);
    const std::string page = " " + std::to_string(placed.page);
    switch (placed.role) {
      case Role::Page:
        return "page" + page;
      case Role::Continuation:
        return "continues" + page;
      case Role::Resource:
        return "resource" + page +
               (placed.kind == host::ResourceKind::Script     ? " script"
                : placed.kind == host::ResourceKind::Document ? " frame"
                                                              : "");
      case Role::Unplaced:
        break;
    }
    return placed.page == 0 ? "unplaced" : "unplaced at a page";
  }
  std::string Open(const std::string& url) {
    return Place(url, "Sec-Fetch-Dest: document\r\nSec-Fetch-Mode: navigate\r\n");
  }
  static std::string From(const std::string& referer, const std::string& destination = "image") {
    return "Referer: " + referer + "\r\nSec-Fetch-Dest: " + destination + "\r\n";
  }

  int64_t now = kSecond;
  std::set<std::pair<std::string, std::string>> known;  // page, resource
  PageTracker tracker{{}, [this](const std::string& page, const std::string& url) {
                        return known.contains({page, url});
                      }};
};

TEST_F(PageTrackerTest, PlacesRequestsByWhatTheBrowserSays) {
  ASSERT_EQ(Open("https://a.test/one"), "page 1");
  ASSERT_EQ(Open("https://b.test/two"), "page 2");
  const struct {
    const char* url;
    std::string headers;
    const char* placed;
  } rows[] = {
      {"https://cdn.test/x.js", From("https://a.test/one", "script"), "resource 1 script"},
      {"https://cdn.test/x.png", From("https://b.test/two"), "resource 2"},
      {"https://cdn.test/y.png", From("https://cdn.test/x.js"), "resource 1"},  // from a script of the page
      {"https://b.test/frame", From("https://a.test/one", "iframe"), "resource 1 frame"},
      {"https://b.test/in-frame.png", From("https://b.test/frame"), "resource 1"},
      {"https://cdn.test/z.png", From("https://a.test/"), "resource 1"},  // the origin alone is told
      {"https://b.test/data", "Origin: https://b.test\r\nSec-Fetch-Dest: empty\r\n", "resource 2"},
      {"https://b.test/data", "Sec-Fetch-Site: same-origin\r\nSec-Fetch-Dest: empty\r\n", "resource 2"},
      {"https://cdn.test/z.png", From("https://unknown.test/"), "unplaced"},
      {"https://cdn.test/z.png", "Sec-Fetch-Dest: image\r\n", "unplaced"},
      {"https://a.test/other", "Sec-Purpose: prefetch\r\n" + From("https://a.test/one", "document"),
       "unplaced"},
      {"https://cdn.test/z.png", "Referer: nonsense\r\nSec-Fetch-Dest: image\r\n", "unplaced"},
  };
  for (const auto& row : rows) EXPECT_EQ(Place(row.url, row.headers), row.placed) << row.url << row.headers;
  EXPECT_EQ(Place("https://a.test/form", From("https://a.test/one", "document"), "POST"), "unplaced");
}

TEST_F(PageTrackerTest, PlainHttpHasOnlyRefererAndAccept) {
  const std::string html = "Accept: text/html,application/xhtml+xml\r\n";
  ASSERT_EQ(Place("http://a.test/", html), "page 1");
  EXPECT_EQ(Place("http://a.test/x.js", "Accept: */*\r\nReferer: http://a.test/\r\n"), "resource 1 script");
  tracker.LoadBegins(1);
  EXPECT_EQ(Place("http://a.test/ad", html + "Referer: http://a.test/\r\n"), "resource 1 frame")
      << "while the page still loads";
  tracker.LoadEnds(1, now);
  EXPECT_EQ(Place("http://a.test/next", html + "Referer: http://a.test/\r\n"), "page 2") << "a link";
  known = {{"http://a.test/next", "http://a.test/menu"}};
  EXPECT_EQ(Place("http://a.test/menu", html + "Referer: http://a.test/next\r\n"), "resource 2 frame");
  now += 20 * kSecond;
  EXPECT_EQ(Place("http://a.test/menu", html + "Referer: http://a.test/next\r\n"), "page 3") << "much later";
}

TEST_F(PageTrackerTest, RedirectsContinueTheNavigation) {
  ASSERT_EQ(Open("http://a.test/"), "page 1");
  tracker.Answered(1, "http://a.test/", "https://www.a.test/", now);
  EXPECT_EQ(Open("https://www.a.test/"), "continues 1");
  tracker.Answered(1, "https://www.a.test/", "", now);
  EXPECT_EQ(Place("https://www.a.test/x.png", From("https://www.a.test/")), "resource 1");
  EXPECT_EQ(Open("https://www.a.test/"), "page 2") << "the redirect has been followed";
  EXPECT_EQ(tracker.UrlOf(1), "http://a.test/");
}

TEST_F(PageTrackerTest, TwoPagesOfOneSiteAreToldApart) {
  ASSERT_EQ(Open("https://a.test/one"), "page 1");
  ASSERT_EQ(Open("https://a.test/two"), "page 2");
  known = {{"https://a.test/one", "https://cdn.test/of-one.png"}};
  EXPECT_EQ(Place("https://cdn.test/of-one.png", From("https://a.test/")), "resource 1") << "it is known";
  EXPECT_EQ(Place("https://cdn.test/new.png", From("https://a.test/")), "resource 2") << "the one that loads";
  now += 20 * kSecond;
  EXPECT_EQ(Place("https://cdn.test/new.png", From("https://a.test/")), "unplaced") << "either could have";
}

TEST_F(PageTrackerTest, PagesSettle) {
  using Ids = std::vector<host::TabId>;
  ASSERT_EQ(Open("https://a.test/"), "page 1");
  tracker.LoadBegins(1);
  now += 4 * kSecond;
  EXPECT_EQ(tracker.TakeSettled(now), Ids()) << "something is under way";
  tracker.LoadEnds(1, now);
  EXPECT_EQ(tracker.TakeSettled(now + 2 * kSecond), Ids());
  EXPECT_EQ(tracker.TakeSettled(now + 3 * kSecond), Ids{1});
  EXPECT_EQ(tracker.UrlOf(1), "");
  EXPECT_EQ(Place("https://a.test/late.png", From("https://a.test/")), "unplaced");

  ASSERT_EQ(Open("https://a.test/"), "page 2");
  tracker.LoadBegins(2);
  ASSERT_EQ(Open("https://a.test/"), "page 3") << "a reload";
  EXPECT_EQ(tracker.TakeSettled(now), Ids{2}) << "another page has taken its place";
  tracker.LoadBegins(3);
  EXPECT_EQ(tracker.TakeSettled(now + 60 * kSecond), Ids{3}) << "a page that is never quiet";
  for (int i = 0; i < 65; ++i) Open("https://a.test/" + std::to_string(i));
  EXPECT_EQ(tracker.TakeSettled(now), Ids{4}) << "too many";
}

}  // namespace
}  // namespace live
