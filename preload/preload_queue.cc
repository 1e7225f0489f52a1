#include "preload/preload_queue.h"

#include "plugin/log.h"
#include "preload/preload_scheduling.h"

namespace kiv {

void SetForPreload(const char* url, uint32_t mainUrlHash, uint32_t priority, uint32_t loadFlags,
                   const std::string& requestHeaders) {
  const uint32_t urlHash = CorvaneHash(url);
  KIV_INFO("Set For Preload (%d): %s ", static_cast<int32_t>(priority), url);
  PreloadRequest request = {urlHash, url, mainUrlHash, priority, loadFlags, requestHeaders};
  HostEntry& host = HostMap[HostKey(request.url)];
  host.preloadQueue.push_back(std::move(request));
  host.queueUnsorted = true;
  CheckPreload();
}

void RemoveFromQueue(HostEntry& host, uint32_t urlHash) {
  host.preloadQueue.remove_if(
      [urlHash](const PreloadRequest& request) { return request.urlHash == urlHash; });
}

void SortQueue(HostEntry& host) {
  if (!host.queueUnsorted) return;
  host.preloadQueue.sort(  // stable; allocates nothing
      [](const PreloadRequest& a, const PreloadRequest& b) { return a.priority < b.priority; });
  host.queueUnsorted = false;
}

}  // namespace kiv
