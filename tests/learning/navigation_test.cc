// Command type 3: pages requested (9), sub-resources seen (5), preloads withdrawn (8).
#include "tests/support/scripted_host.h"

namespace tests {
namespace {

using NavigationTest = PluginTest;

TEST_F(NavigationTest, OnlyAGetOfAUrlIsRecordedAsAPage) {
  const struct {
    Params params;
    const char *record, *why;
  } rows[] = {
      // clang-format off
      {{nullptr, "GET", ""}, "", "a null URL"},
      {{kAbsent, "GET", ""}, "", "a place that points nowhere"},
      {{kPage}, "D Not GET method: http://page.test/\n", "no method"},
      {{kPage, nullptr}, "D Not GET method: http://page.test/\n", "a null method"},
      {{kPage, "get", ""}, "D Not GET method: http://page.test/\n", "case counts"},
      {{kPage, "GE", ""}, "D Not GET method: http://page.test/\n", "one letter less"},
      {{kPage, "GET ", ""}, "D Not GET method: http://page.test/\n", "one letter more"},
      {{kPage, "GET"}, "D Main URL: http://page.test/\nD Add to Cache Reflector: http://page.test/\n", "a GET"},
      // clang-format on
      {{kPage, "GET"}, "", "known now, and bypass is off"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(host.Sent<PageRequested>(row.params), row.record) << row.why;
  }
}
TEST_F(NavigationTest, AKnownPageRequestedAgainPostsTheBypassCommand) {
  host.Start({{"bypassen", "1"}, {"bypassdl", "-7"}});
  host.Send<PageRequested>({kPage, "GET", "A: first\r\n\r\n"});
  EXPECT_EQ(host.Take().find("CmdCreate"), std::string::npos) << "the first request only learns";
  const std::string posted = "CmdCreate 8 21 0\nCommit -7: 512, http://page.test/, 0, 8388608, ";
  for (int i = 0; i < 2; ++i) {  // one each time: nothing stops several
    EXPECT_EQ(host.Sent<PageRequested>({kPage, "GET", "A: b\r\n\r\n"}), posted + "A: b\r\n\r\n\n");
  }
  EXPECT_EQ(host.Sent<PageRequested>({kPage, "GET", nullptr}), posted + "null\n");
  EXPECT_EQ(host.Sent<PageRequested>({kPage, "GET"}), posted + "null\n");
  // A sub-resource that is requested as a page is a known URL like any other.
  host.Send<ResourceSeen>({kPage, "http://a.test/frame"});
  host.Take();
  EXPECT_NE(host.Sent<PageRequested>({"http://a.test/frame", "GET", "A: b"})
                .find("Commit -7: 512, http://a.test/frame, "),
            std::string::npos);
  host.canCreateCommands = false;
  EXPECT_EQ(host.Sent<PageRequested>({kPage, "GET", ""}), "CmdCreate 8 21 0\n");
  host.canCreateCommands = true;
  host.Send<RequestSeen>({kPage, ""});                              // seen
  host.Send<WithdrawPreloads>({host.Hash("http://a.test/frame")});  // withdrawn
  for (const char* url : {kPage, "http://a.test/frame"}) host.Send<PageRequested>({url, "GET", "A: b"});
  EXPECT_EQ(host.Take(), "") << "neither is posted any more";
}

TEST_F(NavigationTest, ASubResourceIsRecordedAndPreloadedWhenBothNumbersSaySo) {
  const std::string recorded = "D Add to Cache Reflector: http://a.test/1\n";
  const std::string preloaded =
      "I Delayed preload : http://a.test/1\n"
      "I Set For Preload (512): http://a.test/1 \n"
      "I Check Preload (a.test:80) - Active:0, In Preload Queue:1\n"
      "I Do Preload - http://a.test/1\n"
      "D Add to Cache Reflector: http://a.test/1\n"
      "Fetch http://a.test/1 context 0\n";
  const struct {
    Params params;
    std::string record;
    const char* why;
  } rows[] = {
      {{kPage, kUrl}, recorded, "no numbers"},
      {{kPage, kUrl, 9, 0}, recorded, "four parameters"},
      {{kPage, kUrl, 9, 0, 1}, preloaded + recorded, "zero, then not zero"},
      {{kPage, kUrl, 9, 1, 1}, recorded, "the first is not zero"},
      {{kPage, kUrl, 9, 0, 0}, recorded, "the second is zero"},
      {{kPage, kUrl, kAbsent, kAbsent, 0x80000000u}, preloaded + recorded, "an absent number is zero"},
      {{kPage}, "", "no URL"},
      {{kPage, nullptr, 0, 0, 1}, "", "a null URL"},
      {{nullptr, kUrl, 0, 0, 1}, "", "a null page"},
  };
  for (const auto& row : rows) {
    host.plugin.OnFlushDb(0);
    host.plugin.OnClearDb(0);
    host.Learn(kPage);
    host.Take();
    EXPECT_EQ(host.Sent<ResourceSeen>(row.params), row.record) << row.why;
    if (row.record.empty()) continue;
    EXPECT_EQ(host.Sent<ResourceSeen>({kPage, kUrl, 0, 0, 1}), "") << "known: " << row.why;
    const auto request = host.RequestInfo(kUrl);
    EXPECT_EQ(request != nullptr && request->load_flags == 0x800000, row.record != recorded) << row.why;
  }
}
TEST_F(NavigationTest, WithdrawingRemovesEveryQueuedPreloadOfAKnownUrl) {
  host.hashes = {{"http://a.test/zero", 0}};  // the hash that an absent number reads as
  host.Learn(kPage);
  host.maxSockets = 1;  // everything waits
  for (const char* url : {"http://a.test/1", "http://a.test/zero", "http://a.test/2"}) {
    host.Send<ResourceSeen>({kPage, url, 0, 0, 1});
    host.Order(url, kPage);
    host.Order("http://a.test/unknown", kPage);
  }
  EXPECT_EQ(host.Send<WithdrawPreloads>({host.Hash("http://a.test/1")}), 1);
  EXPECT_EQ(host.Send<WithdrawPreloads>({}), 1);  // zero
  EXPECT_EQ(host.Send<WithdrawPreloads>({host.Hash("http://a.test/unknown")}),
            1);  // not a known URL: stays queued
  EXPECT_EQ(host.Send<WithdrawPreloads>({host.Hash("http://a.test/elsewhere")}), 1);
  host.Order("http://a.test/1", kPage);  // withdrawn: no longer queued by an order
  host.Take();
  host.maxSockets = 3;
  host.verbosity = 0;
  EXPECT_EQ(host.Sent<CheckPreloads>(),
            "Fetch http://a.test/unknown context 0\n");  // the first; the second is in the cache by then
  host.verbosity = 3;
  host.maxSockets = 9;
  EXPECT_EQ(host.Sent<CheckPreloads>(),
            "I Check Preload (a.test:80) - Active:0, In Preload Queue:3\n"
            "I Do Preload - http://a.test/2\n"
            "Fetch http://a.test/2 context 0\n"
            "I Do Preload - http://a.test/2\n"
            "I Do Preload - http://a.test/unknown\n");
}

}  // namespace
}  // namespace tests
