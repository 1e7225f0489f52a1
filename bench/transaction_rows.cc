// The browser's own transactions: one starts, one is done (which walks all hosts that are open).
#include <string>
#include <vector>

#include "bench/host_floor.h"
#include "bench/plugin_driver.h"
#include "bench/rows.h"
#include "bench/urls.h"

namespace bench {
namespace {

constexpr size_t kTransactions = 64;  // per batch
constexpr uint32_t kFirstId = 1'000'000;

struct Size {
  size_t hosts;
  const char* name;
};
constexpr Size kSizes[] = {{1, "1 host"}, {100, "100 hosts"}, {10'000, "10 k hosts"}};

// Hosts kept open by one transaction each, by turns on both sides, and URLs for more transactions to them.
class OpenHosts {
 public:
  explicit OpenHosts(size_t count)
      : urls_(MakeUrls("page", 8 * std::max(count, kTransactions), count)),
        forPlugin_(urls_.size(), 1),
        forFloor_(urls_.size(), 2) {
    EmptyPlugin();
    const std::vector<std::string> keepers = MakeUrls("keeper", count, count);
    for (const std::string& url : keepers) {
      start_.SendFor(url.c_str(), 1);
      hosts_[KeyOf(url)].transactions[1].url = url;
    }
  }

  void DrawForPlugin() { Draw(forPlugin_); }
  void DrawForFloor() { Draw(forFloor_); }

  void Start() {
    uint32_t id = kFirstId;
    for (const char* const url : batch_) start_.SendFor(url, id++);
  }
  void Finish() {
    uint32_t id = kFirstId;
    for (const char* const url : batch_) {
      Send(done_.Lend(TransactionDone::kUrl, url).Set(TransactionDone::kTransactionId, id++));
    }
  }

  void StartInFloor() {
    uint32_t id = kFirstId;
    for (const char* const url : batch_) {
      benchmark::DoNotOptimize(CorvaneHash(url));
      KnownUrl transaction = {.url = url};
      HostRecord& host = hosts_[KeyOf(transaction.url)];
      host.transactions.try_emplace(id++, std::move(transaction));
    }
  }
  void FinishInFloor() {
    uint32_t id = kFirstId;
    for (const char* const url : batch_) {
      const auto host = hosts_.find(KeyOf(url));
      if (host != hosts_.end()) host->second.transactions.erase(id++);
      BareWalk(hosts_);
    }
  }

 private:
  void Draw(RandomWalk& walk) {
    batch_.clear();
    for (const uint32_t place : walk.Draw(kTransactions)) batch_.push_back(urls_[place].c_str());
  }

  std::vector<std::string> urls_;
  RandomWalk forPlugin_;
  RandomWalk forFloor_;
  std::vector<const char*> batch_;
  Hosts hosts_;
  TransactionStart start_;
  corvane::Command done_{TransactionDone::kId};
};

void Starts(benchmark::State& state, size_t count) {
  OpenHosts hosts(count);
  const auto operation = [&] {
    hosts.DrawForPlugin();
    const double spent = Nanoseconds([&] { hosts.Start(); });
    hosts.Finish();
    return spent / kTransactions;
  };
  const auto floor = [&] {
    hosts.DrawForFloor();
    const double spent = Nanoseconds([&] { hosts.StartInFloor(); });
    hosts.FinishInFloor();
    return spent / kTransactions;
  };
  RunRounds(state, operation, floor);
}

void Dones(benchmark::State& state, size_t count) {
  OpenHosts hosts(count);
  const auto operation = [&] {
    hosts.DrawForPlugin();
    hosts.Start();
    return Nanoseconds([&] { hosts.Finish(); }) / kTransactions;
  };
  const auto floor = [&] {
    hosts.DrawForFloor();
    hosts.StartInFloor();
    return Nanoseconds([&] { hosts.FinishInFloor(); }) / kTransactions;
  };
  RunRounds(state, operation, floor);
}

}  // namespace

void AddTransactionRows() {
  for (const Size& size : kSizes) {
    AddRow({"transaction start", size.name, 1.5}, kRounds,
           [size](auto& state) { Starts(state, size.hosts); });
  }
  for (const Size& size : kSizes) {
    AddRow({"transaction done", size.name, 1.5}, kRounds, [size](auto& state) { Dones(state, size.hosts); });
  }
}

}  // namespace bench
