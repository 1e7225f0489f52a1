// The queries of the network stack: what is served, what is refused, and how long a lent body can be read.
#include <functional>

#include "tests/support/scripted_host.h"

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/asan_interface.h>
#endif

namespace tests {
namespace {

using ServingTest = PluginTest;

// That bytes once lent are still allocated, or are not any more; only the address sanitizer can tell.
void ExpectReadable([[maybe_unused]] const Answer& lent, [[maybe_unused]] bool readable) {
#ifdef __SANITIZE_ADDRESS__
  const bool freed = __asan_region_is_poisoned(const_cast<char*>(lent.bytes), size_t(lent.length)) != nullptr;
  EXPECT_NE(freed, readable);
#endif
}

TEST_F(ServingTest, AHeldResponseIsServedUntilItIsReleasedOrReportedAsInTheDiskCache) {
  host.Preload(kUrl, std::string("b\0dy", 4), {"Content-Type: image/png"});
  for (int i = 0; i < 2; ++i) {
    const Answer answer = host.Ask(kUrl);
    EXPECT_EQ(answer.result, 1);
    EXPECT_EQ(answer.headers,
              RawHeaders({"HTTP/1.1 200 OK", "Content-Type: image/png", "Content-Length: 4"}));
    EXPECT_EQ(answer.body(), std::string("b\0dy", 4));
  }
  EXPECT_EQ(host.plugin.ReleasePreloaded(kUrl), 1);
  EXPECT_EQ(host.plugin.ReleasePreloaded(kUrl), 0);
  EXPECT_EQ(host.Ask(kUrl).result, 0);
  EXPECT_EQ(host.Take(),
            "D Get preloaded URL: http://a.test/1 (4)\n"
            "D Get preloaded URL: http://a.test/1 (4)\n"
            "D Release preloaded URL: http://a.test/1\n");
  host.Preload(kUrl, "body");
  EXPECT_EQ(host.plugin.IsInDC("http://a.test/other"), 0);
  EXPECT_EQ(host.plugin.IsInDC(kUrl), 1);
  EXPECT_EQ(host.plugin.IsInDC(kUrl), 0);
  EXPECT_EQ(host.Ask(kUrl).result, 0);
  EXPECT_EQ(host.Take(), "D URL preloaded to DC: http://a.test/1\n");
}

TEST_F(ServingTest, WhatIsNotCompleteIsNotServedButCanBeReleased) {
  enum { kPending, kDelayed, kRunning, kRunningAgain, kFailed };
  host.Learn(kPage);
  for (const int state : {kPending, kDelayed, kRunning, kRunningAgain, kFailed}) {
    SCOPED_TRACE(state);
    host.hasLoop = state != kDelayed;
    host.Order(kUrl, kPage);
    if (state == kRunning) {
      host.RequestInfo(kUrl);
      host.StartComplete(kUrl, OkHeaders(4));
      host.Read(kUrl, "body");
    }
    if (state == kRunningAgain) {
      host.FetchOk(kUrl, "body");
      host.RequestInfo(kUrl);
    }
    if (state == kFailed) host.Done(kUrl, -1);
    host.Take();
    EXPECT_EQ(host.Ask(kUrl).result, 0);
    EXPECT_EQ(host.Ask(kUrl).headers, "untouched");
    EXPECT_EQ(host.plugin.IsInDC(kUrl), 0);
    EXPECT_EQ(host.Take(), "");
    EXPECT_EQ(host.plugin.ReleasePreloaded(kUrl), 1);
    EXPECT_EQ(host.Read(kUrl, "late") + host.Done(kUrl), 0);
    EXPECT_EQ(host.Take(),
              "D Release preloaded URL: http://a.test/1\n"
              "D Fetch Read Complete - bad cookie.\n"
              "D Fetch Done - bad cookie.\n");
  }
}
TEST_F(ServingTest, AResponseThatMentionsHtmlIsRefusedAfterItsHeadersWereCopied) {
  const struct {
    const char* header;
    bool refused;
  } rows[] = {
      {"Content-Type: text/html; charset=utf-8", true},
      {"X-Anything: mentions text/html somewhere", true},
      {"X-text/html: in the name", true},
      {"Content-Type: TEXT/HTML", false},
      {"Content-Type: text /html", false},
  };
  host.verbosity = 0;
  for (const auto& row : rows) {
    host.Preload(kUrl, "body", {row.header});
    const Answer answer = host.Ask(kUrl);
    EXPECT_EQ(answer.result, row.refused ? 0 : 1) << row.header;
    EXPECT_EQ(answer.headers, RawHeaders({"HTTP/1.1 200 OK", row.header, "Content-Length: 4"}));
    EXPECT_EQ(host.Take(), row.refused ? "W ignoring HTML resource: http://a.test/1\n" : "") << row.header;
    EXPECT_EQ(answer.bytes == nullptr, row.refused);
    EXPECT_EQ(answer.length, row.refused ? -1 : 4);
    EXPECT_EQ(host.plugin.IsInDC(kUrl), 1) << "held all the same";
  }
}

TEST_F(ServingTest, TheSwitchesAndTheLimitAreAskedAnew) {
  for (const char* url : {kUrl, "http://a.test/2"}) host.Preload(url, "body");
  host.Start({{"cslimit", "3"}});
  EXPECT_EQ(host.Ask(kUrl).result, 0) << "four bytes were declared";
  EXPECT_EQ(host.Ask(kUrl).headers, "untouched");
  host.Start({{"cslimit", "4"}, {"cacheen", "0"}});
  EXPECT_EQ(host.Ask(kUrl).result, 0);
  EXPECT_EQ(host.plugin.ReleasePreloaded(kUrl), 0);
  EXPECT_EQ(host.plugin.IsInDC("http://a.test/2"), 1) << "the one that does not ask for the switch";
  host.Start({{"cacheen", "1"}});
  EXPECT_EQ(host.Ask(kUrl).body(), "body");
}

// A lent body survives whatever removes or replaces it, until its loan comes back.
TEST_F(ServingTest, ALentBodyStaysReadableUntilItsLastLoanIsReturned) {
  const auto grow = [&] { host.Read(kUrl, std::string(100, 'l')); };
  const auto flush = [&] { host.plugin.OnFlushDb(0); };
  const struct {
    const char* removal;
    std::function<void()> remove;
  } rows[] = {
      // clang-format off
      {"a flush", flush},
      {"a report of the disk cache", [&] { host.plugin.IsInDC(kUrl); }},
      {"growth, twice", [&] { grow(), grow(); }},
      {"growth, twice, and a flush", [&] { grow(), grow(), flush(); }},
      {"a flush and a new preload of the URL", [&] { flush(), host.Preload(kUrl, "other"); }},
      // clang-format on
  };
  for (const auto& row : rows) {
    host.plugin.ReleasePreloaded(kUrl);
    host.Preload(kUrl, "body");
    const Answer first = host.Ask(kUrl);
    const Answer second = host.Ask(kUrl);
    row.remove();
    EXPECT_EQ(first.body(), "body") << row.removal;
    host.plugin.ReleasePreloaded(kUrl);
    ExpectReadable(first, true);
    EXPECT_EQ(second.body(), "body") << row.removal << ", one loan is out";
    host.plugin.ReleasePreloaded(kUrl);
    ExpectReadable(first, false);
  }
}

// A host that loses a loan, or leaves removal to the flush, loses the body at the second flush after the one
// that has removed it, or after another removal.
TEST_F(ServingTest, TheSecondFlushEndsALoanThatWasNotReturned) {
  const auto flush = [&] { host.plugin.OnFlushDb(0); };
  const std::function<void()> removals[] = {
      flush,
      [&] { host.plugin.IsInDC(kUrl); },
      [&] { host.Ask(kUrl), host.plugin.ReleasePreloaded(kUrl); },
      [&] { host.Read(kUrl, std::string(100, 'l')); },
  };
  for (const auto& remove : removals) {
    host.Preload(kUrl, "body");
    const Answer lent = host.Ask(kUrl);
    remove();
    flush();
    EXPECT_EQ(lent.body(), "body") << "the flush that surprises the reader";
    host.Preload(kUrl, "next");
    EXPECT_EQ(host.Ask(kUrl).body(), "next");
    flush();
    ExpectReadable(lent, false);
    flush(), flush();
  }
}

TEST_F(ServingTest, AReleaseReturnsOneLoanAndRemovesTheNewPreloadOfItsUrlToo) {
  host.Preload(kUrl, "old");
  const Answer old = host.Ask(kUrl);
  EXPECT_EQ(host.plugin.IsInDC(kUrl), 1);
  EXPECT_EQ(host.plugin.ReleasePreloaded("http://a.test/other"), 0);
  EXPECT_EQ(old.body(), "old") << "another URL returns nothing of this one";
  host.Preload(kUrl, "young");
  const Answer young = host.Ask(kUrl);
  EXPECT_EQ(host.plugin.ReleasePreloaded(kUrl), 1);
  EXPECT_EQ(old.body() + young.body(), "oldyoung") << "which of the two came back is not known: both stay";
  EXPECT_EQ(host.Ask(kUrl).result, 0);
  EXPECT_EQ(host.plugin.ReleasePreloaded(kUrl), 0) << "a loan, but no preload";
  ExpectReadable(old, false);
  ExpectReadable(young, false);
}

}  // namespace
}  // namespace tests
