// The queues of the hosts and the pass that empties them: order, slots, limits, and what a request is
// launched with.
#include "tests/scripted_host.h"

namespace tests {
namespace {

using PreloadSchedulingTest = PluginTest;

TEST_F(PreloadSchedulingTest, HostsAreVisitedInByteOrderOfTheirKeys) {
  host.Start();
  host.verbosity = 3;
  host.maxSockets = 1;  // no host is dropped
  for (const char* url :
       {"http://\xC3\xA9.test/", "http://b.test:1/", "http://a.test:8080/", "http://a.test/",
        "https://A.TEST/", "http://a.test:8/", "data:no-host", "http://z.test/", "also no host"}) {
    host.Send(9, 1, {url, 0, 1});
  }
  host.recordQuestions = true;
  host.Take();
  host.Send(8, 4);
  std::string expected;
  for (const char* key : {"", "a.test:443", "a.test:8", "a.test:80", "a.test:8080", "b.test:1", "z.test:80",
                          "\xC3\xA9.test:80"}) {
    expected += std::string("I Check Preload (") + key + ") - Active:1, In Preload Queue:0\nMaxSockets\n";
  }
  EXPECT_EQ(host.Take(), expected);
}

TEST_F(PreloadSchedulingTest, RequestsLeaveByPriorityThenByAge) {
  host.Start({{"prlimit", "99"}});
  host.Learn(kPage);
  host.maxSockets = 1;
  const auto order = [&](const char* name, uint32_t priority) {
    host.Order(std::string("http://a.test/") + name, kPage, priority);
  };
  order("512-first", 512);
  order("largest", 0xFFFFFFFF);
  order("512-second", 512);
  order("100", 100);
  order("halfway", 0x80000000);  // a negative number to those who read it with a sign
  host.Take();
  host.verbosity = 0;
  host.maxSockets = 3;
  host.Send(8, 4);
  EXPECT_EQ(host.Take(), "Fetch http://a.test/100 context 0\nFetch http://a.test/512-first context 0\n");
  host.maxSockets = 1;
  order("512-third", 512);  // after a sort, the queue is sorted again
  order("0", 0);
  host.maxSockets = 99;
  host.Send(8, 4);
  EXPECT_EQ(host.Take(),
            "Fetch http://a.test/0 context 0\n"
            "Fetch http://a.test/512-second context 0\n"
            "Fetch http://a.test/512-third context 0\n"
            "Fetch http://a.test/halfway context 0\n"
            "Fetch http://a.test/largest context 0\n");
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
      {6, 0, 0, 9, 9, 6, "none is kept idle"},
      {6, 1, 0, 9, 3, 3, "the limit is lower than the slots"},
      {6, 1, 0, 9, 0, 0, "a limit of nothing"},
      {6, 1, 0, 9, -1, 5, "a negative limit stops nobody"},
      {6, 6, 0, 1, 5, 0, "all are kept idle"},
      {6, 7, 0, 9, 99, 9, "one more idle than there are wraps to very many"},
      {6, 7, 2, 9, 99, 9, "also with transactions"},
      {2, -1, 0, 9, 9, 3, "a negative idle count adds"},
      {-1, 0, 0, 9, 99, 9, "a negative group wraps"},
      {0, 0, 0, 1, 5, 0, "no sockets"},
      {6, 1, 0, 2, 5, 2, "the queue ends first"},
  };
  for (const auto& row : rows) {
    ScriptedHost host;
    host.Start({{"idlesock", std::to_string(row.idle)}, {"prlimit", std::to_string(row.limit)}});
    host.verbosity = 0;
    host.Learn(kPage);
    host.maxSockets = row.idle;  // nothing is free while the queue fills
    for (int i = 0; i < row.transactions; ++i) host.Send(9, 1, {"http://a.test/own", 0, i});
    for (int i = 0; i < row.queued; ++i) host.Order("http://a.test/" + std::to_string(i), kPage);
    EXPECT_EQ(host.Take(), "") << row.why;
    host.maxSockets = row.sockets;
    host.Send(8, 4);
    std::string expected;
    for (int i = 0; i < row.launched; ++i)
      expected += "Fetch http://a.test/" + std::to_string(i) + " context 0\n";
    EXPECT_EQ(host.Take(), expected) << row.why;
  }
}

TEST_F(PreloadSchedulingTest, FinishedPreloadsMakeRoomUnderTheLimit) {
  host.Start({{"prlimit", "2"}});
  host.Learn(kPage);
  for (const char* name : {"1", "2", "3", "4"}) host.Order(std::string("http://a.test/") + name, kPage);
  host.verbosity = 0;
  host.Take();
  host.Send(8, 4);
  EXPECT_EQ(host.Take(), "") << "two are in flight";
  EXPECT_EQ(host.Done("http://a.test/2", -1), 1);
  EXPECT_EQ(host.Take(), "") << "the end of a preload launches nothing by itself";
  host.Send(8, 4);
  EXPECT_EQ(host.Take(), "Fetch http://a.test/3 context 0\n");
  // A host that is dropped with preloads in flight forgets them: their ends find nobody to tell.
  host.Send(9, 1, {"http://a.test/4", 0, 1});
  host.Send(9, 4, {"http://a.test/4", 1});
  for (const char* name : {"5", "6"}) host.Order(std::string("http://a.test/") + name, kPage);
  EXPECT_EQ(host.Take(), "Fetch http://a.test/5 context 0\nFetch http://a.test/6 context 0\n");
}

TEST_F(PreloadSchedulingTest, WhatIsNotLaunchedCostsNoSlotAndIsNotQueuedAgain) {
  host.Start();
  host.Learn(kPage);
  host.Send(3, 9, {"http://no-context.test/", "GET"});
  host.maxSockets = 1;
  host.Send(8, 21, {1, "http://a.test/no-page", 0, 0, "A: b\r\n\r\n"});
  host.Order("http://a.test/page-unknown", "http://unknown.test/", 2);
  host.Order("http://a.test/page-without-context", "http://no-context.test/", 3);
  host.Order("http://a.test/first", kPage, 4);
  host.Order("http://a.test/second", kPage, 5);
  host.Take();
  host.maxSockets = 2;  // one slot
  host.Send(8, 4);
  EXPECT_EQ(host.Take(),
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
    const char* fetched;
    const char* why;
  } rows[] = {
      // two slots each
      {{"1", "2", "3"}, 1, "12", "started"},
      {{"1", "2", "3"}, -1, "12", "anything but 0 is started"},
      {{"1", "2", "3"}, 0, "123", "refused: no slot, and the pass goes on"},
      {{"1", "1", "2"}, 1, "1", "what is in the cache uses a slot"},
      {{"1", "1", "1", "2"}, 0, "1", "a refused one stays in the cache, and uses slots from then on"},
  };
  for (const auto& row : rows) {
    ScriptedHost host;
    host.Start();
    host.verbosity = 0;
    host.Learn(kPage);
    host.maxSockets = 1;
    for (const char* name : row.queued) host.Order(std::string("http://a.test/") + name, kPage);
    host.fetchAnswer = row.answer;
    host.maxSockets = 3;
    host.Send(8, 4);
    std::string expected;
    for (const char* name = row.fetched; *name != '\0'; ++name) {
      expected += std::string("Fetch http://a.test/") + *name + " context 0\n";
    }
    EXPECT_EQ(host.Take(), expected) << row.why;
  }
}

TEST_F(PreloadSchedulingTest, AResourceIsFetchedWithItsPagesContextAndHeadersAndItsOwnFlags) {
  host.Start();
  host.Send(3, 9, {"http://one.test/", "GET"});
  host.Send(3, 9, {"http://two.test/", "GET"});
  host.Send(8, 1, {"http://one.test/", "X-Requested-With: one\r\n\r\n", 0, &host.contexts[1]});
  host.Send(8, 1, {"http://two.test/", "X-Requested-With: two\r\n\r\n", 0, &host.contexts[2]});
  host.verbosity = 0;
  host.Take();
  host.Send(8, 21, {512, "http://a.test/1", host.Hash("http://one.test/"), 0x801234, "Ignored: yes\r\n\r\n"});
  host.Send(8, 21, {512, "http://a.test/2", host.Hash("http://two.test/"), 0x80000001});
  EXPECT_EQ(host.Take(), "Fetch http://a.test/1 context 1\nFetch http://a.test/2 context 2\n");
  const auto first = host.RequestInfo("http://a.test/1");
  const auto second = host.RequestInfo("http://a.test/2");
  EXPECT_EQ(first->extra_headers.ToString(), "Accept: */*\r\nX-Requested-With: one\r\n\r\n");
  EXPECT_EQ(second->extra_headers.ToString(), "Accept: */*\r\nX-Requested-With: two\r\n\r\n");
  EXPECT_EQ(first->load_flags, 0x801234);
  EXPECT_EQ(static_cast<uint32_t>(second->load_flags), 0x80000001u);
}

}  // namespace
}  // namespace tests
