// Five threads on one library: commands, flushes and ends of fetches on one, the other callbacks on two, the
// network stack's queries on two. They share nothing but the library, so that a sanitizer sees its lock
// alone. KIV_STRESS_OPERATIONS sets how many calls of the library they make in all.
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <random>
#include <thread>

#include "tests/support/scripted_host.h"

namespace tests {
namespace {

constexpr int kUrls = 32;
constexpr size_t kChunk = 100;
constexpr size_t kLoans = 20;  // that a thread holds before it gives them back

int64_t Operations() {
  const char* const text = std::getenv("KIV_STRESS_OPERATIONS");
  return text != nullptr ? std::atoll(text) : 100'000;
}

std::string Url(int index) {
  return "http://h" + std::to_string(index % 4) + ".test/" + std::to_string(index);
}

// The bytes of a URL's body, all alike, so that a body of any length shows whose it is.
char Fill(int index) {
  return static_cast<char>('A' + index);
}

// Read and written relaxed: they order nothing.
std::atomic<int64_t> g_left;  // operations that are still to be made
std::atomic<bool> g_flushing = false;
std::atomic<int64_t> g_flushes = 0;

// How many flushes there had been when the oldest loan of each borrower was made. The second flush after that
// would end the loan, so it waits for its return.
constexpr int64_t kNoLoan = INT64_MAX;
std::atomic<int64_t> g_oldestLoans[2] = {kNoLoan, kNoLoan};

bool GoOn() {
  return g_left.load(std::memory_order_relaxed) > 0;
}

void Made(int64_t operations) {
  g_left.fetch_sub(operations, std::memory_order_relaxed);
}

// While it flushes, the command thread stands aside at every line that it asks to write, in the middle of its
// walk and with the library's lock held.
struct StressHost : ScriptedHost {
  int VerboseLevel() override {
    if (g_flushing.load(std::memory_order_relaxed)) std::this_thread::yield();
    return 0;
  }
};

void Flush(ScriptedHost& host) {
  const int64_t flushes = g_flushes.load(std::memory_order_relaxed);
  for (const auto& oldest : g_oldestLoans) {
    while (oldest.load(std::memory_order_relaxed) < flushes) std::this_thread::yield();
  }
  g_flushing.store(true, std::memory_order_relaxed);
  host.plugin.OnFlushDb(0);
  g_flushing.store(false, std::memory_order_relaxed);
  // Not before: a loan that is made just ahead of this flush must count as one that the flush has met.
  g_flushes.store(flushes + 1, std::memory_order_release);
}

void RunCommands(ScriptedHost& host) {
  std::mt19937 random(1);
  for (int round = 0; GoOn(); ++round) {
    const int index = static_cast<int>(random() % kUrls);
    if (round % 64 == 0) host.Learn(kPage);
    host.Order(Url(index), kPage);
    host.Done(Url(static_cast<int>(random() % kUrls)));
    if (round % 8 == 0) host.Send<TransactionStarted>({Url(index), 0, 1});
    if (round % 8 == 4) host.Send<TransactionDone>({Url(index), 1});
    if (round % 200 == 99) Flush(host);
    if (round % 1000 == 500) host.Send<StartDelayedFetches>();
    if (round % 1000 == 999) host.plugin.OnClearDb(0);
    host.Take();
    Made(2);
    std::this_thread::yield();
  }
}

void RunCallbacks(ScriptedHost& host, unsigned seed) {
  const std::string headers = RawHeaders({"HTTP/1.1 200 OK", "Content-Length: 250"});
  std::mt19937 random(seed);
  while (GoOn()) {
    const int index = static_cast<int>(random() % kUrls);
    if (host.RequestInfo(Url(index)) != nullptr) {
      host.StartComplete(Url(index), headers);
      for (int chunk = 0; chunk < 3; ++chunk) host.Read(Url(index), std::string(kChunk, Fill(index)));
      Made(4);
    }
    Made(1);
    for (int pause = 0; pause < 20; ++pause)
      std::this_thread::yield();  // leave what is finished alone for a while
  }
}

std::atomic<int64_t> g_bodies = 0;       // that were checked
std::atomic<int64_t> g_duringFlush = 0;  // of these

void Check(int index, const Answer& answer) {
  const std::string body = answer.body();
  EXPECT_EQ(body.find_first_not_of(Fill(index)), std::string::npos) << Url(index);
  EXPECT_EQ(body.size() % kChunk, 0u) << Url(index);
  g_bodies.fetch_add(1, std::memory_order_relaxed);
  if (g_flushing.load(std::memory_order_relaxed)) g_duringFlush.fetch_add(1, std::memory_order_relaxed);
}

// Borrows bodies, keeps them while the other threads remove and replace them, and gives them back.
void Borrow(ScriptedHost& host, std::atomic<int64_t>& oldestLoan, unsigned seed) {
  std::mt19937 random(seed);
  std::vector<std::pair<int, Answer>> lent;
  for (bool last = false; !last;) {
    last = !GoOn();
    const int index = static_cast<int>(random() % kUrls);
    const int64_t flushes = g_flushes.load(std::memory_order_relaxed);
    if (lent.empty()) oldestLoan.store(flushes, std::memory_order_relaxed);
    const Answer asked = host.Ask(Url(index));
    if (asked.result == 1) {
      lent.emplace_back(index, asked);
    } else if (random() % 16 == 0) {
      host.plugin.IsInDC(Url(index).c_str());
    }
    EXPECT_EQ(host.plugin.IsPreloaderEnabled(), 1);
    Made(2);
    const bool isOld = oldestLoan.load(std::memory_order_relaxed) < flushes;
    const bool giveBack = last || isOld || lent.size() >= kLoans;
    if (giveBack || g_flushing.load(std::memory_order_relaxed)) {
      for (const auto& [of, answer] : lent) Check(of, answer);
    }
    if (giveBack) {
      for (const auto& loan : lent) host.plugin.ReleasePreloaded(Url(loan.first).c_str());
      Made(static_cast<int64_t>(lent.size()));
      lent.clear();
    }
    if (lent.empty()) oldestLoan.store(kNoLoan, std::memory_order_relaxed);
    std::this_thread::yield();
  }
}
TEST(ThreadsTest, CommandsCallbacksAndQueriesShareTheLibrary) {
  const int64_t operations = Operations();
  g_left = operations;
  StressHost host;
  host.Start({{"prlimit", "-1"}});  // flushes leave slots taken, which must not end the launches
  std::thread threads[] = {
      std::thread(RunCallbacks, std::ref(host), 2),
      std::thread(RunCallbacks, std::ref(host), 3),
      std::thread(Borrow, std::ref(host), std::ref(g_oldestLoans[0]), 4),
      std::thread(Borrow, std::ref(host), std::ref(g_oldestLoans[1]), 5),
  };
  RunCommands(host);
  for (std::thread& thread : threads) thread.join();
  std::printf("operations %lld, bodies checked %lld, while a flush ran %lld\n",
              static_cast<long long>(operations - g_left), static_cast<long long>(g_bodies),
              static_cast<long long>(g_duringFlush));
  EXPECT_GT(g_bodies, operations / 1000) << "too few to have met the other threads";
  EXPECT_GT(g_duringFlush, 0);
}

}  // namespace
}  // namespace tests
