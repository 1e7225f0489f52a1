// Known URLs: a page requested again, a sub-resource seen for the first time, a report of the disk cache.
#include <algorithm>
#include <string>
#include <vector>

#include "bench/floor_records.h"
#include "bench/plugin_driver.h"
#include "bench/rows.h"
#include "bench/urls.h"

namespace bench {
namespace {

constexpr size_t kHosts = 1000;
constexpr size_t kLookups = 4096;  // per batch

struct Size {
  size_t urls;
  const char* name;
};
constexpr Size kSizes[] = {{1'000, "1 k URLs"}, {30'000, "30 k URLs"}, {1'000'000, "1 M URLs"}};

// The same URLs in the plugin and in a map of the same records, entered by turns so that both are spread over
// the same memory.
struct Known {
  explicit Known(size_t count) : urls(MakeUrls("known", count, kHosts)) {
    EmptyPlugin();
    PageRequest request;
    for (const std::string& url : urls) {
      request.SendFor(url.c_str());
      floor.try_emplace(CorvaneHash(url.c_str()), KnownUrl{.url = url});
    }
  }

  std::vector<std::string> urls;
  KnownUrls floor;
};

void RepeatPageRequest(benchmark::State& state, size_t count) {
  const Known known(count);
  RandomWalk forPlugin(count, 1);
  RandomWalk forFloor(count, 2);
  PageRequest request;

  const auto operation = [&] {
    const std::vector<uint32_t>& places = forPlugin.Draw(kLookups);
    size_t handled = 0;
    const double spent = Nanoseconds([&] {
      for (const uint32_t place : places) handled += request.SendFor(known.urls[place].c_str());
    });
    Expect(handled == kLookups, "a page request was not handled");
    return spent / kLookups;
  };
  const auto floor = [&] {
    const std::vector<uint32_t>& places = forFloor.Draw(kLookups);
    size_t found = 0;
    const double spent = Nanoseconds([&] {
      for (const uint32_t place : places) {
        found += known.floor.find(CorvaneHash(known.urls[place].c_str())) != known.floor.end();
      }
    });
    Expect(found == kLookups, "a known URL is missing from the floor's map");
    return spent / kLookups;
  };
  RunRounds(state, operation, floor);
}

// Each batch sees URLs that the plugin does not know, and has the disk cache deny them again afterwards.
void NewSubResource(benchmark::State& state, size_t count) {
  Known known(count);
  const size_t batch = std::min(kLookups, count / 8);
  const std::vector<std::string> fresh = MakeUrls("fresh", 8 * batch, kHosts);
  const std::string& page = known.urls.front();
  RandomWalk forPlugin(fresh.size(), 1);
  RandomWalk forFloor(fresh.size(), 2);
  corvane::Command seen(ResourceSeen::kId);
  seen.Lend(ResourceSeen::kPageUrl, page.c_str()).Set(ResourceSeen::kPreload, 0);
  corvane::Command denied(CacheStatus::kId);
  denied.Set(CacheStatus::kHeld, 0);
  std::vector<const char*> added;
  const auto draw = [&](RandomWalk& walk) {
    added.clear();
    for (const uint32_t place : walk.Draw(batch)) added.push_back(fresh[place].c_str());
  };

  const auto operation = [&] {
    draw(forPlugin);
    size_t handled = 0;
    const double spent = Nanoseconds([&] {
      for (const char* const url : added) handled += Send(seen.Lend(ResourceSeen::kUrl, url));
    });
    Expect(handled == batch, "a sub-resource was not handled");
    for (const char* const url : added) Send(denied.Set(CacheStatus::kUrlHash, CorvaneHash(url)));
    return spent / static_cast<double>(batch);
  };
  const auto floor = [&] {
    draw(forFloor);
    const double spent = Nanoseconds([&] {
      for (const char* const url : added) {
        const uint32_t pageHash = CorvaneHash(page.c_str());
        known.floor.emplace(CorvaneHash(url), KnownUrl{.url = url, .mainUrlHash = pageHash});
      }
    });
    for (const char* const url : added) known.floor.erase(CorvaneHash(url));
    return spent / static_cast<double>(batch);
  };
  RunRounds(state, operation, floor);
}

void ConfirmUrls(benchmark::State& state, size_t count) {
  Known known(count);
  std::vector<uint32_t> hashes;
  hashes.reserve(count);
  for (const std::string& url : known.urls) hashes.push_back(CorvaneHash(url.c_str()));
  RandomWalk forPlugin(count, 1);
  RandomWalk forFloor(count, 2);
  corvane::Command cached(CacheStatus::kId);
  cached.Set(CacheStatus::kHeld, 1);

  const auto operation = [&] {
    const std::vector<uint32_t>& places = forPlugin.Draw(kLookups);
    size_t handled = 0;
    const double spent = Nanoseconds([&] {
      for (const uint32_t place : places) handled += Send(cached.Set(CacheStatus::kUrlHash, hashes[place]));
    });
    Expect(handled == kLookups, "a cache status was not handled");
    return spent / kLookups;
  };
  const auto floor = [&] {
    const std::vector<uint32_t>& places = forFloor.Draw(kLookups);
    const double spent = Nanoseconds([&] {
      for (const uint32_t place : places) {
        const auto found = known.floor.find(hashes[place]);
        if (found != known.floor.end()) found->second.inDiskCache = true;
      }
    });
    return spent / kLookups;
  };
  RunRounds(state, operation, floor);
}

}  // namespace

void AddPageRequestRows() {
  for (const Size& size : kSizes) {
    AddRow({"repeat page request", size.name, 1.3}, kRounds,
           [size](auto& state) { RepeatPageRequest(state, size.urls); });
  }
}

void AddSubResourceRows() {
  for (const Size& size : kSizes) {
    AddRow({"new sub-resource", size.name, 1.5}, kRounds,
           [size](auto& state) { NewSubResource(state, size.urls); });
  }
}

void AddCacheStatusRows() {
  for (const Size& size : kSizes) {
    AddRow({"cache status", size.name, 1.5}, kRounds, [size](auto& state) { ConfirmUrls(state, size.urls); });
  }
}

}  // namespace bench
