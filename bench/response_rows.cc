// A response begins and ends: among 1000 preloads in flight to 100 hosts that the browser uses too.
#include <string>
#include <vector>

#include "bench/host_floor.h"
#include "bench/plugin_driver.h"
#include "bench/preload_floor.h"
#include "bench/rows.h"
#include "bench/urls.h"

namespace bench {
namespace {

constexpr size_t kPreloads = 1000;
constexpr size_t kHosts = 100;
constexpr size_t kHeaderBytes = 512;
constexpr const char* kSize = "0.5 kB headers";
const std::string kBody = "x";

// 1000 preloads, launched before each batch on both sides and walked in random order.
class InFlight {
 public:
  InFlight() : order_(kPreloads, 1) {
    for (const std::string& url : urls_) cookies_.push_back(CookieOf(url));
    for (const std::string& url : MakeUrls("open", kHosts, kHosts)) hosts_[KeyOf(url)];
  }

  void Launch() {
    EmptyPlugin();
    OpenTransactions(MakeUrls("open", kHosts, kHosts));  // keeps the hosts known
    LaunchPreloads(urls_, AddPage(page_));
  }
  void LaunchInFloor() {
    floor_ = PreloadFloor();
    for (auto& [key, host] : hosts_) host.activePreloads = kPreloads / kHosts;
    for (const std::string& url : urls_) floor_.Launch(url, CorvaneHash(page_.c_str())).dataSize = 1;
  }

  template <typename Body>
  double TimePerPreload(const Body& body) {
    const std::vector<uint32_t>& places = order_.Draw(kPreloads);
    return Nanoseconds([&] {
             for (const uint32_t place : places) body(cookies_[place]);
           }) /
           kPreloads;
  }

  // Both find what they need without checking: the preload is there.
  HeldPreload& FindInFloor(void* cookie) {
    return *floor_.preloads.find(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(cookie)))->second;
  }
  HostRecord& FindHostInFloor(const HeldPreload& preload) { return hosts_.find(KeyOf(preload.url))->second; }

  const net::HttpResponseHeaders headers = MakeHeaders(kHeaderBytes, kBody.size());
  const CorvaneFetchResponse response = {&headers};

 private:
  std::vector<std::string> urls_ = MakeUrls("preload", kPreloads, kHosts);
  std::string page_ = MakeUrls("page", 1, 1).front();
  std::vector<void*> cookies_;
  RandomWalk order_;
  PreloadFloor floor_;
  Hosts hosts_;
};

void ResponseStart(benchmark::State& state) {
  InFlight inFlight;
  const auto operation = [&] {
    inFlight.Launch();
    size_t taken = 0;
    const double time = inFlight.TimePerPreload(
        [&](void* cookie) { taken += FetchStartComplete(cookie, &inFlight.response) != 0; });
    Expect(taken == kPreloads, "a response was refused");
    return time;
  };
  const auto floor = [&] {
    inFlight.LaunchInFloor();
    return inFlight.TimePerPreload([&](void* cookie) {
      HeldPreload& preload = inFlight.FindInFloor(cookie);
      preload.responseHeaders = inFlight.headers.raw_headers();
      preload.responseCode = inFlight.headers.response_code();
      preload.contentLength = inFlight.headers.GetContentLength();
    });
  };
  RunRounds(state, operation, floor);
}

void ResponseDone(benchmark::State& state) {
  InFlight inFlight;
  const auto operation = [&] {
    inFlight.Launch();
    inFlight.TimePerPreload([&](void* cookie) {
      FetchStartComplete(cookie, &inFlight.response);
      FetchReadComplete(cookie, kBody.data(), static_cast<int32_t>(kBody.size()));
    });
    size_t known = 0;
    const double time = inFlight.TimePerPreload([&](void* cookie) { known += FetchDone(cookie, 0) != 0; });
    Expect(known == kPreloads, "a preload was not known");
    return time;
  };
  const auto floor = [&] {
    inFlight.LaunchInFloor();
    return inFlight.TimePerPreload([&](void* cookie) {
      HeldPreload& preload = inFlight.FindInFloor(cookie);
      --inFlight.FindHostInFloor(preload).activePreloads;
      preload.state = preload.dataSize != 0 ? 3 : 4;
    });
  };
  RunRounds(state, operation, floor);
}

}  // namespace

void AddResponseRows() {
  AddRow({"response start", kSize, 1.5}, kRounds, ResponseStart);
  AddRow({"response done", kSize, 1.5}, kRounds, ResponseDone);
}

}  // namespace bench
