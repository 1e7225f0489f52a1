// What is told of the browser from its requests and answers: its cookies, what its cache holds, and which
// addresses its pages may reach.
#include <gtest/gtest.h>

#include <optional>

#include "live/proxy/address_rules.h"
#include "live/proxy/browser_cache_estimate.h"
#include "live/proxy/cookie_view.h"
#include "tests/support/header_lines.h"
#include "tests/support/text.h"

namespace live {
namespace {

constexpr const char* kSite = "https://page.test";

class CookieViewTest : public testing::Test {
 protected:
  void Sent(const std::string& url, const std::string& cookies, const std::string& site = kSite) {
    view.Sent(site, url, cookies.empty() ? "" : "Cookie: " + cookies + "\r\n");
  }
  void Set(const std::string& url, const std::string& cookie) {
    view.Answered(kSite, url, tests::RawBlock(200, "Set-Cookie: " + cookie + "\n"), 1.7e12);
  }
  // "?" when it cannot be told.
  std::string For(const std::string& url, bool carried = true, const std::string& site = kSite) {
    return view.For(site, url, carried).value_or("?");
  }

  CookieView view{100, 100};
};

TEST_F(CookieViewTest, TellsWhatTheBrowserWouldSend) {
  EXPECT_EQ(For("https://a.test/x"), "?") << "never heard of";
  EXPECT_EQ(For("https://a.test/x", false), "") << "its requests carried none before";

  Sent("https://a.test/x", "id=1; theme=dark");
  EXPECT_EQ(For("https://a.test/x"), "id=1; theme=dark");
  EXPECT_EQ(For("https://a.test/new"), "id=1; theme=dark") << "another URL of the host";
  EXPECT_EQ(For("https://a.test/new", false), "");
  EXPECT_EQ(For("https://b.test/x"), "?");
  EXPECT_EQ(For("http://a.test/x"), "?") << "a secure one must not go out in the clear";
  EXPECT_EQ(For("https://a.test/x", true, "https://other.test"), "?") << "cookies are kept apart by site";

  Sent("https://a.test/account/y", "id=1; theme=dark; account=7");
  EXPECT_EQ(For("https://a.test/x"), "id=1; theme=dark") << "the third one has a path";
  EXPECT_EQ(For("https://a.test/account/y"), "id=1; theme=dark; account=7");
  Sent("https://a.test/x", "id=2; theme=dark");
  EXPECT_EQ(For("https://a.test/account/y"), "id=2; theme=dark; account=7") << "the newest value";
  Sent("https://a.test/x", "");
  EXPECT_EQ(For("https://a.test/x"), "") << "a logout by script";
}

TEST_F(CookieViewTest, FollowsWhatServersSet) {
  Sent("https://a.test/x", "id=1");
  Set("https://a.test/login", "id=2; Path=/; HttpOnly");
  EXPECT_EQ(For("https://a.test/x"), "id=2");
  Set("https://a.test/login", "session=s; Secure; Path=/");
  EXPECT_EQ(For("https://a.test/x"), "id=2; session=s");
  Set("https://a.test/login", "deep=d; Path=/deep");
  EXPECT_EQ(For("https://a.test/x"), "id=2; session=s") << "another path";
  Set("https://a.test/login", "id=3; Expires=Thu, 01 Jan 1970 00:00:00 GMT; Max-Age=60");
  EXPECT_EQ(For("https://a.test/x"), "id=3; session=s") << "the age counts";
  Set("https://a.test/login", "session=; Max-Age=0; Expires=Fri, 01 Jan 2100 00:00:00 GMT");
  Set("https://a.test/login", "id=; Expires=Tue, 14 Nov 2023 00:00:00 GMT");
  EXPECT_EQ(For("https://a.test/x"), "");
}

TEST_F(CookieViewTest, IsBounded) {
  for (int i = 0; i < 300; ++i) Sent("https://h" + std::to_string(i) + ".test/", "a=b");
  EXPECT_EQ(For("https://h0.test/"), "?");
  EXPECT_EQ(For("https://h299.test/"), "a=b");
}

class BrowserCacheTest : public testing::Test {
 protected:
  void Deliver(const std::string& url, const std::string& headers, int status = 200) {
    estimate->Delivered(kSite, "GET", url, tests::RawBlock(status, headers + "\n"), now);
  }
  bool IsFresh(const std::string& url, const std::string& site = kSite) {
    return estimate->IsFresh(site, url, now);
  }

