#include "reflector/cache_status_handler.h"

#include "plugin/command_params.h"
#include "plugin/log.h"
#include "reflector/cached_url_map.h"

namespace kiv {

int32_t SetCacheStatus(CorvaneCmd* cmd) {
  const CommandParams params(cmd);
  const uint32_t urlHash = params[command::CacheStatus::kUrlHash];
  const int status = params[command::CacheStatus::kHeld] != 0 ? 1 : 0;

  const auto found = CachedUrlMap.find(urlHash);
  if (found == CachedUrlMap.end()) return 1;
  KIV_DEBUG("Set Cache Status: %s(%d)", found->second.url.c_str(), status);
  if (status == 1) {
    found->second.inDiskCache = true;
  } else {
    CachedUrlMap.erase(found);
  }
  return 1;
}

}  // namespace kiv
