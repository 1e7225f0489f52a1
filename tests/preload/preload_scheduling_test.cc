// The queues of the hosts and the pass that empties them: order, slots, limits, and what a request is
// launched with.
#include "tests/support/scripted_host.h"

namespace tests {
namespace {

using PreloadSchedulingTest = PluginTest;

std::string Url(const std::string& name) {
  return "http://a.test/" + name;
}

std::string Fetches(const std::vector<std::string>& names) {
  std::string record;
  for (const std::string& name : names) record += "Fetch " + Url(name) + " context 0\n";
  return record;
}

TEST_F(PreloadSchedulingTest, HostsAreVisitedInByteOrderOfTheirKeys) {
  host.verbosity = 3;
  host.maxSockets = 1;  // no host is dropped
  for (const char* url :
       {"http://\xC3\xA9.test/", "http://b.test:1/", "http://a.test:8080/", "http://a.test/",
        "https://A.TEST/", "http://a.test:8/", "data:no-host", "also no host"}) {
    host.Send<TransactionStarted>({url, 0, 1});
  }
  host.recordQuestions = true;
  host.Take();
  std::string expected;
  for (const char* key :
       {"", "a.test:443", "a.test:8", "a.test:80", "a.test:8080", "b.test:1", "\xC3\xA9.test:80"}) {
    expected += std::string("I Check Preload (") + key + ") - Active:1, In Preload Queue:0\nMaxSockets\n";
  }
  EXPECT_EQ(host.Sent<CheckPreloads>(), expected);
}

TEST_F(PreloadSchedulingTest, RequestsLeaveByPriorityThenByAge) {
  host.Start({{"prlimit", "99"}});
  host.Learn(kPage);
  host.maxSockets = 1;
  const std::pair<const char*, uint32_t> orders[] = {
      {"512-first", 512}, {"largest", 0xFFFFFFFF}, {"512-second", 512}, {"100", 100}, {"high", 0x80000000}};
  for (const auto& [name, priority] : orders) host.Order(Url(name), kPage, priority);
  host.Take();
  host.verbosity = 0;
  host.maxSockets = 3;
  EXPECT_EQ(host.Sent<CheckPreloads>(), Fetches({"100", "512-first"}));
  host.maxSockets = 1;
  host.Order(Url("512-third"), kPage, 512);  // after a sort, the queue is sorted again
  host.Order(Url("0"), kPage, 0);
  host.maxSockets = 99;
  EXPECT_EQ(host.Sent<CheckPreloads>(), Fetches({"0", "512-second", "512-third", "high", "largest"}));
}
TEST(PreloadSchedulingWithOwnHost, APassLaunchesWhatSocketsAndLimitAllow) {
  const struct {
    int sockets, idle, transactions, queued, limit, launched;
    const char* why;
  } rows[] = {
      {6, 1, 0, 9, 5, 5, "the defaults"},
      {6, 1, 3, 4, 5, 2, "three sockets are in use"},
      {6, 1, 4, 4, 5, 1, "one is left"},
      {6, 1, 5, 4, 5, 0, "none is left"},
      {6, 1, 6, 4, 5, 0, "more in use than free"},
      {6, 1, 0, 9, 3, 3, "the limit is lower than the slots"},
      {6, 1, 0, 9, 0, 0, "a limit of nothing"},
      {6, 1, 0, 9, -1, 5, "a negative limit stops nobody"},
      {6, 6, 0, 1, 5, 0, "all are kept idle"},
      {6, 7, 0, 9, 99, 9, "one more idle than there are wraps to very many"},
      {2, -1, 0, 9, 9, 3, "a negative idle count adds"},
      {-1, 0, 0, 9, 99, 9, "a negative group wraps"},
      {6, 1, 0, 2, 5, 2, "the queue ends first"},
  };
  for (const auto& row : rows) {
    ScriptedHost host;
    host.Start({{"idlesock", std::to_string(row.idle)}, {"prlimit", std::to_string(row.limit)}});
    host.verbosity = 0;
    host.Learn(kPage);
    host.maxSockets = row.idle;  // nothing is free while the queue fills
    for (int i = 0; i < row.transactions; ++i) host.Send<TransactionStarted>({"http://a.test/own", 0, i});
    for (int i = 0; i < row.queued; ++i) host.Order(Url(std::to_string(i)), kPage);
    EXPECT_EQ(host.Take(), "") << row.why;
    host.maxSockets = row.sockets;
    std::vector<std::string> launched;
    for (int i = 0; i < row.launched; ++i) launched.push_back(std::to_string(i));
    EXPECT_EQ(host.Sent<CheckPreloads>(), Fetches(launched)) << row.why;
  }
}

TEST_F(PreloadSchedulingTest, WhatIsNotLaunchedCostsNoSlotAndIsNotQueuedAgain) {
  host.Learn(kPage);
  host.Send<PageRequested>({"http://no-context.test/", "GET"});
  host.maxSockets = 1;
  host.Send<OrderPreload>({1, Url("no-page"), 0, 0, "A: b\r\n\r\n"});
  host.Order(Url("page-unknown"), "http://unknown.test/", 2);
  host.Order(Url("page-without-context"), "http://no-context.test/", 3);
  host.Order(Url("first"), kPage, 4);
  host.Order(Url("second"), kPage, 5);
  host.Take();
  host.maxSockets = 2;  // one slot
  EXPECT_EQ(host.Sent<CheckPreloads>(),
            "I Check Preload (a.test:80) - Active:0, In Preload Queue:5\n"
            "I Do Preload - http://a.test/no-page\n"
            "I Skip URL with undefined context http://a.test/no-page\n"
            "I Do Preload - http://a.test/page-unknown\n"
            "D Add to Cache Reflector: http://a.test/page-unknown\n"
            "I Skip URL with undefined context http://a.test/page-unknown\n"
            "I Do Preload - http://a.test/page-without-context\n"
            "D Add to Cache Reflector: http://a.test/page-without-context\n"
            "I Skip URL with undefined context http://a.test/page-without-context\n"
            "I Do Preload - http://a.test/first\n"
            "D Add to Cache Reflector: http://a.test/first\n"
            "Fetch http://a.test/first context 0\n");
}

TEST(PreloadSchedulingWithOwnHost, TheFetchersAnswerAndTheCacheDecideWhatCountsAsLaunched) {
  const struct {
    std::vector<const char*> queued;
    int answer;
    std::vector<std::string> fetched;
    const char* why;
  } rows[] = {
      // two slots each
      {{"1", "2", "3"}, -1, {"1", "2"}, "anything but 0 is started"},
      {{"1", "2", "3"}, 0, {"1", "2", "3"}, "refused: no slot, and the pass goes on"},
      {{"1", "1", "2"}, 1, {"1"}, "what is in the cache uses a slot"},
      {{"1", "1", "1", "2"}, 0, {"1"}, "a refused one stays in the cache, and uses slots from then on"},
  };
  for (const auto& row : rows) {
    ScriptedHost host;
    host.Start();
    host.verbosity = 0;
    host.Learn(kPage);
    host.maxSockets = 1;
    for (const char* name : row.queued) host.Order(Url(name), kPage);
    host.fetchAnswer = row.answer;
    host.maxSockets = 3;
    EXPECT_EQ(host.Sent<CheckPreloads>(), Fetches(row.fetched)) << row.why;
  }
}
TEST_F(PreloadSchedulingTest, AResourceIsFetchedWithItsPagesContextAndHeadersAndItsOwnFlags) {
  const uint32_t flags[] = {0, 0x801234, 0x80000001};
  for (const int i : {1, 2}) {
    const std::string page = "http://" + std::to_string(i) + ".test/";
    host.Send<PageRequested>({page, "GET"});
    host.Send<RequestSeen>({page, "X-Requested-With: " + page + "\r\n\r\n", 0, &host.contexts[i]});
  }
  host.verbosity = 0;
  host.Take();
  for (const int i : {1, 2}) {
    const std::string page = "http://" + std::to_string(i) + ".test/", url = Url(std::to_string(i));
    EXPECT_EQ(host.Sent<OrderPreload>({512, url, host.Hash(page.c_str()), flags[i], "Ignored: yes\r\n\r\n"}),
              "Fetch " + url + " context " + std::to_string(i) + "\n");
    const auto request = host.RequestInfo(url);
    EXPECT_EQ(request->extra_headers.ToString(), "Accept: */*\r\nX-Requested-With: " + page + "\r\n\r\n");
    EXPECT_EQ(static_cast<uint32_t>(request->load_flags), flags[i]);
  }
}
}  // namespace
}  // namespace tests