  double now = 1e12;
  std::optional<BrowserCacheEstimate> estimate{1000};
};

TEST_F(BrowserCacheTest, WhatWasSentIsFreshForItsLifetime) {
  Deliver("u", "Cache-Control: max-age=60\nETag: \"1\"");
  EXPECT_TRUE(IsFresh("u"));
  EXPECT_FALSE(IsFresh("u", "https://other.test")) << "browsers keep caches apart by site";
  now += 61'000;
  EXPECT_FALSE(IsFresh("u"));
  Deliver("u", "ETag: \"1\"", 304);
  EXPECT_TRUE(IsFresh("u")) << "renewed, for as long as before";
  Deliver("u", "Cache-Control: no-store");
  EXPECT_FALSE(IsFresh("u"));
  Deliver("u", "Cache-Control: max-age=60", 206);
  EXPECT_FALSE(IsFresh("u")) << "a part says nothing of the whole";
  EXPECT_FALSE(IsFresh("never sent"));
}

TEST_F(BrowserCacheTest, ARequestThatAFullCacheWouldNotMakeShowsThatItWasCleared) {
  const struct {
    const char* url;
    const char* headers;
    bool isPage;
    bool cleared;
  } rows[] = {
      {"fresh", "", false, true},
      {"fresh", "If-None-Match: \"1\"\r\n", false, false},  // a reload asks like this
      {"fresh", "Cache-Control: no-cache\r\n", false, false},
      {"fresh", "Range: bytes=0-\r\n", false, false},
      {"stale", "", false, false},  // a resource may have been evicted alone
      {"page", "", true, true},
      {"page", "If-None-Match: \"1\"\r\n", true, false},
      {"unknown", "", true, false},
  };
  for (const auto& row : rows) {
    estimate.emplace(1000);
    Deliver("other", "Cache-Control: max-age=9999");
    Deliver("fresh", "Cache-Control: max-age=9999\nETag: \"1\"");
    Deliver("stale", "Cache-Control: max-age=0\nETag: \"1\"");
    Deliver("page", "Cache-Control: no-cache\nETag: \"1\"");
    EXPECT_EQ(estimate->Asked(kSite, row.url, row.headers, row.isPage, now), row.cleared)
        << row.url << row.headers;
    EXPECT_EQ(IsFresh("other"), !row.cleared) << row.url << row.headers;
    Deliver("other", "Cache-Control: max-age=9999");
    EXPECT_TRUE(IsFresh("other")) << "what comes after that is in the cache again";
  }
}

TEST(AddressRulesTest, TellsPrivateAddresses) {
  for (const std::string& address :
       tests::Words("127.0.0.1 10.1.2.3 172.16.0.1 172.31.255.255 192.168.1.1 169.254.169.254 100.64.0.1 "
                    "0.0.0.0 224.0.0.1 "
                    "255.255.255.255 ::1 :: fe80::1 fe80::1%eth0 fd00::1 ::ffff:127.0.0.1 ::ffff:10.0.0.1 "
                    "64:ff9b::a00:1 "
                    "64:ff9b:1::808:808 2002:7f00:1:: 2001::1 203.0.113.1 2001:db8::1 not.an.address")) {
    EXPECT_TRUE(IsPrivateAddress(address)) << address;
  }
  EXPECT_TRUE(IsPrivateAddress(""));
  for (const std::string& address :
       tests::Words("8.8.8.8 172.15.255.255 172.32.0.1 100.63.0.1 192.169.0.1 2606:4700::1111 ::ffff:8.8.8.8 "
                    "64:ff9b::808:808 2002:808:808::")) {
    EXPECT_FALSE(IsPrivateAddress(address)) << address;
  }
}

}  // namespace
}  // namespace live
