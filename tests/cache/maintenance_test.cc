// Flush and clear: what is removed, what is reported, and what goes on afterwards.
#include "tests/support/scripted_host.h"

namespace tests {
namespace {

using MaintenanceTest = PluginTest;

TEST(MaintenanceWithOwnHost, AFlushRemovesEveryPreloadAndReportsTheStuckOnes) {
  enum { kPending, kDelayed, kRunning, kPreloaded, kFailed };
  constexpr int64_t kFarMs = INT64_MAX / 1000;  // the last time that microseconds can represent
  const struct {
    int state;
    int64_t ageMs;
    bool reported;
    const char* why;
    int64_t madeMs = 1'000'000;
  } rows[] = {
      {kPending, 0, true, "on its way"},
      {kPending, 10'000'000, true, "at any age"},
      {kDelayed, 10'000'000, true, ""},
      {kRunning, 10'000'000, true, ""},
      {kPreloaded, 0, true, "nobody could have wanted it yet"},
      {kPreloaded, 120'000, true, "exactly two minutes is not more"},
      {kPreloaded, 120'001, false, "held longer than two minutes"},
      {kPreloaded, 3'000'000'000, false, "longer than 32 bits of milliseconds"},
      {kPreloaded, -5, true, "the clock went back"},
      // The age is a signed number of 32 bits; a clock that jumps must not make an old preload young.
      {kPreloaded, int64_t{INT32_MAX} + 1, false, "the smallest age, if it wrapped"},
      {kPreloaded, (int64_t{1} << 32) + 5, false, "5, if it were cut off"},
      {kPreloaded, -(int64_t{1} << 32) + 120'001, true, "back by more than 32 bits"},
      {kPreloaded, -2 * kFarMs, true, "from the end of all clocks to their beginning", kFarMs},
      {kPreloaded, 2 * kFarMs, false, "and the other way", -kFarMs},
      {kFailed, 10'000'000, false, "an ordinary end"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.state) + " " + row.why);
    ScriptedHost host;
    host.Start();
    host.nowMs = row.madeMs;
    host.Learn(kPage);
    host.hasHttpCache = row.state != kDelayed;
    host.Order(kUrl, kPage);
    if (row.state == kRunning) host.RequestInfo(kUrl);
    if (row.state == kPreloaded) host.FetchOk(kUrl, "body");
    if (row.state == kFailed) host.Done(kUrl, -1);
    host.nowMs += row.ageMs;
    host.Take();
    EXPECT_EQ(host.plugin.OnFlushDb(0), 1);
    const std::string record = host.Take();
    const std::string state = std::to_string(row.state);
    EXPECT_EQ(record.find("Stuck") != std::string::npos, row.reported);
    EXPECT_EQ(
        record.find("I OnFlushDb - Stuck preload: http://a.test/1 (" + state + ")\n") != std::string::npos,
        row.reported);
    EXPECT_EQ(host.Done(kUrl), 0) << "gone in any case";
    EXPECT_EQ(host.plugin.ReleasePreloaded(kUrl), 0);
  }
}
TEST_F(MaintenanceTest, AFlushTellsItsStoryInOrder) {
  host.hashes = {{kPage, 5}, {"http://a.test/1", 0x80000000}, {"http://b.test/2", 2}};
  host.recordQuestions = true;
  host.Launch("http://a.test/1");
  host.Order("http://b.test/2", kPage);
  host.Send<PageRequested>({"http://confirmed.test/", "GET"});
  host.Send<CacheStatus>({host.Hash("http://confirmed.test/"), 1});
  host.Take();
  host.plugin.OnFlushDb(0xFFFFFFFF);
  EXPECT_EQ(host.Take(),
            "I Remove from cached list: http://b.test/2 (0)\n"
            "I Remove from cached list: http://page.test/ (0)\n"
            "I Remove from cached list: http://a.test/1 (0)\n"
            "I OnFlushDb - HostMap Size: 1, CachedUrlMap Size: 1\n"
            "SystemTime\n"
            "I OnFlushDb - Stuck preload: http://b.test/2 (0)\n"
            "I OnFlushDb - Stuck preload: http://a.test/1 (0)\n"
            "D Clean URL cache done (0)\n");
}

TEST_F(MaintenanceTest, AFlushLeavesTheSlotsOfRunningFetchesTaken) {
  host.Start({{"prlimit", "1"}});
  host.Send<TransactionStarted>({kUrl, 0, 1});
  host.Launch("http://a.test/2");
  host.plugin.OnFlushDb(0);
  EXPECT_EQ(host.Done("http://a.test/2"), 0);
  host.verbosity = 0;
  for (const char* record : {"", "Fetch http://a.test/3 context 0\n"}) {
    host.Learn(kPage);
    host.Take();
    host.Order("http://a.test/3", kPage);
    EXPECT_EQ(host.Take(), record)
        << "the slot is never given back, but a clear makes a new record of the host";
    host.plugin.OnClearDb(0);
  }
}
TEST_F(MaintenanceTest, AClearForgetsUrlsAndHostsAndKeepsPreloads) {
  host.Preload("http://a.test/held", "held");
  host.Launch("http://a.test/running");
  host.maxSockets = 1;
  host.Order("http://a.test/queued", kPage);
  host.Send<CacheStatus>({host.Hash(kPage), 1});
  host.Send<TransactionStarted>({"http://b.test/", 0, 1});
  host.Take();
  EXPECT_EQ(host.plugin.OnClearDb(0), 1);
  EXPECT_EQ(host.plugin.OnClearDb(0), 1);  // with nothing to clear
  EXPECT_EQ(host.Take(), "I OnClearDb\nI OnClearDb\n");
  host.maxSockets = 6;
  EXPECT_EQ(host.Sent<CheckPreloads>(), "") << "no host is left to visit";
  host.FetchOk("http://a.test/running", "ran on");
  EXPECT_EQ(host.Take(), "") << "and none to take the slot back";
  EXPECT_EQ(host.Ask("http://a.test/held").body(), "held");
  EXPECT_EQ(host.Ask("http://a.test/running").body(), "ran on");
  EXPECT_NE(host.Sent<PageRequested>({kPage, "GET"}).find("D Main URL: http://page.test/\n"),
            std::string::npos)
      << "learned from the start";
}

}  // namespace
}  // namespace tests
