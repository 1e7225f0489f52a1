// What is known of each host and port: the browser's open transactions, the queued preloads, and how many
// preloads are in flight. Command thread only, FetchDone included; there is no lock.
#ifndef LEARNING_HOST_MAP_H_
#define LEARNING_HOST_MAP_H_

#include <cstdint>
#include <list>
#include <map>
#include <string>

#include "preload/preload_request.h"
#include "reflector/cached_url_map.h"

namespace kiv {

struct HostEntry {
  // By transaction id; of each record only `url` is filled. Their number is the host's active count.
  std::map<uint32_t, CachedUrlEntry> transactions;
  std::list<PreloadRequest> preloadQueue;
  bool queueUnsorted = true;  // requests may have been appended since the last sort
  uint32_t activePreloads = 0;
};

// By host-and-port text, as HostKey gives it; byte-wise, a shorter key before the longer one that it begins.
extern std::map<std::string, HostEntry> HostMap;

// The key of a URL: the host function's text, as it comes back.
std::string HostKey(const std::string& url);

// The entry of exactly that key, or null.
HostEntry* FindHost(const std::string& key);

}  // namespace kiv

#endif  // LEARNING_HOST_MAP_H_
