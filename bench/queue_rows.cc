// Queued preloads: an order that joins a full queue, and the pass that sorts a queue and launches all of it.
#include <climits>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "bench/host_floor.h"
#include "bench/plugin_driver.h"
#include "bench/rows.h"
#include "bench/urls.h"

namespace bench {
namespace {

constexpr size_t kOrders = 32;        // per batch
constexpr uint32_t kBusySockets = 5;  // as many as the host has for preloads: nothing is launched

void Append(Hosts& hosts, const char* url, uint32_t pageHash, uint32_t priority) {
  QueuedPreload queued = {CorvaneHash(url), url, pageHash, priority, kDefaultLoadFlags, std::string()};
  HostRecord& host = hosts[KeyOf(queued.url)];
  host.queue.push_back(std::move(queued));
  host.queueUnsorted = true;
}

void JoinFullQueue(benchmark::State& state, size_t queued) {
  EmptyPlugin();
  Hosts hosts;
  constexpr uint32_t kUnknownPage = 1;
  PreloadOrder order(kUnknownPage);
  const std::vector<std::string> busy = MakeUrls("busy", kBusySockets, 1);
  OpenTransactions(busy);
  for (uint32_t id = 1; id <= kBusySockets; ++id) hosts[KeyOf(busy[0])].transactions[id].url = busy[id - 1];
  for (const std::string& url : MakeUrls("queued", queued, 1)) {
    order.SendFor(url.c_str());
    Append(hosts, url.c_str(), kUnknownPage, kDefaultPriority);
  }
  const std::vector<std::string> urls = MakeUrls("joining", kOrders, 1);
  TransactionStart start;

  const auto operation = [&] {
    size_t handled = 0;
    const double spent = Nanoseconds([&] {
      for (const std::string& url : urls) handled += order.SendFor(url.c_str());
    });
    Expect(handled == kOrders, "an order was not handled");
    // A transaction that is open already only takes its URL out of the queue.
    for (const std::string& url : urls) start.SendFor(url.c_str(), kBusySockets);
    return spent / kOrders;
  };
  const auto floor = [&] {
    const double spent = Nanoseconds([&] {
      for (const std::string& url : urls) {
        benchmark::DoNotOptimize(CorvaneHash(url.c_str()));  // an order looks its URL up before it joins
        Append(hosts, url.c_str(), kUnknownPage, kDefaultPriority);
        BareWalk(hosts);
      }
    });
    for (size_t i = 0; i < kOrders; ++i) hosts.begin()->second.queue.pop_back();
    return spent / kOrders;
  };
  RunRounds(state, operation, floor);
}

// A pass of the floor: sorts, and makes a record of the known URL and one of the preload for each request.
void LaunchAll(HostRecord& host, KnownUrls& known, HeldPreloads& preloads, std::mutex& mutex) {
  host.queue.sort([](const QueuedPreload& a, const QueuedPreload& b) { return a.priority < b.priority; });
  for (; !host.queue.empty(); host.queue.pop_front()) {
    QueuedPreload& request = host.queue.front();
    const KnownUrl& page = known.find(request.mainUrlHash)->second;
    request.requestHeaders = page.headers;
    known.emplace(request.urlHash, KnownUrl{.url = request.url, .mainUrlHash = request.mainUrlHash});

    const std::lock_guard hold(mutex);
    const uint32_t urlHash = CorvaneHash(request.url.c_str());
    auto made = std::make_unique<HeldPreload>();
    made->url = request.url;
    made->urlHash = urlHash;
    made->loadFlags = request.loadFlags;
    made->context = page.context;
    made->requestHeaders = request.requestHeaders;
    made->startTime = CorvaneGetSystemTime();
    preloads.emplace(urlHash, std::move(made));
    if (CorvaneGetIoMessageLoop() == nullptr || CorvaneGetHttpCache() == nullptr) continue;
    host.activePreloads +=
        CorvaneFetch(reinterpret_cast<void*>(static_cast<uintptr_t>(urlHash)), PageContext()) != 0;
  }
}

void SortAndLaunch(benchmark::State& state, size_t queued) {
  const std::vector<std::string> urls = MakeUrls("queued", queued, 1);
  const std::string page = MakeUrls("page", 1, 1).front();
  RandomWalk priorities(queued, 1);
  const corvane::Command pass(CheckPreloads::kId);

  const auto operation = [&] {
    EmptyPlugin();
    PreloadOrder order(AddPage(page));
    TheHost().maxSockets = 1;  // all kept idle: the queue fills
    const std::vector<uint32_t>& drawn = priorities.Draw(queued);
    for (size_t i = 0; i < queued; ++i) order.SendFor(urls[i].c_str(), drawn[i] / 4);
    TheHost().maxSockets = INT_MAX;
    const double spent = Nanoseconds([&] { Send(pass); });
    for (const std::string& url : urls)
      Expect(ReleasePreloaded(url.c_str()) == 1, "a preload was not launched");
    return spent / static_cast<double>(queued);
  };
  const auto floor = [&] {
    KnownUrls known;
    HeldPreloads preloads;
    std::mutex mutex;
    Hosts hosts;
    const uint32_t pageHash = CorvaneHash(page.c_str());
    known.emplace(pageHash, KnownUrl{.url = page, .headers = PageHeaders(), .context = PageContext()});
    const std::vector<uint32_t>& drawn = priorities.Draw(queued);
    for (size_t i = 0; i < queued; ++i) Append(hosts, urls[i].c_str(), pageHash, drawn[i] / 4);
    return Nanoseconds([&] { LaunchAll(hosts.begin()->second, known, preloads, mutex); }) /
           static_cast<double>(queued);
  };
  RunRounds(state, operation, floor);
}

}  // namespace

void AddQueueRows() {}

void AddLaunchRows() {
  for (const auto& [queued, name] :
       {std::pair<size_t, const char*>{1, "1 queued"}, {100, "100 queued"}, {10'000, "10 k queued"}}) {
    AddRow({"order that joins a full queue", name, 1.5}, kRounds,
           [size = queued](auto& state) { JoinFullQueue(state, size); });
  }
  for (const auto& [queued, name] :
       {std::pair<size_t, const char*>{100, "100 queued"}, {10'000, "10 k queued"}}) {
    AddRow({"sort and launch, per preload", name, 1.5}, kRounds,
           [size = queued](auto& state) { SortAndLaunch(state, size); });
  }
}

}  // namespace bench
