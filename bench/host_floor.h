// The floor's side of the host map: what the plugin's host records take at least. One thread.
#ifndef BENCH_HOST_FLOOR_H_
#define BENCH_HOST_FLOOR_H_

#include <benchmark/benchmark.h>

#include <string>

#include "bench/floor_records.h"
#include "plugin/corvane.h"

namespace bench {

// The host-and-port key of a URL that came as a command's text.
inline std::string KeyOf(const std::string& url) {
  std::string key;
  CorvaneGetHostPortFromUrl(url, key);
  return key;
}

// A walk over all hosts that asks the host's two questions for each and looks at what a pass decides by.
inline void BareWalk(Hosts& hosts) {
  size_t busy = 0;
  for (auto& [key, host] : hosts) {
    if (CorvaneGetVerboseLevel() > 2) benchmark::DoNotOptimize(key.data());
    const auto sockets = static_cast<size_t>(CorvaneGetMaxSocketsPerGroup());
    busy += host.transactions.size() >= sockets || !host.queue.empty();
  }
  benchmark::DoNotOptimize(busy);
}

}  // namespace bench

#endif  // BENCH_HOST_FLOOR_H_
