// A flush: all known URLs unconfirmed, half of them, or all of them with a preload held of each.
#include <map>
#include <string>
#include <vector>

#include "bench/floor_records.h"
#include "bench/plugin_driver.h"
#include "bench/preload_floor.h"
#include "bench/rows.h"
#include "bench/urls.h"

namespace bench {
namespace {

constexpr size_t kHosts = 1000;

// Every `keepEvery`-th URL is confirmed and stays; 0 for none. The floor erases the same URLs one by one, or
// destroys the whole map.
void FlushUrls(benchmark::State& state, size_t count, size_t keepEvery) {
  const std::vector<std::string> urls = MakeUrls("known", count, kHosts);
  corvane::Command cached(CacheStatus::kId);
  cached.Set(CacheStatus::kHeld, 1);
  const auto stays = [keepEvery](size_t i) { return keepEvery != 0 && i % keepEvery == 0; };

  const auto operation = [&] {
    EmptyPlugin();
    AddKnownUrls(urls);
    for (size_t i = 0; i < count; ++i) {
      if (!stays(i)) continue;
      Send(cached.Set(CacheStatus::kUrlHash, CorvaneHash(urls[i].c_str())));
    }
    const double spent = Nanoseconds([&] { OnFlushDb(0); });
    EmptyPlugin();
    return spent / static_cast<double>(count);
  };
  const auto floor = [&] {
    KnownUrls known;
    for (size_t i = 0; i < count; ++i) {
      known.try_emplace(CorvaneHash(urls[i].c_str()), KnownUrl{.url = urls[i], .inDiskCache = stays(i)});
    }
    const double spent = Nanoseconds([&] {
      if (keepEvery == 0) {
        known.clear();
      } else {
        std::erase_if(known, [](const auto& entry) { return !entry.second.inDiskCache; });
      }
    });
    return spent / static_cast<double>(count);
  };
  RunRounds(state, operation, floor);
}

void FlushPreloads(benchmark::State& state, size_t count) {
  constexpr size_t kBodyBytes = 1024;
  const std::vector<std::string> urls = MakeUrls("preload", count, 10);
  const std::string page = MakeUrls("page", 1, 1).front();
  const std::string body(kBodyBytes, 'b');
  const net::HttpResponseHeaders headers = MakeHeaders(512, kBodyBytes);

  const auto operation = [&] {
    EmptyPlugin();
    HoldPreloads(urls, AddPage(page), headers, body);
    return Nanoseconds([&] { OnFlushDb(0); }) / static_cast<double>(count);
  };
  const auto floor = [&] {
    PreloadFloor held;
    held.Hold(urls, CorvaneHash(page.c_str()), headers, body);
    return Nanoseconds([&] {
             held.known.clear();
             held.preloads.clear();
           }) /
           static_cast<double>(count);
  };
  RunRounds(state, operation, floor);
}

}  // namespace

void AddFlushRows() {
  struct Size {
    size_t count;
    const char* name;
    int rounds;
  };
  constexpr Size kSizes[] = {
      {1'000, "1 k", kRounds}, {30'000, "30 k", kRoundsOfHeavyRows}, {1'000'000, "1 M", 2}};
  for (const Size& size : kSizes) {
    AddRow({"flush of URLs, per URL", size.name, 1.2}, size.rounds,
           [size](auto& state) { FlushUrls(state, size.count, 0); });
  }
  for (const Size& size : kSizes) {
    AddRow({"flush of every other URL, per URL", size.name}, size.rounds,
           [size](auto& state) { FlushUrls(state, size.count, 2); });
  }
  for (const Size& size : {kSizes[0], kSizes[1]}) {
    AddRow({"flush of URLs with held preloads", size.name, 1.2}, size.rounds,
           [size](auto& state) { FlushPreloads(state, size.count); });
  }
}

}  // namespace bench
