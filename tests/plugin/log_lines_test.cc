// The lines that the plugin logs: each one's priority, and the verbosity from which it is written.
#include <climits>
#include <sstream>

#include "tests/support/scripted_host.h"

namespace tests {
namespace {

constexpr const char* kScript = "http://a.test/script.js";

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
TEST(LogLinesTest, EveryLineHasItsPriorityAndItsGate) {
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
