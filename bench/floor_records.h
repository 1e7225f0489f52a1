// The records of the floors: the same data as the plugin's, written down a second time so that a field too
// many in the plugin shows in the table instead of slowing the floor down as well.
#ifndef BENCH_FLOOR_RECORDS_H_
#define BENCH_FLOOR_RECORDS_H_

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>

#include "base/time/time.h"

namespace bench {

struct KnownUrl {
  std::string url;
  std::string headers;
  uint32_t mainUrlHash = 0;
  bool inDiskCache = false;
  uint32_t state = 0;
  void* context = nullptr;
};
using KnownUrls = std::map<uint32_t, KnownUrl>;

struct QueuedPreload {
  uint32_t urlHash;
  std::string url;
  uint32_t mainUrlHash;
  uint32_t priority;
  uint32_t loadFlags;
  std::string requestHeaders;
};

struct HostRecord {
  std::map<uint32_t, KnownUrl> transactions;
  std::list<QueuedPreload> queue;
  bool queueUnsorted = true;
  uint32_t activePreloads = 0;
};
using Hosts = std::map<std::string, HostRecord>;

struct HeldPreload {
  std::string url;
  uint32_t urlHash = 0;
  uint32_t loadFlags = 0;
  void* context = nullptr;
  std::string requestHeaders;
  std::string responseHeaders;
  uint32_t state = 0;
  base::Time startTime;
  int32_t responseCode = -1;
  int64_t contentLength = 0;
  uint32_t dataSize = 0;
  uint32_t dataCapacity = 0;
  std::unique_ptr<char[]> data;
};
using HeldPreloads = std::map<uint32_t, std::unique_ptr<HeldPreload>>;

}  // namespace bench

#endif  // BENCH_FLOOR_RECORDS_H_
