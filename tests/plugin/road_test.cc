// Whole page loads, from the first request to the served body, undisturbed and cut off at every step; and the
// gates of all lines that such a load writes.
#include <climits>
#include <functional>
#include <sstream>

#include "tests/support/scripted_host.h"

namespace tests {
namespace {

using RoadTest = PluginTest;

constexpr const char* kScript = "http://a.test/script.js";

TEST_F(RoadTest, APageLoadLearnsPreloadsAndServes) {
  host.verbosity = 0;
  host.Learn(kPage);
  for (int id = 1; id <= 5; ++id)
    host.Send<TransactionStarted>({"http://a.test/own" + std::to_string(id), 0, id});
  host.Send<ResourceSeen>({kPage, kScript, 0, 0, 1});
  host.Send<ResourceSeen>({kPage, "http://a.test/style.css", 0, 0, 1});
  host.Send<ResourceSeen>({kPage, "http://a.test/image.png", 0, 1, 1});
  host.Send<TransactionStarted>({"http://a.test/style.css", 0, 6});  // the browser is faster
  EXPECT_EQ(host.Take(), "") << "no socket is left";
  host.Send<TransactionDone>({"http://a.test/own1", 1});
  EXPECT_EQ(host.Take(), "") << "still none";
  host.Send<TransactionDone>({"http://a.test/own2", 2});
  EXPECT_EQ(host.Take(), "Fetch http://a.test/script.js context 0\n");
  host.FetchOk(kScript, "script");
  EXPECT_EQ(host.Ask(kScript).body(), "script");
  EXPECT_EQ(host.plugin.ReleasePreloaded(kScript), 1);
  EXPECT_EQ(host.Ask(kScript).result, 0);
  // The disk cache has it now: the next load of the page does not ask for it again.
  host.Send<CacheStatus>({host.Hash(kScript), 1});
  host.plugin.OnFlushDb(0);
  host.Learn(kPage);
  host.Send<ResourceSeen>({kPage, kScript, 0, 0, 1});
  EXPECT_EQ(host.Take(), "");
}

TEST_F(RoadTest, TheBypassCommandComesBackAndEndsInTheQueueUnlessThePageWasSeen) {
  host.Start({{"bypassen", "1"}});
  host.verbosity = 3;
  for (const bool seen : {false, true}) {
    host.Send<PageRequested>({kPage, "GET", "A: b\r\n"});
    host.Send<PageRequested>({kPage, "GET", "A: b\r\n"});
    EXPECT_EQ(host.Take(), "CmdCreate 8 21 0\nCommit 50: 512, http://page.test/, 0, 8388608, A: b\r\n\n");
    if (seen) host.Send<RequestSeen>({kPage, "", 0, &host.contexts[0]});
    EXPECT_EQ(host.DeliverPosted(), 1u);
    EXPECT_EQ(host.Take(), seen ? ""
                                : "I Bypass: http://page.test/\n"
                                  "I Set For Preload (512): http://page.test/ \n"
                                  "I Check Preload (page.test:80) - Active:0, In Preload Queue:1\n"
                                  "I Do Preload - http://page.test/\n"
                                  "I Skip URL with undefined context http://page.test/\n");
    host.plugin.OnClearDb(0);
    host.Take();
  }
}

// A preload goes through its steps, and between two of them something takes it away, or does not.
TEST(RoadWithOwnHost, APreloadCanBeCutOffAnywhereAndRunAgain) {
  const struct {
    const char* name;
    std::function<void(ScriptedHost&)> cut;
    bool removesUnfinished, removesFinished;
  } rows[] = {
      {"flush", [](ScriptedHost& host) { host.plugin.OnFlushDb(0); }, true, true},
      {"release", [](ScriptedHost& host) { host.plugin.ReleasePreloaded(kScript); }, true, true},
      {"disk cache", [](ScriptedHost& host) { host.plugin.IsInDC(kScript); }, false, true},
      {"clear", [](ScriptedHost& host) { host.plugin.OnClearDb(0); }, false, false},
      {"pass", [](ScriptedHost& host) { host.Send<CheckPreloads>(); }, false, false},
      {"delayed fetches", [](ScriptedHost& host) { host.Send<StartDelayedFetches>(); }, false, false},
  };
  const std::function<void(ScriptedHost&)> steps[] = {
      [](ScriptedHost& host) { host.Order(kScript, kPage); },
      [](ScriptedHost& host) { host.RequestInfo(kScript); },
      [](ScriptedHost& host) { host.StartComplete(kScript, OkHeaders(6)); },
      [](ScriptedHost& host) { host.Read(kScript, "scr"); },
      [](ScriptedHost& host) { host.Read(kScript, "ipt"); },
      [](ScriptedHost& host) { host.Done(kScript); },
  };
  for (const bool delayed : {false, true}) {
    for (const auto& row : rows) {
      for (size_t cutAfter = 0; cutAfter < std::size(steps); ++cutAfter) {
        ScriptedHost host;
        host.Start();
        host.hasLoop = !delayed;
        host.Learn(kPage);
        for (size_t step = 0; step < std::size(steps); ++step) {
          steps[step](host);
          if (delayed && step == 0) host.Send<StartDelayedFetches>();
          if (step == cutAfter) row.cut(host);
        }
        const bool removed = cutAfter + 1 == std::size(steps) ? row.removesFinished : row.removesUnfinished;
        EXPECT_EQ(host.Ask(kScript).body(), removed ? "" : "script")
            << row.name << " after step " << cutAfter;
        host.plugin.OnFlushDb(0);
        host.plugin.OnClearDb(0);
        host.hasLoop = true;
        host.Launch(kScript);
        host.FetchOk(kScript, "again");
        EXPECT_EQ(host.Ask(kScript).body(), "again") << row.name << " after step " << cutAfter;
      }
    }
  }
}

// Every line that can be reached, once or more.
std::string WriteEveryLine(ScriptedHost& host) {
  const std::string other = "http://a.test/other";
  host.Send<PageRequested>({kPage, "POST"});
  host.Learn(kPage);
  host.Send<PageRequested>({"http://plain.test/", "GET"});
  host.Send<TransactionStarted>({other, 0, 1});
  host.Send<ResourceSeen>({kPage, kScript, 0, 0, 1});
  host.Order(kScript, kPage);
  host.Send<OrderPreload>({1, "http://plain.test/", 0, 0, "A: b"});
  host.Send<OrderPreload>({1, other, 0, 0});
  host.hasLoop = false;
  host.Order(other, kPage);
  host.Send<StartDelayedFetches>();
  host.hasLoop = true;
  host.FetchOk(kScript, "script");
  host.Ask(kScript);
  host.plugin.ReleasePreloaded(kScript);
  host.FetchOk(other, "other", {"Content-Type: text/html"});
  for (int i = 0; i < 2; ++i) host.Done(other);
  host.Ask(other);
  host.plugin.IsInDC(other.c_str());
  host.RequestInfo(other);
  host.StartComplete(other, RawHeaders({}));
  host.Read(other, "x");
  host.Done(other);
  host.Send<CacheStatus>({host.Hash(kPage), 1});
  host.Order("http://a.test/stuck", kPage);
  host.Send<TransactionDone>({other, 1});
  host.plugin.OnFlushDb(0);
  host.plugin.OnClearDb(0);
  return host.Take();
}

// Without the log lines whose letter is among those shut.
std::string Filter(const std::string& record, const std::string& shut) {
  std::string kept;
  std::istringstream lines(record);
  for (std::string line; std::getline(lines, line);) {
    if (line[1] != ' ' || shut.find(line[0]) == std::string::npos) kept += line + "\n";
  }
  return kept;
}
TEST(RoadWithOwnHost, EveryLineHasItsPriorityAndItsGate) {
  const auto recordAt = [](int verbosity) {
    ScriptedHost host;
    host.Start();
    host.verbosity = verbosity;
    return WriteEveryLine(host);
  };
  const std::string all = recordAt(4);
  // clang-format off
  for (const char* line : {
           "D Main URL: ", "D Not GET method: ", "I Delayed preload : ", "D Start NET trans (", "D NET trans (",
           "I Set For Preload (", "I Check Preload (", "I Do Preload - ", "I Skip URL with undefined context ",
           "D URL is already in KIV cache ", "D Delayed Fetch: ", "D Process Delayed Fetch: ",
           "W No Prefetch Headers or Context: ", "I Bypass: ", "I Prefetch: ", "D Fetch Request Info - bad cookie.\n",
           "D Fetch Start Complete - bad cookie.\n", "D Fetch Read Complete - bad cookie.\n",
           "D Fetch Done - bad cookie.\n",
           "W Unbalanced preloading: ", "W ignoring HTML resource: ", "D Get preloaded URL: ",
           "D Release preloaded URL: ", "D URL preloaded to DC: ", "D Set Cache Status: ",
           "D Add to Cache Reflector: ", "I Remove from cached list: ", "I OnFlushDb - HostMap Size: ",
           "I OnFlushDb - Stuck preload: ", "D Clean URL cache done (", "I OnClearDb\n"}) {
    // clang-format on
    EXPECT_NE(("\n" + all).find(std::string("\n") + line), std::string::npos) << line;
  }
  const struct {
    int verbosity;
    const char* shut;
  } rows[] = {{INT_MIN, "DI"}, {2, "DI"}, {3, "D"}, {INT_MAX, ""}};
  for (const auto& row : rows) EXPECT_EQ(recordAt(row.verbosity), Filter(all, row.shut)) << row.verbosity;
}

}  // namespace
}  // namespace tests
