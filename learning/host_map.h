// What is known about each host and port: the browser's open transactions, the queued preloads, and how many
// preloads are running. Used on the command thread only, by FetchDone as well, because there is no lock.
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
  // By transaction id; only `url` of each record is set. Their number is the host's active count.
  std::map<uint32_t, CachedUrlEntry> transactions;
  std::list<PreloadRequest> preloadQueue;
  bool queueUnsorted = true;  // requests may have been appended since the last sort
  uint32_t activePreloads = 0;
};

// The keys are those of HostKey, compared byte by byte; a shorter key precedes the longer ones it begins.
extern std::map<std::string, HostEntry> HostMap;

// The key of a URL: the text that CorvaneGetHostPortFromUrl returns, unchanged.
std::string HostKey(const std::string& url);

// The entry with exactly this key, or null.
HostEntry* FindHost(const std::string& key);

}  // namespace kiv

#endif  // LEARNING_HOST_MAP_H_
