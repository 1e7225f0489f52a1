#include "reflector/cached_url_map.h"

#include "plugin/log.h"

namespace kiv {

void AddToCacheReflector(uint32_t key, const char* url, uint32_t mainUrlHash) {
  KIV_DEBUG("Add to Cache Reflector: %s", url);
  const auto place = CachedUrlMap.lower_bound(key);
  if (place != CachedUrlMap.end() && place->first == key) return;
  CachedUrlMap.try_emplace(place, key, CachedUrlEntry{.url = url, .mainUrlHash = mainUrlHash});
}

}  // namespace kiv
