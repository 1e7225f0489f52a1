// What a record takes in memory, the allocator's share included, beside the same data in the same containers.
#include <malloc.h>

#include <string>
#include <vector>

#include "bench/host_floor.h"
#include "bench/plugin_driver.h"
#include "bench/preload_floor.h"
#include "bench/rows.h"
#include "bench/urls.h"

namespace bench {
namespace {

constexpr int kMemoryRounds = 1;  // the allocator answers the same every time

// Bytes that the allocator has given out, with what it adds to each block.
double BytesInUse() {
  const struct mallinfo2 info = mallinfo2();
  return static_cast<double>(info.uordblks + info.hblkhd);
}

template <typename Body>
double BytesOf(const Body& body) {
  const double before = BytesInUse();
  body();
  return BytesInUse() - before;
}

void PerUrl(benchmark::State& state, size_t count) {
  const std::vector<std::string> urls = MakeUrls("known", count, 1000);
  const auto operation = [&] {
    EmptyPlugin();
    const double bytes = BytesOf([&] { AddKnownUrls(urls); });
    EmptyPlugin();
    return bytes / static_cast<double>(count);
  };
  const auto floor = [&] {
    KnownUrls known;
    return BytesOf([&] {
             for (const std::string& url : urls)
               known.try_emplace(CorvaneHash(url.c_str()), KnownUrl{.url = url});
           }) /
           static_cast<double>(count);
  };
  RunRounds(state, operation, floor);
}

// With one transaction open.
void PerHost(benchmark::State& state, size_t count) {
  const std::vector<std::string> urls = MakeUrls("open", count, count);
  const auto operation = [&] {
    EmptyPlugin();
    const double bytes = BytesOf([&] { OpenTransactions(urls); });
    EmptyPlugin();
    return bytes / static_cast<double>(count);
  };
  const auto floor = [&] {
    Hosts hosts;
    return BytesOf([&] {
             for (const std::string& url : urls) {
               hosts[KeyOf(url)].transactions.try_emplace(1, KnownUrl{.url = url});
             }
           }) /
           static_cast<double>(count);
  };
  RunRounds(state, operation, floor);
}

// With what was learned on the way cleared away.
void PerPreload(benchmark::State& state, size_t count, size_t bodyBytes) {
  const std::vector<std::string> urls = MakeUrls("preload", count, 10);
  const std::string page = MakeUrls("page", 1, 1).front();
  const std::string body(bodyBytes, 'b');
  const net::HttpResponseHeaders headers = MakeHeaders(512, bodyBytes);
  const auto operation = [&] {
    EmptyPlugin();
    const double bytes = BytesOf([&] {
      HoldPreloads(urls, AddPage(page), headers, body);
      OnClearDb(0);
    });
    EmptyPlugin();
    return bytes / static_cast<double>(count);
  };
  const auto floor = [&] {
    PreloadFloor held;
    return BytesOf([&] {
             held.Hold(urls, CorvaneHash(page.c_str()), headers, body);
             held.known.clear();
           }) /
           static_cast<double>(count);
  };
  RunRounds(state, operation, floor);
}

}  // namespace

void AddMemoryRows() {
  AddRow({"memory per known URL", "1 M", 1.1, Unit::Bytes}, kMemoryRounds,
         [](auto& state) { PerUrl(state, 1'000'000); });
  AddRow({"memory per host", "10 k", 1.1, Unit::Bytes}, kMemoryRounds,
         [](auto& state) { PerHost(state, 10'000); });
  AddRow({"memory per held preload, 1 kB", "10 k", 1.1, Unit::Bytes}, kMemoryRounds,
         [](auto& state) { PerPreload(state, 10'000, 1 << 10); });
}

}  // namespace bench
