// Held responses are served and given back, by one network thread and by several at once.
#include <algorithm>
#include <barrier>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "bench/plugin_driver.h"
#include "bench/preload_floor.h"
#include "bench/rows.h"
#include "bench/urls.h"

namespace bench {
namespace {

constexpr size_t kPreloads = 4096;  // per batch, shared out among the threads
constexpr size_t kBodyBytes = 256;

// Runs `body(place)` for all places on `threads` threads, each with a part of its own; nanoseconds from the
// first start to the last end, per place.
template <typename Body>
double TimeOnThreads(size_t threads, const Body& body) {
  using Clock = std::chrono::steady_clock;
  std::barrier ready(static_cast<std::ptrdiff_t>(threads));
  std::vector<std::pair<Clock::time_point, Clock::time_point>> spans(threads);
  const auto work = [&](size_t thread) {
    ready.arrive_and_wait();
    spans[thread].first = Clock::now();
    for (size_t i = thread; i < kPreloads; i += threads) body(i);
    spans[thread].second = Clock::now();
  };
  std::vector<std::thread> others;
  for (size_t thread = 1; thread < threads; ++thread) others.emplace_back(work, thread);
  work(0);
  for (std::thread& other : others) other.join();

  auto span = spans[0];
  for (const auto& [start, end] : spans) {
    span.first = std::min(span.first, start);
    span.second = std::max(span.second, end);
  }
  return std::chrono::duration<double, std::nano>(span.second - span.first).count() / kPreloads;
}

void ServeAndRelease(benchmark::State& state, size_t headerBytes, size_t threads) {
  const std::vector<std::string> urls = MakeUrls("preload", kPreloads, 10);
  const std::string page = MakeUrls("page", 1, 1).front();
  const std::string body(kBodyBytes, 'b');
  const net::HttpResponseHeaders headers = MakeHeaders(headerBytes, kBodyBytes);
  RandomWalk walk(kPreloads, 1);
  std::vector<char> served(kPreloads);  // not bool: each thread writes its own

  const auto operation = [&] {
    EmptyPlugin();
    HoldPreloads(urls, AddPage(page), headers, body);
    std::fill(served.begin(), served.end(), '\0');
    const std::vector<uint32_t>& order = walk.Draw(kPreloads);
    const double time = TimeOnThreads(threads, [&](size_t i) {
      static thread_local std::string block;
      const char* const url = urls[order[i]].c_str();
      const char* bytes = nullptr;
      int32_t length = 0;
      if (IsPreloaded(url, &block, &bytes, &length) == 1 && ReleasePreloaded(url) == 1) served[i] = '\1';
    });
    Expect(std::count(served.begin(), served.end(), '\1') == kPreloads, "a response was not served");
    return time;
  };

  PreloadFloor held;
  std::mutex mutex;
  const auto serve = [&](const char* url, std::string& block, const char*& bytes) {
    const std::lock_guard hold(mutex);
    const auto place = held.preloads.find(CorvaneHash(url));
    if (place == held.preloads.end()) return false;
    block = place->second->responseHeaders;
    if (block.find("text/html") != std::string::npos) return false;
    bytes = place->second->data.get();
    return true;
  };
  const auto release = [&](const char* url) {
    const std::lock_guard hold(mutex);
    const auto place = held.preloads.find(CorvaneHash(url));
    if (place == held.preloads.end()) return false;
    held.preloads.erase(place);
    return true;
  };
  const auto floor = [&] {
    held.known.clear();
    held.Hold(urls, CorvaneHash(page.c_str()), headers, body);
    std::fill(served.begin(), served.end(), '\0');
    const std::vector<uint32_t>& order = walk.Draw(kPreloads);
    const double time = TimeOnThreads(threads, [&](size_t i) {
      static thread_local std::string block;
      const char* const url = urls[order[i]].c_str();
      const char* bytes = nullptr;
      if (serve(url, block, bytes) && release(url)) served[i] = '\1';
      benchmark::DoNotOptimize(bytes);
    });
    Expect(std::count(served.begin(), served.end(), '\1') == kPreloads, "the floor did not serve a response");
    return time;
  };
  RunRounds(state, operation, floor);
}

}  // namespace

void AddServingRows() {
  struct Size {
    size_t headerBytes;
    const char* operation;
  };
  for (const auto [headerBytes, name] :
       {Size{512, "serve and release, 0.5 kB headers"}, Size{8192, "serve and release, 8 kB headers"}}) {
    for (const size_t threads : {1U, 2U, 4U}) {
      AddRow({name, std::to_string(threads) + (threads == 1 ? " thread" : " threads"), 1.3}, kRounds,
             [bytes = headerBytes, threads](auto& state) { ServeAndRelease(state, bytes, threads); });
    }
  }
}

}  // namespace bench
