// Command type 9: the browser's own transactions, counted per host.
#include "tests/support/scripted_host.h"

namespace tests {
namespace {

using TransactionTest = PluginTest;

// What a pass finds after some starts and dones, as its own line shows it.
TEST_F(TransactionTest, TransactionsAreCountedByIdAndHost) {
  struct Step {
    kiv::CommandId id;
    Params params;
  };
  constexpr kiv::CommandId kStart = TransactionStarted::kId;
  constexpr kiv::CommandId kDone = TransactionDone::kId;
  const struct {
    std::vector<Step> steps;
    const char* left;  // the key of the one host that still counts one
    const char* why;
  } rows[] = {
      // clang-format off
      {{{kStart, {kUrl, 7, 9}}, {kDone, {kUrl, 9}}}, "", "the id stands third at the start, second at the end"},
      {{{kStart, {kUrl, 7, 9}}, {kDone, {kUrl, 7}}}, "a.test:80", ""},
      {{{kStart, {kUrl, 7}}, {kDone, {kUrl}}}, "", "an absent id is 0"},
      {{{kStart, {kUrl, 0, 1}}, {kStart, {"http://a.test/2", 0, 1}}, {kDone, {kUrl, 1}}}, "", "one id, one record"},
      {{{kStart, {kUrl, 0, 1}}, {kStart, {kUrl, 0, 2}}, {kDone, {"http://a.test/2", 1}}}, "a.test:80", "found by host and id"},
      {{{kStart, {kUrl, 0, 1}}, {kDone, {"http://a.test:81/1", 1}}}, "a.test:80", "another port is another host"},
      {{{kStart, {"http://a.test:8080/", 0, 1}}, {kDone, {kUrl, 1}}}, "a.test:8080", "a key begins another"},
      {{{kStart, {kUrl, 0, 1}}, {kStart, {"http://b.test/", 0, 1}}, {kDone, {kUrl, 1}}}, "b.test:80", "one id, two hosts"},
      {{{kStart, {kUrl, 0, 0xFFFFFFFF}}, {kDone, {kUrl, 0}}}, "a.test:80", ""},
      {{{kStart, {}}, {kDone, {}}, {kStart, {nullptr, 1, 1}}, {kDone, {nullptr, 1, 1}}}, "", "no URL"},
      // clang-format on
  };
  host.verbosity = 3;
  for (const auto& row : rows) {
    for (const Step& step : row.steps) EXPECT_EQ(host.Send(step.id, step.params), 1);
    host.Take();
    const std::string key = row.left;
    EXPECT_EQ(host.Sent<CheckPreloads>(),
              key.empty() ? ""  // the pass of the last end had dropped it
                          : "I Check Preload (" + key + ") - Active:1, In Preload Queue:0\n")
        << row.why;
    host.plugin.OnClearDb(0);
  }
}

TEST_F(TransactionTest, AStartWritesItsLineAndRunsNoPass) {
  host.Learn(kPage);
  host.maxSockets = 1;
  host.Order("http://b.test/waits", kPage);
  host.Take();
  host.maxSockets = 6;
  EXPECT_EQ(host.Sent<TransactionStarted>({kUrl, 0, 0xAB}),
            "D Start NET trans (000000AB): http://a.test/1\n");
  // An end does run one, over all hosts, and for a transaction that nobody knows as well.
  EXPECT_EQ(host.Sent<TransactionDone>({"http://c.test/", 0xFEDCBA98}),
            "D NET trans (FEDCBA98) done: http://c.test/\n"
            "I Check Preload (a.test:80) - Active:1, In Preload Queue:0\n"
            "I Check Preload (b.test:80) - Active:0, In Preload Queue:1\n"
            "I Do Preload - http://b.test/waits\n"
            "D Add to Cache Reflector: http://b.test/waits\n"
            "Fetch http://b.test/waits context 0\n");
}

TEST_F(TransactionTest, AStartDropsTheQueuedPreloadsOfItsUrl) {
  host.Learn(kPage);
  host.maxSockets = 1;
  for (const char* url : {kUrl, "http://a.test/2", kUrl, "http://a.test/3", kUrl}) host.Order(url, kPage);
  host.Send<TransactionStarted>({kUrl, 0, 5});
  host.Take();
  host.verbosity = 3;
  host.maxSockets = 6;
  EXPECT_EQ(host.Sent<CheckPreloads>(),
            "I Check Preload (a.test:80) - Active:1, In Preload Queue:2\n"
            "I Do Preload - http://a.test/2\n"
            "Fetch http://a.test/2 context 0\n"
            "I Do Preload - http://a.test/3\n"
            "Fetch http://a.test/3 context 0\n");
}

TEST_F(TransactionTest, TheEndDropsAnIdleHostOnlyWhenASocketIsFree) {
  host.verbosity = 3;
  host.maxSockets = 1;
  host.Send<TransactionStarted>({kUrl, 0, 1});
  const char* const line = "I Check Preload (a.test:80) - Active:0, In Preload Queue:0\n";
  EXPECT_EQ(host.Sent<TransactionDone>({kUrl, 1}), line);
  host.maxSockets = 2;
  EXPECT_EQ(host.Sent<CheckPreloads>(), line) << "it had stayed";
  EXPECT_EQ(host.Sent<CheckPreloads>(), "");
}

}  // namespace
}  // namespace tests
