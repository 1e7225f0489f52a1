// The URLs known as main pages or as sub-resources of pages, and whether the disk cache holds them.
// Command thread only; there is no lock.
#ifndef REFLECTOR_CACHED_URL_MAP_H_
#define REFLECTOR_CACHED_URL_MAP_H_

#include <cstdint>
#include <map>
#include <string>

namespace net {
class URLRequestContext;
}

namespace kiv {

struct CachedUrlEntry {
  std::string url;           // never changed
  std::string headers;       // main URL: request header text for its sub-resources
  uint32_t mainUrlHash = 0;  // the page's URL hash; 0 for a main URL. Never changed
  bool inDiskCache = false;  // confirmed by the host; never reset
  uint32_t state = 0;        // 1: request seen by the host; 2: preloads withdrawn; 0: neither
  net::URLRequestContext* context = nullptr;  // main URL: the context of its requests. Not owned
};

// By URL hash. Of two URLs with the same hash, the first one is kept.
extern std::map<uint32_t, CachedUrlEntry> CachedUrlMap;

// Records a URL, unless there is an entry with its hash; that entry does not change. `url` is not null.
void AddToCacheReflector(uint32_t key, const char* url, uint32_t mainUrlHash);

}  // namespace kiv

#endif  // REFLECTOR_CACHED_URL_MAP_H_
