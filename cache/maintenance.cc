#include "cache/maintenance.h"

#include "learning/host_map.h"
#include "plugin/log.h"
#include "reflector/cached_url_map.h"

namespace kiv {
namespace {

constexpr int kTwoMinutesInMs = 120000;

void DropUnconfirmedUrls() {
  for (auto place = CachedUrlMap.begin(); place != CachedUrlMap.end();) {
    const CachedUrlEntry& entry = place->second;
    if (entry.inDiskCache) {
      ++place;
      continue;
    }
    KIV_INFO("Remove from cached list: %s (%d)", entry.url.c_str(), entry.inDiskCache);
    place = CachedUrlMap.erase(place);
  }
}

// Failed preloads are not stuck, and neither are complete ones that nobody asked for within two minutes. All
// others are.
bool IsStuck(const PreloadEntry& entry, int ageInMs) {
  if (entry.state == PreloadState::Failed) return false;
  return entry.state != PreloadState::Preloaded || ageInMs <= kTwoMinutesInMs;
}

void DropPreloads() EXCLUSIVE_LOCKS_REQUIRED(PreloadLock) {
  const base::Time now = CorvaneGetSystemTime();
  for (auto place = PreloadCache.begin(); place != PreloadCache.end();) {
    const PreloadEntry& entry = *place->second;
    if (IsStuck(entry, CorvaneGetTimeDeltaInMs(entry.startTime, now))) {
      KIV_INFO("OnFlushDb - Stuck preload: %s (%d)", entry.url.c_str(), static_cast<int>(entry.state));
    }
    place = RemoveEntry(place);
  }
}

}  // namespace

int32_t Flush(const PluginState& state) {
  if (!state.enabled) return 1;
  DropUnconfirmedUrls();
  KIV_INFO("OnFlushDb - HostMap Size: %d, CachedUrlMap Size: %d", static_cast<int>(HostMap.size()),
           static_cast<int>(CachedUrlMap.size()));
  const base::AutoLock hold(PreloadLock);
  EndOldLoans();
  DropPreloads();
  KIV_DEBUG("Clean URL cache done (%d)", static_cast<int>(PreloadCache.size()));
  return 1;
}

int32_t Clear(const PluginState& state) {
  if (!state.enabled) return 1;
  KIV_INFO("OnClearDb");
  CachedUrlMap.clear();
  HostMap.clear();
  return 1;
}

}  // namespace kiv
