// A body comes in: one chunk into a preload that has announced its length.
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bench/plugin_driver.h"
#include "bench/rows.h"
#include "bench/urls.h"

namespace bench {
namespace {

constexpr size_t kRoomBeyondBody = 10;
constexpr size_t kOffsets = 4096;

void BodyIn(benchmark::State& state, size_t chunk, size_t preloads) {
  const std::vector<std::string> urls = MakeUrls("preload", preloads, 10);
  const std::string page = MakeUrls("page", 1, 1).front();
  const std::string bytes(chunk + kOffsets, 'b');
  RandomWalk offsets(kOffsets, 1);  // copying is slow at some distances of the two ends, on whichever side
  const net::HttpResponseHeaders headers = MakeHeaders(512, chunk);
  const CorvaneFetchResponse response = {&headers};
  std::vector<void*> cookies;
  for (const std::string& url : urls) cookies.push_back(CookieOf(url));

  const auto operation = [&] {
    EmptyPlugin();
    LaunchPreloads(urls, AddPage(page));
    for (void* const cookie : cookies)
      Expect(FetchStartComplete(cookie, &response) == 1, "a response was refused");
    size_t stored = 0;
    const uint32_t* offset = offsets.Draw(preloads).data();
    const double spent = Nanoseconds([&] {
      for (void* const cookie : cookies) {
        stored += FetchReadComplete(cookie, bytes.data() + *offset++, static_cast<int32_t>(chunk)) != 0;
      }
    });
    Expect(stored == preloads, "a chunk was not stored");
    EmptyPlugin();
    return spent / static_cast<double>(preloads);
  };
  std::vector<std::unique_ptr<char[]>> buffers(preloads);
  const auto floor = [&] {
    const uint32_t* offset = offsets.Draw(preloads).data();
    const double spent = Nanoseconds([&] {
      for (auto& buffer : buffers) {
        buffer = std::make_unique_for_overwrite<char[]>(chunk + kRoomBeyondBody);
        std::memcpy(buffer.get(), bytes.data() + *offset++, chunk);
        benchmark::DoNotOptimize(buffer.get());
      }
    });
    for (auto& buffer : buffers) buffer.reset();
    return spent / static_cast<double>(preloads);
  };
  RunRounds(state, operation, floor);
}

}  // namespace

void AddBodyRows() {
  struct Size {
    size_t chunk;
    const char* name;
    size_t preloads;
    double aim;
  };
  for (const Size size :
       {Size{1 << 10, "1 kB", 512, 0}, Size{64 << 10, "64 kB", 128, 1.1}, Size{2 << 20, "2 MB", 16, 1.1}}) {
    AddRow({"body in", size.name, size.aim}, kRounds,
           [size](auto& state) { BodyIn(state, size.chunk, size.preloads); });
  }
}

}  // namespace bench
