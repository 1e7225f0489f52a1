// From a preload decision to a running fetch, or to one that waits for the host (type 8, action 20).
#include "tests/support/scripted_host.h"

namespace tests {
namespace {

using FetchLaunchTest = PluginTest;

// What a launch asked and did, after the lines that lead to it.
std::string Launched(ScriptedHost& host, const std::string& url) {
  host.recordQuestions = true;
  host.Take();
  host.Order(url, kPage);
  const std::string record = host.Take();
  const size_t launch = record.rfind("I Do Preload - ");
  return launch != std::string::npos ? record.substr(record.find('\n', launch) + 1) : "no launch: " + record;
}

TEST(FetchLaunchWithOwnHost, AFetchNeedsTheLoopAndThenTheHttpCache) {
  const std::string known = std::string("D Add to Cache Reflector: ") + kUrl + "\n";
  const struct {
    bool loop, cache;
    const char* record;
    int state;  // as the flush reports it
  } rows[] = {
      {true, true, "SystemTime\nIoMessageLoop\nHttpCache\nFetch http://a.test/1 context 0\n", 0},
      {true, false, "SystemTime\nIoMessageLoop\nHttpCache\nD Delayed Fetch: http://a.test/1\n", 1},
      {false, false, "SystemTime\nIoMessageLoop\nD Delayed Fetch: http://a.test/1\n", 1},
  };
  for (const auto& row : rows) {
    ScriptedHost host;
    host.Start();
    host.Learn(kPage);
    host.hasLoop = row.loop;
    host.hasHttpCache = row.cache;
    EXPECT_EQ(Launched(host, kUrl), known + row.record);
    EXPECT_EQ(Launched(host, kUrl), std::string("D URL is already in KIV cache ") + kUrl + "\n");
    host.plugin.OnFlushDb(0);
    EXPECT_NE(host.Take().find("Stuck preload: http://a.test/1 (" + std::to_string(row.state) + ")\n"),
              std::string::npos);
  }
}

TEST_F(FetchLaunchTest, AUrlWithTheHashOfAnotherIsAlreadyThere) {
  host.hashes = {{kUrl, 77}, {"http://b.test/other", 77}};
  host.Launch(kUrl);
  EXPECT_EQ(Launched(host, "http://b.test/other"), "D URL is already in KIV cache http://b.test/other\n");
  host.FetchOk(kUrl, "of the first");
  EXPECT_EQ(host.Ask("http://b.test/other").body(), "of the first");
}

TEST_F(FetchLaunchTest, DelayedFetchesStartInKeyOrderAndOnlyOnce) {
  host.hashes = {{"http://a.test/3", 3}, {"http://a.test/1", 1}, {"http://a.test/high", 0x80000000}};
  host.Launch("http://a.test/running");
  host.hasLoop = false;
  for (const char* url : {"http://a.test/high", "http://a.test/3", "http://a.test/1"}) host.Order(url, kPage);
  host.Take();
  host.recordQuestions = true;
  host.fetchAnswer = 0;  // nobody looks
  EXPECT_EQ(host.Sent<StartDelayedFetches>(),
            "D Process Delayed Fetch: http://a.test/1\n"
            "Fetch http://a.test/1 context 0\n"
            "D Process Delayed Fetch: http://a.test/3\n"
            "Fetch http://a.test/3 context 0\n"
            "D Process Delayed Fetch: http://a.test/high\n"
            "Fetch http://a.test/high context 0\n");
  EXPECT_EQ(host.Sent<StartDelayedFetches>(), "") << "they are pending now, and none is delayed";
}

}  // namespace
}  // namespace tests
