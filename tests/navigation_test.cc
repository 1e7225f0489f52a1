// Command type 3: pages requested (9), sub-resources seen (5), preloads withdrawn (8).
#include "tests/scripted_host.h"

namespace tests {
namespace {

using NavigationTest = PluginTest;

TEST_F(NavigationTest, OnlyAGetOfAUrlIsRecordedAsAPage) {
  host.Start();
  const struct {
    Params params;
    const char* record;
    const char* why;
  } rows[] = {
      {{}, "", "no URL"},
      {{nullptr, "GET", ""}, "", "a null URL"},
      {{kAbsent, "GET", ""}, "", "a place that points nowhere"},
      {{kPage}, "D Not GET method: http://page.test/\n", "no method"},
      {{kPage, nullptr}, "D Not GET method: http://page.test/\n", "a null method"},
      {{kPage, "POST", ""}, "D Not GET method: http://page.test/\n", "another method"},
      {{kPage, "get", ""}, "D Not GET method: http://page.test/\n", "case counts"},
      {{kPage, "GE", ""}, "D Not GET method: http://page.test/\n", "one letter less"},
      {{kPage, "GET ", ""}, "D Not GET method: http://page.test/\n", "one letter more"},
      {{kPage, "", ""}, "D Not GET method: http://page.test/\n", "empty"},
      {{kPage, "GET"},
       "D Main URL: http://page.test/\nD Add to Cache Reflector: http://page.test/\n",
       "the first GET"},
      {{kPage, "GET"}, "", "known now, and bypass is off"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(host.Send(3, 9, row.params), 1) << row.why;
    EXPECT_EQ(host.Take(), row.record) << row.why;
  }
}

TEST_F(NavigationTest, AKnownPageRequestedAgainPostsTheBypassCommand) {
  host.Start({{"bypassen", "1"}, {"bypassdl", "-7"}});
  host.Send(3, 9, {kPage, "GET", "A: first\r\n\r\n"});
  EXPECT_EQ(host.Take().find("CmdCreate"), std::string::npos) << "the first request only learns";
  const struct {
    Params params;
    const char* headers;
  } rows[] = {{{kPage, "GET", "A: b\r\n\r\n"}, "A: b\r\n\r\n"},
              {{kPage, "GET", nullptr}, "null"},
              {{kPage, "GET"}, "null"}};
  for (const auto& row : rows) {  // one each time: nothing stops several
    EXPECT_EQ(host.Send(3, 9, row.params), 1);
    EXPECT_EQ(host.Take(), std::string("CmdCreate 8 21 0\n"
                                       "Commit -7: 512, http://page.test/, 0, 8388608, ") +
                               row.headers + "\n");
  }
  // A sub-resource that is requested as a page is a known URL like any other.
  host.Send(3, 5, {kPage, "http://a.test/frame"});
  host.Take();
  host.Send(3, 9, {"http://a.test/frame", "GET", "A: b"});
  EXPECT_NE(host.Take().find("Commit -7: 512, http://a.test/frame, 0, 8388608, A: b\n"), std::string::npos);

  host.canCreateCommands = false;
  EXPECT_EQ(host.Send(3, 9, {kPage, "GET", ""}), 1);
  EXPECT_EQ(host.Take(), "CmdCreate 8 21 0\n");

  host.canCreateCommands = true;
  host.Send(8, 1, {kPage, ""});                         // seen
  host.Send(3, 8, {host.Hash("http://a.test/frame")});  // withdrawn
  for (const char* url : {kPage, "http://a.test/frame"}) host.Send(3, 9, {url, "GET", "A: b"});
  EXPECT_EQ(host.Take(), "") << "neither is posted any more";
}

TEST_F(NavigationTest, ASubResourceIsRecordedAndPreloadedWhenBothNumbersSaySo) {
  host.Start();
  host.Learn(kPage);
  const struct {
    Params rest;  // after page and URL
    bool preloaded;
    const char* why;
  } rows[] = {
      {{}, false, "no numbers"},
      {{9, 0}, false, "four parameters"},
      {{9, 0, 1}, true, "zero, then not zero"},
      {{9, 1, 1}, false, "the first is not zero"},
      {{9, 0, 0}, false, "the second is zero"},
      {{kAbsent, kAbsent, 0x80000000u}, true, "an absent number is zero"},
  };
  int index = 0;
  for (const auto& row : rows) {
    const std::string url = "http://h" + std::to_string(++index) + ".test/";
    Params params = {kPage, url};
    params.insert(params.end(), row.rest.begin(), row.rest.end());
    host.plugin.OnClearDb(0);
    host.Learn(kPage);
    host.Take();
    EXPECT_EQ(host.Send(3, 5, params), 1);
    const std::string key = "h" + std::to_string(index) + ".test:80";
    const std::string preload = "I Delayed preload : " + url + "\n" +                               //
                                "I Set For Preload (512): " + url + " \n" +                         //
                                "I Check Preload (" + key + ") - Active:0, In Preload Queue:1\n" +  //
                                "I Do Preload - " + url + "\n" +                                    //
                                "D Add to Cache Reflector: " + url + "\n" +                         //
                                "Fetch " + url + " context 0\n";
    EXPECT_EQ(host.Take(), (row.preloaded ? preload : "") + "D Add to Cache Reflector: " + url + "\n")
        << row.why;
    EXPECT_EQ(host.Send(3, 5, {kPage, url, 0, 0, 1}), 1);
    EXPECT_EQ(host.Take(), "") << "known: " << row.why;
  }
  EXPECT_EQ(host.RequestInfo("http://h3.test/")->load_flags, 0x800000);
}

TEST_F(NavigationTest, ASubResourceWithoutPageOrUrlIsIgnored) {
  host.Start();
  for (const Params& params : {Params{}, Params{kPage}, Params{kPage, nullptr, 0, 0, 1},
                               Params{nullptr, "http://a.test/1", 0, 0, 1}}) {
    EXPECT_EQ(host.Send(3, 5, params), 1);
    EXPECT_EQ(host.Take(), "");
  }
}

TEST_F(NavigationTest, WithdrawingRemovesEveryQueuedPreloadOfAKnownUrl) {
  host.hashes = {{"http://a.test/zero", 0}};  // the hash that an absent number reads as
  host.Start();
  host.Learn(kPage);
  host.maxSockets = 1;  // everything waits
  for (const char* url : {"http://a.test/1", "http://a.test/zero", "http://a.test/2"}) {
    host.Send(3, 5, {kPage, url, 0, 0, 1});
    host.Order(url, kPage);
    host.Order("http://a.test/unknown", kPage);
  }
  EXPECT_EQ(host.Send(3, 8, {host.Hash("http://a.test/1")}), 1);
  EXPECT_EQ(host.Send(3, 8, {}), 1);                                    // zero
  EXPECT_EQ(host.Send(3, 8, {host.Hash("http://a.test/unknown")}), 1);  // not a known URL: stays queued
  EXPECT_EQ(host.Send(3, 8, {host.Hash("http://a.test/elsewhere")}), 1);
  host.Order("http://a.test/1", kPage);  // withdrawn: no longer queued by an order
  host.Take();
  host.maxSockets = 3;
  host.verbosity = 0;
  host.Send(8, 4);
  EXPECT_EQ(host.Take(),
            "Fetch http://a.test/unknown context 0\n");  // the first; the second is in the cache by then
  host.verbosity = 3;
  host.maxSockets = 9;
  host.Send(8, 4);
  EXPECT_EQ(host.Take(),
            "I Check Preload (a.test:80) - Active:0, In Preload Queue:3\n"
            "I Do Preload - http://a.test/2\n"
            "Fetch http://a.test/2 context 0\n"
            "I Do Preload - http://a.test/2\n"
            "I Do Preload - http://a.test/unknown\n");
}

}  // namespace
}  // namespace tests
