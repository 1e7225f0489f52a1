// Command type 8: requests seen by the host (action 1) and preload orders (action 21).
#include "tests/support/scripted_host.h"

namespace tests {
namespace {

using PrefetchTest = PluginTest;

TEST(PrefetchWithOwnHost, APagesHeadersAreReducedToTwo) {
  const struct {
    Param headers;
    const char *reduced, *why;
  } rows[] = {
      // clang-format off
      {"Accept: a/b\r\nX-Requested-With: Y\r\nCookie: c\r\n\r\n", "X-Requested-With: Y\r\n", "the rest stays out"},
      {"x-requested-WITH:  com.app \r\n", "X-Requested-With: com.app\r\n", "whatever the case"},
      {"X-Requested-With:\r\n", "X-Requested-With:\r\n", "an empty value is a value"},
      {"Referer: http://r.test/\r\n\r\n", "", "none to keep"},
      {nullptr, "", "null headers"},
      {kAbsent, "", "absent headers"},
      // clang-format on
  };
  for (const auto& row : rows) {
    ScriptedHost host;
    host.Start();
    host.Send<PageRequested>({kPage, "GET"});
    EXPECT_EQ(host.Send<RequestSeen>({kPage, row.headers, 0, &host.contexts[0]}), 1);
    host.Order(kUrl, kPage);
    const auto request = host.RequestInfo(kUrl);
    ASSERT_NE(request, nullptr) << row.why;
    EXPECT_EQ(request->extra_headers.ToString(), std::string("Accept: */*\r\n") + row.reduced + "\r\n")
        << row.why;
  }
}

TEST_F(PrefetchTest, ARequestSeenMarksItsUrlAndOnlyAPageTakesTheContext) {
  host.Learn(kPage);
  host.Send<ResourceSeen>({kPage, "http://a.test/sub"});
  // Seen as a request of its own, a sub-resource lends its context to nobody.
  EXPECT_EQ(host.Send<RequestSeen>({"http://a.test/sub", "", 0, &host.contexts[1]}), 1);
  EXPECT_EQ(host.Send<RequestSeen>({"http://unknown.test/", "", 0, &host.contexts[1]}), 1);
  EXPECT_EQ(host.Send<RequestSeen>({}), 1);
  host.Take();
  host.verbosity = 3;
  host.Order("http://a.test/sub", kPage);
  EXPECT_EQ(host.Take(), "") << "seen: no order is taken for it";
  host.Order("http://a.test/1", "http://a.test/sub");
  host.Order("http://a.test/2", "http://unknown.test/");
  EXPECT_EQ(host.Take().find("Fetch"), std::string::npos);
  // A page that is seen without context loses the one that it had, and gets the next one.
  host.Send<RequestSeen>({kPage, "", 0});
  host.Order("http://a.test/3", kPage);
  EXPECT_NE(host.Take().find("I Skip URL with undefined context http://a.test/3\n"), std::string::npos);
  host.Send<RequestSeen>({kPage, "", 0, &host.contexts[2]});
  host.Send<CacheStatus>({host.Hash("http://a.test/3"), 0});  // the attempt had recorded it
  host.Order("http://a.test/3", kPage);
  EXPECT_NE(host.Take().find("Fetch http://a.test/3 context 2\n"), std::string::npos);
}

TEST_F(PrefetchTest, OrdersAreQueuedUnlessTheirUrlWasSeenOrTheyNameNothingToFetchWith) {
  host.verbosity = 3;
  const uint32_t page = host.Hash("http://unknown.test/");
  const auto queued = [](const std::string& first, const std::string& url, const std::string& key) {
    return first + url + "\nI Set For Preload (7): " + url + " \nI Check Preload (" + key +
           ") - Active:0, In Preload Queue:1\nI Do Preload - " + url +
           "\nI Skip URL with undefined context " + url + "\n";
  };
  const std::string refused = "W No Prefetch Headers or Context: ";
  const struct {
    Params params;
    std::string record;
    const char* why;
  } rows[] = {
      // clang-format off
      {{7, "http://x.test/", 0, 0, "A: b"}, queued("I Prefetch: ", "http://x.test/", "x.test:80"), "not known"},
      {{7, "http://known.test/", 0, 0, "A: b"}, queued("I Bypass: ", "http://known.test/", "known.test:80"), "known"},
      {{7, "http://seen.test/", 0, 0, "A: b"}, "", "seen"},
      {{7, "http://withdrawn.test/", page, 0}, "", "withdrawn"},
      {{7, "http://x.test/", 0, 0, ""}, refused + "http://x.test/\n", "empty headers"},
      {{7, "http://x.test/", 0, 0, nullptr}, refused + "http://x.test/\n", "null headers"},
      {{7, "http://seen.test/", 0, 0}, refused + "http://seen.test/\n", "absent headers, looked at first"},
      {{}, refused + "\n", "nothing at all"},
      {{7, nullptr, page}, queued("I Prefetch: ", "", ""), "an absent URL is an empty one"},
      // clang-format on
  };
  for (const auto& row : rows) {
    host.plugin.OnFlushDb(0);
    host.Learn("http://seen.test/");
    host.Send<PageRequested>({"http://known.test/", "GET"});
    host.Send<PageRequested>({"http://withdrawn.test/", "GET"});
    host.Send<WithdrawPreloads>({host.Hash("http://withdrawn.test/")});
    host.Send<CheckPreloads>();  // drops the host of the row before
    host.Take();
    EXPECT_EQ(host.Sent<OrderPreload>(row.params), row.record) << row.why;
  }
}

}  // namespace
}  // namespace tests
