// Estimates from what the browser was sent which requests its own cache can answer. A browser has separate
// caches for sites, so the key of everything includes the site of the page. One thread.
#ifndef LIVE_PROXY_BROWSER_CACHE_ESTIMATE_H_
#define LIVE_PROXY_BROWSER_CACHE_ESTIMATE_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "host/recency_map.h"

namespace live {

class BrowserCacheEstimate {
 public:
  explicit BrowserCacheEstimate(size_t maxUrls) : entries_(maxUrls) {}

  // Times are milliseconds since 1970.

  // The browser sends a request. If the request shows that the cache was cleared (it is for something that
  // should be fresh, or for a page without the validators that the cache should have), forgets everything
  // about the site and returns true.
  bool Asked(const std::string& site, const std::string& url, std::string_view requestHeaders, bool isPage,
             double nowMs);
  // The browser has received the complete answer.
  void Delivered(const std::string& site, const std::string& method, const std::string& url,
                 const std::string& responseBlock, double nowMs);

  bool IsFresh(const std::string& site, const std::string& url, double nowMs) const;

 private:
  struct Entry {
    double freshUntilMs = 0;
    double lifetimeMs = 0;
    bool hasValidators = false;
    uint64_t generation = 0;
  };
  using Key = std::pair<std::string, std::string>;  // site, URL

  const Entry* Find(const std::string& site, const std::string& url) const;

  host::RecencyMap<Key, Entry> entries_;
  // What was stored before a site's cache was cleared is ignored.
  host::RecencyMap<std::string, uint64_t> generations_{1000};
  uint64_t lastGeneration_ = 0;
};

}  // namespace live

#endif  // LIVE_PROXY_BROWSER_CACHE_ESTIMATE_H_
