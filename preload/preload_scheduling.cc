#include "preload/preload_scheduling.h"

#include <new>

#include "plugin/log.h"
#include "plugin/plugin_state.h"
#include "preload/fetch_launch.h"
#include "preload/preload_queue.h"
#include "reflector/cached_url_map.h"

namespace kiv {
namespace {

// Returns the page's request context, or null when none was recorded, and copies the page's headers into the
// request. Also records the resource as one of the page's.
net::URLRequestContext* FindContext(PreloadRequest& request) {
  if (request.mainUrlHash == 0) return nullptr;
  net::URLRequestContext* context = nullptr;
  if (const auto page = CachedUrlMap.find(request.mainUrlHash); page != CachedUrlMap.end()) {
    context = page->second.context;
    request.requestHeaders = page->second.headers;
  }
  if (!CachedUrlMap.contains(request.urlHash)) {
    AddToCacheReflector(request.urlHash, request.url.c_str(), request.mainUrlHash);
  }
  return context;
}

// What LaunchFetch returns. Running out of memory counts as refused, and the pass continues.
int32_t Launch(PreloadRequest& request) {
  try {
    net::URLRequestContext* const context = FindContext(request);
    return LaunchFetch(request.url.c_str(), request.loadFlags, context, request.requestHeaders.c_str());
  } catch (const std::bad_alloc&) {
    return 0;
  }
}

// Takes requests from the front of the queue. A refused one is dropped and uses no slot.
void LaunchQueued(HostEntry& host, uint32_t slots) {
  const auto preloadLimit = static_cast<uint32_t>(GetPluginState().preloadLimit);
  SortQueue(host);
  while (!host.preloadQueue.empty() && slots != 0) {
    if (host.activePreloads >= preloadLimit) return;
    PreloadRequest& request = host.preloadQueue.front();
    KIV_INFO("Do Preload - %s", request.url.c_str());
    if (Launch(request) != 0) {
      --slots;
      ++host.activePreloads;
    }
    host.preloadQueue.pop_front();
  }
}

}  // namespace

void CheckPreload() {
  for (auto place = HostMap.begin(); place != HostMap.end();) {
    HostEntry& host = place->second;
    const auto active = static_cast<uint32_t>(host.transactions.size());
    KIV_INFO("Check Preload (%s) - Active:%d, In Preload Queue:%d", place->first.c_str(),
             static_cast<int32_t>(active), static_cast<int32_t>(host.preloadQueue.size()));
    // Unsigned: if more sockets stay idle than the group has, the room becomes very large.
    const uint32_t free =
        static_cast<uint32_t>(CorvaneGetMaxSocketsPerGroup()) - static_cast<uint32_t>(idleSockets);
    if (free > active && active == 0 && host.preloadQueue.empty()) {
      place = HostMap.erase(place);
      continue;
    }
    if (free > active && !host.preloadQueue.empty()) LaunchQueued(host, free - active);
    ++place;
  }
}

}  // namespace kiv
