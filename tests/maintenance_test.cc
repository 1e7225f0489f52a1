// Flush and clear: what is removed, what is reported, and what goes on afterwards.
#include "tests/scripted_host.h"

namespace tests {
namespace {

using MaintenanceTest = PluginTest;

TEST(MaintenanceWithOwnHost, AFlushRemovesEveryPreloadAndReportsTheStuckOnes) {
  enum { kPending, kDelayed, kRunning, kPreloaded, kFailed };
  const struct {
    int state;
    int64_t ageMs;
    bool reported;
    const char* why;
  } rows[] = {
      {kPending, 0, true, "on its way"},
      {kPending, 10'000'000, true, "at any age"},
      {kDelayed, 0, true, ""},
      {kDelayed, 10'000'000, true, ""},
      {kRunning, 0, true, ""},
      {kRunning, 10'000'000, true, ""},
      {kPreloaded, 0, true, "nobody could have wanted it yet"},
      {kPreloaded, 120'000, true, "exactly two minutes is not more"},
      {kPreloaded, 120'001, false, "held longer than two minutes"},
      {kPreloaded, 3'000'000'000, false, "longer than 32 bits of milliseconds"},
      {kPreloaded, -5, true, "the clock went back"},
      {kFailed, 0, false, "an ordinary end"},
      {kFailed, 10'000'000, false, ""},
  };
  for (const auto& row : rows) {
    ScriptedHost host;
    host.Start();
    host.Learn(kPage);
    host.hasHttpCache = row.state != kDelayed;
    host.Order("http://a.test/1", kPage);
    if (row.state == kRunning) host.RequestInfo("http://a.test/1");
    if (row.state == kPreloaded) host.FetchOk("http://a.test/1", "body");
    if (row.state == kFailed) host.Done("http://a.test/1", -1);
    host.nowMs += row.ageMs;
    host.Take();
    EXPECT_EQ(host.plugin.OnFlushDb(0), 1);
    const std::string record = host.Take();
    const std::string line =
        "I OnFlushDb - Stuck preload: http://a.test/1 (" + std::to_string(row.state) + ")\n";
    EXPECT_EQ(record.find(line) != std::string::npos, row.reported) << row.state << " " << row.why;
    EXPECT_EQ(record.find("Stuck") != std::string::npos, row.reported) << row.state << " " << row.why;
    EXPECT_EQ(host.Done("http://a.test/1"), 0) << "gone in any case";
    EXPECT_EQ(host.plugin.ReleasePreloaded("http://a.test/1"), 0);
  }
}

TEST_F(MaintenanceTest, AFlushTellsItsStoryInOrder) {
  host.hashes = {{kPage, 5}, {"http://a.test/1", 0x80000000}, {"http://b.test/2", 2}};
  host.Start();
  host.recordQuestions = true;
  host.plugin.OnFlushDb(1);
  EXPECT_EQ(host.Take(),
            "I OnFlushDb - HostMap Size: 0, CachedUrlMap Size: 0\n"
            "SystemTime\n"
            "D Clean URL cache done (0)\n");
  host.Launch("http://a.test/1");
  host.Order("http://b.test/2", kPage);
  host.Take();
  host.plugin.OnFlushDb(0xFFFFFFFF);
  EXPECT_EQ(host.Take(),
            "I Remove from cached list: http://b.test/2 (0)\n"
            "I Remove from cached list: http://page.test/ (0)\n"
            "I Remove from cached list: http://a.test/1 (0)\n"
            "I OnFlushDb - HostMap Size: 1, CachedUrlMap Size: 0\n"
            "SystemTime\n"
            "I OnFlushDb - Stuck preload: http://b.test/2 (0)\n"
            "I OnFlushDb - Stuck preload: http://a.test/1 (0)\n"
            "D Clean URL cache done (0)\n");
}

TEST_F(MaintenanceTest, AFlushCutsRunningFetchesOffAndLeavesTheirSlotsTaken) {
  host.Start({{"prlimit", "1"}});
  host.Send(9, 1, {"http://a.test/own", 0, 1});
  host.Launch("http://a.test/1");
  EXPECT_NE(host.RequestInfo("http://a.test/1"), nullptr);
  host.plugin.OnFlushDb(0);
  host.Take();
  EXPECT_EQ(host.RequestInfo("http://a.test/1"), nullptr);
  EXPECT_EQ(host.StartComplete("http://a.test/1", RawHeaders({"HTTP/1.1 200 OK", "Content-Length: 1"})), 0);
  EXPECT_EQ(host.Read("http://a.test/1", "x"), 0);
  EXPECT_EQ(host.Done("http://a.test/1"), 0);
  host.verbosity = 0;
  host.Take();
  host.Learn(kPage);
  host.Order("http://a.test/2", kPage);
  EXPECT_EQ(host.Take(), "") << "the host's one slot was never given back";
  host.plugin.OnClearDb(0);
  host.Learn(kPage);
  host.Order("http://a.test/2", kPage);
  EXPECT_EQ(host.Take(), "Fetch http://a.test/2 context 0\n") << "a clear makes a new record of the host";
}

TEST_F(MaintenanceTest, AClearForgetsUrlsAndHostsAndKeepsPreloads) {
  host.Start();
  host.Launch("http://a.test/held");
  host.FetchOk("http://a.test/held", "held");
  host.Launch("http://a.test/running");
  host.maxSockets = 1;
  host.Order("http://a.test/queued", kPage);
  host.Send(2, 13, {host.Hash(kPage), 1});
  host.Send(9, 1, {"http://b.test/", 0, 1});
  host.Take();
  EXPECT_EQ(host.plugin.OnClearDb(0), 1);
  EXPECT_EQ(host.plugin.OnClearDb(0), 1);  // with nothing to clear
  EXPECT_EQ(host.Take(), "I OnClearDb\nI OnClearDb\n");
  host.maxSockets = 6;
  host.Send(8, 4);
  EXPECT_EQ(host.Take(), "") << "no host is left to visit";
  host.FetchOk("http://a.test/running", "ran on");
  EXPECT_EQ(host.Take(), "") << "and none to take the slot back";
  EXPECT_EQ(host.Ask("http://a.test/held").body(), "held");
  EXPECT_EQ(host.Ask("http://a.test/running").body(), "ran on");
  host.Take();
  host.Send(3, 9, {kPage, "GET"});
  EXPECT_NE(host.Take().find("D Main URL: http://page.test/\n"), std::string::npos)
      << "learned from the start";
}

}  // namespace
}  // namespace tests
