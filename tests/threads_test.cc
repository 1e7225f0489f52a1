// Three threads on one library: commands, flushes and ends of fetches on one, the other callbacks on the
// second, the network stack's queries on the third. They share nothing but the library, so that a sanitizer
// sees its lock alone.
#include <atomic>
#include <random>
#include <thread>

#include "tests/scripted_host.h"

namespace tests {
namespace {

constexpr int kUrls = 32;
constexpr int kRounds = 80'000;  // of commands; the other threads go on until they are through
constexpr size_t kChunk = 100;

std::string Url(int index) {
  return "http://h" + std::to_string(index % 4) + ".test/" + std::to_string(index);
}

// The bytes of a URL's body, all alike, so that a body of any length shows whose it is.
char Fill(int index) {
  return static_cast<char>('A' + index);
}

std::atomic<bool> g_through = false;  // read and written relaxed: it orders nothing

bool GoOn() {
  return !g_through.load(std::memory_order_relaxed);
}

void RunCommands(ScriptedHost& host) {
  std::mt19937 random(1);
  for (int round = 0; round < kRounds; ++round) {
    const int index = static_cast<int>(random() % kUrls);
    if (round % 64 == 0) host.Learn(kPage);
    host.Order(Url(index), kPage);
    host.Done(Url(static_cast<int>(random() % kUrls)));
    if (round % 8 == 0) host.Send(9, 1, {Url(index), 0, 1});
    if (round % 8 == 4) host.Send(9, 4, {Url(index), 1});
    if (round % 500 == 99) host.plugin.OnFlushDb(0);
    if (round % 1000 == 500) host.Send(8, 20);
    if (round % 1000 == 999) host.plugin.OnClearDb(0);
    host.Take();
    std::this_thread::yield();
  }
}

void RunCallbacks(ScriptedHost& host) {
  const std::string headers = RawHeaders({"HTTP/1.1 200 OK", "Content-Length: 250"});
  std::mt19937 random(2);
  while (GoOn()) {
    const int index = static_cast<int>(random() % kUrls);
    if (host.RequestInfo(Url(index)) != nullptr) {
      host.StartComplete(Url(index), headers);
      for (int chunk = 0; chunk < 3; ++chunk) host.Read(Url(index), std::string(kChunk, Fill(index)));
    }
    for (int pause = 0; pause < 20; ++pause)
      std::this_thread::yield();  // leave what is finished alone for a while
  }
}

// Borrows bodies, keeps them while the other threads remove and replace them, and gives them back. How many
// there were.
int RunQueries(ScriptedHost& host) {
  std::mt19937 random(3);
  int served = 0;
  std::vector<std::pair<int, Answer>> lent;
  const auto giveBack = [&] {
    for (const auto& [index, answer] : lent) {
      const std::string body = answer.body();
      EXPECT_EQ(body.find_first_not_of(Fill(index)), std::string::npos) << Url(index);
      EXPECT_EQ(body.size() % kChunk, 0u) << Url(index);
      host.plugin.ReleasePreloaded(Url(index).c_str());
    }
    lent.clear();
  };
  while (GoOn()) {
    const int index = static_cast<int>(random() % kUrls);
    const Answer answer = host.Ask(Url(index));
    if (answer.result == 1) {
      ++served;
      lent.emplace_back(index, answer);
    } else if (random() % 16 == 0) {
      host.plugin.IsInDC(Url(index).c_str());
    }
    if (lent.size() == 20) giveBack();
    EXPECT_EQ(host.plugin.IsPreloaderEnabled(), 1);
    std::this_thread::yield();
  }
  giveBack();
  return served;
}

TEST(ThreadsTest, CommandsCallbacksAndQueriesShareTheLibrary) {
  ScriptedHost host;
  host.Start({{"prlimit", "-1"}});  // flushes leave slots taken, which must not end the launches
  host.verbosity = 0;
  int served = 0;
  std::thread callbacks([&] { RunCallbacks(host); });
  std::thread queries([&] { served = RunQueries(host); });
  RunCommands(host);
  g_through.store(true, std::memory_order_relaxed);
  callbacks.join();
  queries.join();
  EXPECT_GT(served, kRounds / 100) << "too few to have met the other threads";
  RecordProperty("served", served);
}

}  // namespace
}  // namespace tests
